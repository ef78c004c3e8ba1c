"""Sweep anchor in Python (Debian's python3-opencv and numpy): the experiment
`Varre DATASET SAIDA det=sift des=sift mat=nn dist=D` computes, written the
way a Python benchmark would write it. For every sequence of an Oxford-layout
dataset (imgK.png, H1toKp) and every pair 1-K: SIFT with OpenCV's defaults
(detect and describe in one pass), brute-force L2 nearest neighbours sorted
by distance, then
  MMA@t           share of matches with |H k1 - k2| <= t pixels, t = 1..10
  matching score  matches with |inv(H) k2 - k1| <= D whose keypoints are both
                  in the common part (the keypoint's disc inside its image and
                  its projection, by H's Jacobian, inside the other), over
                  min(n1, n2), the keypoints of each image in the common part.
Writes one CSV line per pair: sequence,pair,matching_score,mma@1..mma@10.

    python3 varre.py DATASET saida.csv D
"""
import glob
import os
import sys

import cv2
import numpy as np


def projeta(H, p):
    q = np.c_[p, np.ones(len(p))] @ H.T
    return q[:, :2] / q[:, 2:3]


def caixas(H, p, r):
    """Half sizes of the bounding boxes of discs of radius r at p, mapped by H."""
    q = np.c_[p, np.ones(len(p))] @ H.T
    w = q[:, 2]
    u, v = q[:, 0], q[:, 1]
    j00 = (H[0, 0] * w - u * H[2, 0]) / w**2
    j01 = (H[0, 1] * w - u * H[2, 1]) / w**2
    j10 = (H[1, 0] * w - v * H[2, 0]) / w**2
    j11 = (H[1, 1] * w - v * H[2, 1]) / w**2
    return q[:, :2] / q[:, 2:3], r * np.hypot(j00, j01), r * np.hypot(j10, j11)


def dentro(c, bx, by, forma):
    h, w = forma
    return (c[:, 0] - bx > 0) & (c[:, 0] + bx < w) & (c[:, 1] - by > 0) & (c[:, 1] + by < h)


def comum(p, r, H, propria, outra):
    c, bx, by = caixas(H, p, r)
    return dentro(p, r, r, propria) & dentro(c, bx, by, outra)


def main():
    if len(sys.argv) != 4:
        sys.exit("uso: varre.py DATASET saida.csv D")
    dataset, saida, limite = sys.argv[1], sys.argv[2], float(sys.argv[3])
    sift = cv2.SIFT_create(0, 3, 0.04, 10.0, 1.6)
    bf = cv2.BFMatcher(cv2.NORM_L2)
    linhas = []
    for pasta in sorted(d for d in glob.glob(os.path.join(dataset, "*")) if os.path.isdir(d)):
        nome = os.path.basename(pasta)
        n = len(glob.glob(os.path.join(pasta, "img*.png")))
        imagens = [cv2.imread(os.path.join(pasta, "img%d.png" % k), cv2.IMREAD_GRAYSCALE) for k in range(1, n + 1)]
        feitos = [sift.detectAndCompute(img, None) for img in imagens]
        k1, d1 = feitos[0]
        p1 = np.array([k.pt for k in k1], np.float64)
        r1 = np.array([k.size / 2 for k in k1], np.float64)
        for k in range(2, n + 1):
            H = np.loadtxt(os.path.join(pasta, "H1to%dp" % k)).reshape(3, 3)
            Hinv = np.linalg.inv(H)
            k2, d2 = feitos[k - 1]
            p2 = np.array([q.pt for q in k2], np.float64)
            r2 = np.array([q.size / 2 for q in k2], np.float64)
            matches = sorted(bf.match(d1, d2), key=lambda m: m.distance)
            q = np.array([m.queryIdx for m in matches])
            t = np.array([m.trainIdx for m in matches])
            erro = np.linalg.norm(projeta(H, p1[q]) - p2[t], axis=1)
            mma = [float(np.mean(erro <= limiar)) for limiar in range(1, 11)]
            comum1 = comum(p1, r1, H, imagens[0].shape, imagens[k - 1].shape)
            comum2 = comum(p2, r2, Hinv, imagens[k - 1].shape, imagens[0].shape)
            certos = np.linalg.norm(projeta(Hinv, p2[t]) - p1[q], axis=1) <= limite
            score = np.sum(certos & comum1[q] & comum2[t]) / min(comum1.sum(), comum2.sum())
            linhas.append(",".join([nome, "1-%d" % k, "%.6f" % score] + ["%.6f" % v for v in mma]))
    with open(saida, "w") as f:
        f.write("sequence,pair,matching_score," + ",".join("mma@%d" % t for t in range(1, 11)) + "\n")
        f.write("\n".join(linhas) + "\n")


if __name__ == "__main__":
    main()
