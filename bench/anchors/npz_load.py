"""numpy.load anchor of the .npz benchmark (bench/npz_bench.cpp): times
numpy.load(f)["descriptors"] on the files that benchmark reads, a 1,000,000 x
128 float32 array as np.savez (guardado.npz) and np.savez_compressed
(comprimido.npz) write it, and writes them first when they are missing.

    /usr/bin/python3 npz_load.py [pasta] [repeticoes]    (/tmp/quivelar-npz, 7)
    /usr/bin/python3 npz_load.py --escreve [pasta]       only writes the files

The values are uniform in [0, 1), as a learned float descriptor's: they
hardly compress, so the compressed file times inflating, not a short cut.
"""
import os
import statistics
import sys
import time

import numpy as np

ARQUIVOS = ("guardado.npz", "comprimido.npz")


def escreve(pasta):
    os.makedirs(pasta, exist_ok=True)
    if all(os.path.exists(os.path.join(pasta, a)) for a in ARQUIVOS):
        return
    d = np.random.default_rng(0).random((1000000, 128), dtype=np.float32)
    # A name beside the target, renamed once complete: a killed run leaves no half file.
    for nome, grava in zip(ARQUIVOS, (np.savez, np.savez_compressed)):
        final = os.path.join(pasta, nome)
        with open(final + ".tmp", "wb") as f:
            grava(f, descriptors=d)
        os.replace(final + ".tmp", final)


def main():
    if sys.argv[1:2] == ["--escreve"]:
        escreve(sys.argv[2] if len(sys.argv) > 2 else "/tmp/quivelar-npz")
        return
    pasta = sys.argv[1] if len(sys.argv) > 1 else "/tmp/quivelar-npz"
    repeticoes = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    escreve(pasta)
    for nome in ARQUIVOS:
        caminho = os.path.join(pasta, nome)
        tempos = []
        for _ in range(repeticoes):
            inicio = time.perf_counter()
            with np.load(caminho) as f:
                d = f["descriptors"]
            tempos.append(time.perf_counter() - inicio)
            if d.shape != (1000000, 128) or d.dtype != np.float32:
                sys.exit("leu outra coisa de " + caminho)
        print("numpy.load %s: mediana %.1f ms, minimo %.1f ms (%d vezes)"
              % (nome, 1000 * statistics.median(tempos), 1000 * min(tempos), repeticoes))


main()
