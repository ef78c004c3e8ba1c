"""D2-Net's HPatches-sequences protocol in NumPy, the anchor Varre's mma.csv is
held to: for every sequence (HPatches layout: 1.ppm..6.ppm, H_1_2..H_1_6; or
Oxford: img1..imgN, H1to2p..), the features of image 1 and of image k read
from "<image>.<method>" (.npz: keypoints, descriptors, scores), mutual nearest
neighbours by L2 distance (D2-Net takes the largest dot product of unit
descriptors: the same pairs for unit-length rows), and for each threshold
t = 1..10 px the share of matches whose image-1 keypoint, mapped by H, lies
within t of its partner; summed over pairs, divided by the pairs, overall and
for illumination (i_) and viewpoint (v_) sequences.

    python3 d2net.py DATASET METHOD [--topk K] [--fora a,b,...|d2net]

Prints mma.csv's rows for the method (split, pairs, features per image,
matches per pair, mma@1..10) and, on stderr, the seconds it took.
"""
import argparse
import os
import re
import sys
import time

import numpy as np

FORA_D2NET = ["i_contruction", "i_crownnight", "i_dc", "i_pencils", "i_whitebuilding", "v_artisans",
              "v_astronautis", "v_talent"]


def pares(pasta):
    nomes = os.listdir(pasta)
    imagens = {}
    for n in nomes:
        m = re.fullmatch(r"(?:img)?(\d+)\.(ppm|pgm|png|jpe?g)", n)
        if m:
            imagens[int(m.group(1))] = os.path.join(pasta, n)
    for k in sorted(imagens):
        if k == 1:
            continue
        for h in ("H_1_%d" % k, "H1to%dp" % k):
            if h in nomes:
                yield imagens[1], imagens[k], np.loadtxt(os.path.join(pasta, h))


def le(imagem, metodo, topk):
    arquivo = imagem + "." + metodo
    if not os.path.exists(arquivo):
        arquivo += ".npz"
    with np.load(arquivo) as z:
        k = z["keypoints"][:, :2].astype(np.float64)
        d = z["descriptors"].astype(np.float32)
        if topk:
            s = z["scores"]
            manter = np.sort(np.argsort(-s, kind="stable")[:topk])
            k, d = k[manter], d[manter]
    return k, d


def mutuos(d1, d2):
    # Squared L2 distances; argmin keeps the first of equal values, as the
    # brute-force matchers do.
    dist = (d1 * d1).sum(1)[:, None] - 2.0 * d1 @ d2.T + (d2 * d2).sum(1)[None, :]
    nn12 = np.argmin(dist, axis=1)
    nn21 = np.argmin(dist, axis=0)
    i = np.arange(len(d1))
    ok = nn21[nn12] == i
    return np.stack([i[ok], nn12[ok]], axis=1)


def main():
    a = argparse.ArgumentParser()
    a.add_argument("dataset")
    a.add_argument("metodo")
    a.add_argument("--topk", type=int, default=0)
    a.add_argument("--fora", default="")
    o = a.parse_args()
    fora = FORA_D2NET if o.fora == "d2net" else [f for f in o.fora.split(",") if f]
    t0 = time.perf_counter()
    divisoes = {}
    for seq in sorted(os.listdir(o.dataset)):
        pasta = os.path.join(o.dataset, seq)
        if seq in fora or not os.path.isdir(pasta):
            continue
        tipo = "illumination" if seq.startswith("i_") else "viewpoint" if seq.startswith("v_") else ""
        cache = {}
        for img1, imgk, H in pares(pasta):
            for img in (img1, imgk):
                if img not in cache:
                    cache[img] = le(img, o.metodo, o.topk)
            k1, d1 = cache[img1]
            k2, d2 = cache[imgk]
            m = mutuos(d1, d2)
            p1 = np.concatenate([k1[m[:, 0]], np.ones((len(m), 1))], axis=1) @ H.T
            p1 = p1[:, :2] / p1[:, 2:]
            erro = np.sqrt(((p1 - k2[m[:, 1]]) ** 2).sum(1))
            for div in ["all"] + ([tipo] if tipo else []):
                g = divisoes.setdefault(div, {"pares": 0, "imagens": 0, "feats": 0.0, "casamentos": 0.0,
                                              "mma": np.zeros(10), "seqs": set()})
                if seq not in g["seqs"]:
                    g["seqs"].add(seq)
                    g["feats"] += len(k1)
                    g["imagens"] += 1
                g["feats"] += len(k2)
                g["imagens"] += 1
                g["casamentos"] += len(m)
                g["pares"] += 1
                if len(m):
                    g["mma"] += [(erro <= t).mean() for t in range(1, 11)]
    for div in ("all", "illumination", "viewpoint"):
        if div not in divisoes:
            continue
        g = divisoes[div]
        n = g["pares"]
        campos = [div, str(n), "%.6f" % (g["feats"] / g["imagens"]), "%.6f" % (g["casamentos"] / n)]
        campos += ["%.6f" % v for v in g["mma"] / n]
        print(",".join(campos))
    print("segundos=%.3f" % (time.perf_counter() - t0), file=sys.stderr)


if __name__ == "__main__":
    main()
