"""Writes one glue-factory scene (views.txt, pairs.txt, images/) again in the
two other posed layouts, with NumPy and nothing of the program's own:

    python3 posados_gera.py CENA SAIDA

SAIDA/superglue/pares.txt   SuperGlue's pair list (rot 0 0), names relative to CENA/images
SAIDA/superglue/girada.txt  the same pairs, image 1 stored turned clockwise in
                            SAIDA/girada/ (image 0 beside it) and listed with
                            rot1 = 1, its K and T_0to1 those of the stored image
SAIDA/colmap/               cameras.txt, images.txt (quaternions), pairs.txt, images -> CENA/images
SAIDA/pose-K.txt            K0 K1 T_0to1 of pair K (MatPose's pose file)
"""
import os
import sys

import cv2
import numpy as np


def le_vistas(cena):
    vistas = {}
    for linha in open(os.path.join(cena, "views.txt")):
        c = linha.split()
        if not c or c[0].startswith("#"):
            continue
        R = np.array(c[1:10], dtype=np.float64).reshape(3, 3)
        t = np.array(c[10:13], dtype=np.float64)
        assert c[13] == "PINHOLE", c[13]
        largura, altura = int(c[14]), int(c[15])
        fx, fy, cx, cy = (float(x) for x in c[16:20])
        vistas[c[0]] = (R, t, (largura, altura), (fx, fy, cx, cy))
    return vistas


def quaternio(R):
    # Shepperd's method, w first as COLMAP writes it.
    tr = np.trace(R)
    if tr > 0:
        s = 2 * np.sqrt(tr + 1)
        q = [s / 4, (R[2, 1] - R[1, 2]) / s, (R[0, 2] - R[2, 0]) / s, (R[1, 0] - R[0, 1]) / s]
    else:
        i = int(np.argmax(np.diag(R)))
        j, k = (i + 1) % 3, (i + 2) % 3
        s = 2 * np.sqrt(1 + R[i, i] - R[j, j] - R[k, k])
        q = [0.0] * 4
        q[0] = (R[k, j] - R[j, k]) / s
        q[1 + i] = s / 4
        q[1 + j] = (R[j, i] + R[i, j]) / s
        q[1 + k] = (R[k, i] + R[i, k]) / s
    return np.array(q)


def numeros(v):
    return " ".join(repr(float(x)) for x in np.ravel(v))


def main():
    cena, saida = sys.argv[1], sys.argv[2]
    vistas = le_vistas(cena)
    pares = [l.split() for l in open(os.path.join(cena, "pairs.txt")) if l.strip()]
    imagens = os.path.abspath(os.path.join(cena, "images"))
    for d in ("superglue", "colmap", "girada"):
        os.makedirs(os.path.join(saida, d), exist_ok=True)

    # COLMAP keeps the top-left pixel's centre at (0.5, 0.5): K of this
    # project's pixels has 0.5 less in cx and cy.
    def K(nome):
        fx, fy, cx, cy = vistas[nome][3]
        return np.array([[fx, 0, cx - 0.5], [0, fy, cy - 0.5], [0, 0, 1]])

    def T(n0, n1):
        R0, t0 = vistas[n0][:2]
        R1, t1 = vistas[n1][:2]
        M = np.eye(4)
        M[:3, :3] = R1 @ R0.T
        M[:3, 3] = t1 - R1 @ R0.T @ t0
        return M

    # Turned clockwise on disk, SuperGlue's rot = 1 turns it back. The stored
    # image's pixel (x', y') is (x, y) = (y', W' - 1 - x') of the original,
    # W' = the stored width; its camera frame is the original's by Q^T.
    Q = np.array([[0.0, 1, 0], [-1, 0, 0], [0, 0, 1]])
    with open(os.path.join(saida, "superglue", "pares.txt"), "w") as f, \
            open(os.path.join(saida, "superglue", "girada.txt"), "w") as g:
        for k, (n0, n1) in enumerate(pares):
            M = T(n0, n1)
            f.write(f"{n0} {n1} 0 0 {numeros(K(n0))} {numeros(K(n1))} {numeros(M)}\n")
            with open(os.path.join(saida, f"pose-{k + 1}.txt"), "w") as p:
                p.write(f"{numeros(K(n0))} {numeros(K(n1))} {numeros(M)}\n")
            img = cv2.imread(os.path.join(imagens, n1), cv2.IMREAD_UNCHANGED)
            girada = np.rot90(img, -1)
            nome = "girada-" + n1
            cv2.imwrite(os.path.join(saida, "girada", nome), girada)
            A = np.array([[0.0, 1, 0], [-1, 0, girada.shape[1] - 1], [0, 0, 1]])
            Ks = np.linalg.inv(A) @ K(n1) @ Q
            Ms = np.eye(4)
            Ms[:3, :3] = Q.T @ M[:3, :3]
            Ms[:3, 3] = Q.T @ M[:3, 3]
            cv2.imwrite(os.path.join(saida, "girada", n0), cv2.imread(os.path.join(imagens, n0), cv2.IMREAD_UNCHANGED))
            g.write(f"{n0} {nome} 0 1 {numeros(K(n0))} {numeros(Ks)} {numeros(Ms)}\n")

    colmap = os.path.join(saida, "colmap")
    with open(os.path.join(colmap, "cameras.txt"), "w") as c, open(os.path.join(colmap, "images.txt"), "w") as i:
        c.write("# CAMERA_ID MODEL WIDTH HEIGHT PARAMS[]\n")
        i.write("# IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID NAME\n# POINTS2D[] as (X, Y, POINT3D_ID)\n")
        for n, nome in enumerate(sorted(vistas)):
            R, t, (largura, altura), params = vistas[nome]
            c.write(f"{n + 1} PINHOLE {largura} {altura} {numeros(params)}\n")
            i.write(f"{n + 1} {numeros(quaternio(R))} {numeros(t)} {n + 1} {nome}\n\n")
    with open(os.path.join(colmap, "pairs.txt"), "w") as f:
        for n0, n1 in pares:
            f.write(f"{n0} {n1}\n")
    if not os.path.exists(os.path.join(colmap, "images")):
        os.symlink(imagens, os.path.join(colmap, "images"))


if __name__ == "__main__":
    main()
