"""Writes into a folder the other programs' files the bad-input suite feeds the
tools, each made by NumPy, h5py or zipfile the way a broken or hostile
producer would make it, for images of 64 x 64 pixels:
    z_<case>.npz   D2-Net features      f_<case>.h5   hloc features (images a, b)
    s_<case>.npz   SuperGlue matches
"bom" is the good file of each kind; every other case must end a tool with
one error line naming the file.

    python3 hostis_gera.py PASTA
"""
import io
import os
import sys
import zipfile

import h5py
import numpy as np

pasta = sys.argv[1]
xy = np.array([[16 + 6 * i, 20 + 4 * i] for i in range(6)], np.float32)
d = np.random.default_rng(1).random((6, 16), dtype=np.float32)
s = np.linspace(1, 0.5, 6, dtype=np.float32)


def npy(arranjo):
    b = io.BytesIO()
    np.save(b, arranjo, allow_pickle=True)
    return b.getvalue()


def npz(nome, membros, metodo=zipfile.ZIP_STORED):
    with zipfile.ZipFile(os.path.join(pasta, nome), "w", metodo) as z:
        for k, v in membros.items():
            z.writestr(k + ".npy", v if isinstance(v, bytes) else npy(v))


def com(**troca):
    m = {"keypoints": xy, "descriptors": d, "scores": s}
    m.update(troca)
    return {k: v for k, v in m.items() if v is not None}


# A header that says one shape over data of another.
def cabecalho(descr, forma, dados):
    texto = "{'descr': '%s', 'fortran_order': False, 'shape': %s, }" % (descr, forma)
    texto += " " * (63 - (10 + len(texto)) % 64) + "\n"
    return b"\x93NUMPY\x01\x00" + len(texto).to_bytes(2, "little") + texto.encode() + dados


nan = xy.copy()
nan[2, 1] = np.nan
inf = d.copy()
inf[1, 3] = np.inf
casos = {
    "bom": com(),
    "bomba": com(keypoints=cabecalho("<f4", "(6, 2)", bytes(48 + 50_000_000))),
    "formaGigante": com(descriptors=cabecalho("<f4", "(100000000, 128)", bytes(64))),
    "formaErrada": com(keypoints=cabecalho("<f4", "(8, 2)", xy.tobytes())),
    "objeto": com(keypoints=np.array([xy[0], "x"], dtype=object)),
    "nan": com(keypoints=nan),
    "infinito": com(descriptors=inf),
    "contagem": com(descriptors=d[:5]),
    "semKeypoints": com(keypoints=None),
    "rank3": com(keypoints=xy.reshape(6, 2, 1)),
    "bigEndian": com(keypoints=xy.astype(">f4")),
    "texto": com(keypoints=np.array(["a", "b"])),
}
for nome, membros in casos.items():
    npz("z_%s.npz" % nome, membros, zipfile.ZIP_DEFLATED if nome == "bomba" else zipfile.ZIP_STORED)
bom = open(os.path.join(pasta, "z_bom.npz"), "rb").read()
open(os.path.join(pasta, "z_truncado.npz"), "wb").write(bom[: len(bom) // 2])


def h5(nome, a=None, **troca):
    with h5py.File(os.path.join(pasta, nome), "w") as f:
        for img in ("a", "b"):
            if img == "a" and a == "sem":
                continue
            m = {"keypoints": xy, "descriptors": d.T, "scores": s}
            if img == "a":
                m.update(troca)
            for k, v in m.items():
                if v is not None:
                    f.create_dataset(img + "/" + k, data=v)


h5("f_bom.h5")
h5("f_semGrupo.h5", a="sem")
h5("f_semKeypoints.h5", keypoints=None)
h5("f_nan.h5", keypoints=nan)
h5("f_contagem.h5", descriptors=d[:5].T)
h5("f_rank3.h5", keypoints=xy.reshape(6, 2, 1))
bom = open(os.path.join(pasta, "f_bom.h5"), "rb").read()
open(os.path.join(pasta, "f_truncado.h5"), "wb").write(bom[: len(bom) // 2])
open(os.path.join(pasta, "f_naoHdf5.h5"), "wb").write(b"\x89HDF\r\n\x1a\n" + b"\x00" * 100)
# The root group's local heap address (h5py's default, the oldest file
# format: a fixed place) set to "undefined": libhdf5 1.10 reads out of
# bounds and dies by a signal on any access.
danificado = bytearray(bom)
danificado[0x80:0x88] = b"\xff" * 8
open(os.path.join(pasta, "f_enderecoIndefinido.h5"), "wb").write(bytes(danificado))

m = np.array([0, 1, -1, 3, 4, -1], np.int64)
c = np.linspace(0.9, 0.4, 6).astype(np.float32)
sg = {
    "bom": {"keypoints0": xy, "keypoints1": xy, "matches": m, "match_confidence": c},
    "indiceFora": {"keypoints0": xy, "keypoints1": xy, "matches": np.array([0, 1, 99, 3, 4, -1]),
                   "match_confidence": c},
    "confiancaNan": {"keypoints0": xy, "keypoints1": xy, "matches": m,
                     "match_confidence": np.where(m == 1, np.nan, c).astype(np.float32)},
    "contagem": {"keypoints0": xy, "keypoints1": xy, "matches": m[:4], "match_confidence": c[:4]},
}
for nome, membros in sg.items():
    npz("s_%s.npz" % nome, membros)
