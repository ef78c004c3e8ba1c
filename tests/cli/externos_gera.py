"""Writes, for the sequences of a dataset, the files other programs leave, with
their own writers (NumPy, h5py): one set of features (OpenCV's SIFT with unit
rows, standing for a learned method) in D2-Net's per-image .npz (np.savez for
illumination sequences, np.savez_compressed for the others), in one hloc
features file, and their mutual nearest neighbours as hloc matches and as
SuperGlue match files.

    python3 externos_gera.py DATASET METODO feats.h5 matches.h5 PASTA_SUPERGLUE
    python3 externos_gera.py --uma IMAGEM SAIDA.npz     (what ext= runs)
"""
import os
import re
import sys

import cv2
import numpy as np


def caracteristicas(imagem):
    img = cv2.imread(imagem, cv2.IMREAD_GRAYSCALE)
    k, d = cv2.SIFT_create(nfeatures=400).detectAndCompute(img, None)
    d = d / np.linalg.norm(d, axis=1, keepdims=True)
    xy = np.array([p.pt for p in k], dtype=np.float32)
    scores = np.array([p.response for p in k], dtype=np.float32)
    return xy, d.astype(np.float32), scores


def mutuos(d1, d2):
    d1 = d1.astype(np.float64)
    d2 = d2.astype(np.float64)
    dist = (d1 * d1).sum(1)[:, None] - 2.0 * d1 @ d2.T + (d2 * d2).sum(1)[None, :]
    nn12 = np.argmin(dist, axis=1)
    nn21 = np.argmin(dist, axis=0)
    m = np.where(nn21[nn12] == np.arange(len(d1)), nn12, -1)
    confianca = np.where(m >= 0, 1.0 / (1.0 + dist[np.arange(len(d1)), nn12]), 0.0).astype(np.float32)
    return m.astype(np.int64), confianca


def main():
    if sys.argv[1] == "--uma":
        xy, d, s = caracteristicas(sys.argv[2])
        np.savez(sys.argv[3], keypoints=xy, descriptors=d, scores=s)
        return
    import h5py

    dataset, metodo, feats_h5, matches_h5, pasta_sg = sys.argv[1:6]
    with h5py.File(feats_h5, "w") as fh, h5py.File(matches_h5, "w") as mh:
        for seq in sorted(os.listdir(dataset)):
            pasta = os.path.join(dataset, seq)
            imagens = sorted(n for n in os.listdir(pasta) if re.fullmatch(r"img\d+\.png", n))
            feats = {}
            for n in imagens:
                xy, d, s = caracteristicas(os.path.join(pasta, n))
                feats[n] = (xy, d, s)
                salva = np.savez if seq.startswith("i_") else np.savez_compressed
                with open(os.path.join(pasta, n + "." + metodo), "wb") as f:
                    salva(f, keypoints=xy, descriptors=d, scores=s)
                g = fh.create_group(seq + "/" + n)
                g.create_dataset("keypoints", data=xy)
                g.create_dataset("descriptors", data=d.T)
                g.create_dataset("scores", data=s)
                g.create_dataset("image_size", data=np.array(cv2.imread(os.path.join(pasta, n)).shape[1::-1]))
            os.makedirs(os.path.join(pasta_sg, seq), exist_ok=True)
            for n in imagens[1:]:
                m, c = mutuos(feats[imagens[0]][1], feats[n][1])
                par = (seq + "-" + imagens[0]) + "/" + (seq + "-" + n)
                mh.create_dataset(par + "/matches0", data=m.astype(np.int32))
                mh.create_dataset(par + "/matching_scores0", data=c)
                tronco = lambda x: os.path.splitext(x)[0]
                np.savez(os.path.join(pasta_sg, seq, tronco(imagens[0]) + "_" + tronco(n) + "_matches.npz"),
                         keypoints0=feats[imagens[0]][0], keypoints1=feats[n][0], matches=m,
                         match_confidence=c)


if __name__ == "__main__":
    main()
