"""MatNN anchor in Python (Debian's python3-opencv): read two descriptor
stores, match every row of the first to its nearest row of the second by
brute force (L2), sort by distance, write the 15-column match text.

    python3 matnn.py des1.xml des2.xml match.txt
"""
import sys

import cv2


def le(arquivo):
    fs = cv2.FileStorage(arquivo, cv2.FILE_STORAGE_READ)
    if not fs.isOpened():
        sys.exit("nao leu " + arquivo)
    no = fs.getNode("keypoints")
    if no.size() > 0 and no.at(0).isSeq():  # one sequence per keypoint
        valores = [no.at(i).at(j).real() for i in range(no.size()) for j in range(7)]
    else:
        valores = [no.at(i).real() for i in range(no.size())]
    keypoints = [valores[i:i + 7] for i in range(0, len(valores), 7)]
    return keypoints, fs.getNode("descriptors").mat()


def linha(k):
    return "%e %e %e %e %e %d %d" % (k[0], k[1], k[2], k[3], k[4], int(k[5]), int(k[6]))


def main():
    if len(sys.argv) != 4:
        sys.exit("uso: matnn.py des1.xml des2.xml match.txt")
    k1, d1 = le(sys.argv[1])
    k2, d2 = le(sys.argv[2])
    matches = sorted(cv2.BFMatcher(cv2.NORM_L2).match(d1, d2), key=lambda m: m.distance)
    with open(sys.argv[3], "w") as f:
        f.write("%d 15\n" % len(matches))
        f.write("//dist-ratio k1.pt.x k1.pt.y k1.size k1.angle k1.response k1.octave k1.class_id "
                "k2.pt.x k2.pt.y k2.size k2.angle k2.response k2.octave k2.class_id\n")
        for m in matches:
            f.write("%e  %s  %s\n" % (m.distance, linha(k1[m.queryIdx]), linha(k2[m.trainIdx])))


main()
