"""KeySift anchor in Python (Debian's python3-opencv): read the image in
grey, detect SIFT keypoints with OpenCV's defaults, write them as a flat
sequence of seven numbers per keypoint in the node "keypoints".

    python3 keysift.py a.png a.xml
"""
import sys

import cv2


def main():
    if len(sys.argv) != 3:
        sys.exit("uso: keysift.py a.png a.xml")
    img = cv2.imread(sys.argv[1], cv2.IMREAD_GRAYSCALE)
    if img is None:
        sys.exit("nao leu " + sys.argv[1])
    keypoints = cv2.SIFT_create(0, 3, 0.04, 10.0, 1.6).detect(img, None)
    fs = cv2.FileStorage(sys.argv[2], cv2.FILE_STORAGE_WRITE)
    fs.startWriteStruct("keypoints", cv2.FileNode_SEQ)
    for k in keypoints:
        for v in (k.pt[0], k.pt[1], k.size, k.angle, k.response):
            fs.write("", float(v))
        fs.write("", int(k.octave))
        fs.write("", int(k.class_id))
    fs.endWriteStruct()
    fs.release()
    print("KeyPoints k=%d" % len(keypoints))


main()
