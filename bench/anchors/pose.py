"""MatPose anchor in Python (Debian's python3-opencv and numpy): SuperGlue's
published evaluation of a pair (models/utils.py: estimate_pose,
compute_pose_error, compute_epipolar_error) on a match file and a pose file,
printed in MatPose's format so that a test can hold the two together.

    python3 pose.py casamentos.txt pose.txt [ransac=1] [metodo=ransac|magsac] [keys=k0.xml,k1.xml]
    python3 pose.py --lista LISTA [ransac=1] [metodo=ransac|magsac]

LISTA: one pair per line, "casamentos.txt pose.txt [keys=k0.xml,k1.xml]";
printed per pair, then SuperGlue's AUC at 5, 10 and 20 degrees over them.

pose.txt: 34 numbers, K0 (3x3) K1 (3x3) T_0to1 (4x4), row-major.
keys=: the keypoint stores the matches were made from. A match file keeps
seven significant digits of each coordinate; each match keypoint gets its
store keypoint's float back, so that the anchor sees what a sweep (which
never writes a match file) saw.
"""
import sys

import cv2
import numpy as np


def le_casamentos(arquivo):
    with open(arquivo) as f:
        linhas = f.read().splitlines()
    n = int(linhas[0].split()[0])
    campos = [l.split() for l in linhas[1:] if l.strip() and not l.lstrip().startswith("//")]
    if len(campos) != n:
        sys.exit("contagem errada em " + arquivo)
    # The program keeps keypoint coordinates in float.
    pontos = np.array([[c[1], c[2], c[8], c[9]] for c in campos], dtype=np.float32).reshape(-1, 4)
    return pontos[:, :2], pontos[:, 2:]


def le_store(arquivo):
    fs = cv2.FileStorage(arquivo, cv2.FILE_STORAGE_READ)
    no = fs.getNode("keypoints")
    v = np.array([no.at(i).real() for i in range(no.size())], dtype=np.float32).reshape(-1, 7)
    fs.release()
    return v[:, :2]


def restaura(pontos, store):
    # A match file prints each float with %e and six decimals.
    chave = lambda x, y: ("%.6e" % x, "%.6e" % y)
    exatos = {}
    for x, y in store:
        exatos.setdefault(chave(x, y), set()).add((float(x), float(y)))
    r = pontos.copy()
    for i, (x, y) in enumerate(pontos):
        achados = exatos.get(chave(x, y), set())
        if len(achados) == 1:
            r[i] = next(iter(achados))
    return r


def le_pose(arquivo):
    with open(arquivo) as f:
        v = np.array(f.read().split(), dtype=np.float64)
    if v.size != 34:
        sys.exit("esperava 34 numeros em " + arquivo)
    return v[:9].reshape(3, 3), v[9:18].reshape(3, 3), v[18:].reshape(4, 4)


def normaliza(pontos, K):
    return (pontos - K[[0, 1], [2, 2]][None]) / K[[0, 1], [0, 1]][None]


def estima_pose(k0, k1, K0, K1, limiar, metodo):
    if len(k0) < 5:
        return None
    f = np.mean([K0[0, 0], K1[1, 1], K0[0, 0], K1[1, 1]])  # the published mean
    n0, n1 = normaliza(k0, K0), normaliza(k1, K1)
    E, mascara = cv2.findEssentialMat(n0, n1, np.eye(3), threshold=limiar / f, prob=0.99999, method=metodo)
    if E is None:
        return None
    melhor, pose = 0, None
    # recoverPose narrows `mascara` in place, candidate after candidate.
    for candidato in np.split(E, len(E) / 3):
        n, R, t, _ = cv2.recoverPose(candidato, n0, n1, np.eye(3), 1e9, mask=mascara)
        if n > melhor:
            melhor, pose = n, (R, t[:, 0], n)
    return pose


def graus(cosseno):
    return np.rad2deg(np.abs(np.arccos(np.clip(cosseno, -1.0, 1.0))))


def erro_pose(T, R, t):
    et = graus(np.dot(t, T[:3, 3]) / (np.linalg.norm(t) * np.linalg.norm(T[:3, 3])))
    er = graus((np.trace(np.dot(R.T, T[:3, :3])) - 1) / 2)
    return er, min(et, 180 - et)


def distancia_epipolar(k0, k1, T, K0, K1):
    x0 = np.concatenate([normaliza(k0, K0), np.ones((len(k0), 1))], axis=1)
    x1 = np.concatenate([normaliza(k1, K1), np.ones((len(k1), 1))], axis=1)
    a, b, c = T[:3, 3]
    E = np.array([[0, -c, b], [c, 0, -a], [-b, a, 0]]) @ T[:3, :3]
    Ex0, Etx1 = x0 @ E.T, x1 @ E
    num = np.sum(x1 * Ex0, -1)
    with np.errstate(divide="ignore", invalid="ignore"):
        return num**2 * (1.0 / (Ex0[:, 0]**2 + Ex0[:, 1]**2) + 1.0 / (Etx1[:, 0]**2 + Etx1[:, 1]**2))


def texto(v):
    return "NA" if v is None else "%.6f" % v


def avalia(casamentos, arquivo_pose, opcoes):
    limiar = float(opcoes.get("ransac", 1))
    metodo = {"ransac": cv2.RANSAC, "magsac": cv2.USAC_MAGSAC}[opcoes.get("metodo", "ransac")]
    k0, k1 = le_casamentos(casamentos)
    if "keys" in opcoes:
        s0, s1 = opcoes["keys"].split(",")
        k0, k1 = restaura(k0, le_store(s0)), restaura(k1, le_store(s1))
    K0, K1, T = le_pose(arquivo_pose)
    pose = estima_pose(k0.astype(np.float64), k1.astype(np.float64), K0, K1, limiar, metodo)
    er = et = None
    if pose is not None:
        er, et = erro_pose(T, pose[0], pose[1])
    d = distancia_epipolar(k0.astype(np.float64), k1.astype(np.float64), T, K0, K1)
    precisao = [None if len(d) == 0 else np.mean(d < limite) for limite in (1e-4, 5e-4, 1e-3)]
    return len(k0), 0 if pose is None else pose[2], er, et, precisao


def auc(erros, limiares=(5, 10, 20)):
    """SuperGlue's pose_auc: recall against sorted error from (0, 0), cut at t
    by searchsorted, integrated by the trapezoid rule, over t."""
    e = np.r_[0.0, np.sort(np.nan_to_num(np.asarray(erros, dtype=np.float64), nan=np.inf))]
    r = np.r_[0.0, np.arange(1, len(erros) + 1) / len(erros)]
    saida = []
    for t in limiares:
        i = np.searchsorted(e, t)
        saida.append(np.trapz(np.r_[r[:i], r[i - 1]], x=np.r_[e[:i], t]) / t)
    return saida


def main():
    if len(sys.argv) >= 3 and sys.argv[1] == "--lista":
        # One pair per line: casamentos.txt pose.txt [keys=k0.xml,k1.xml];
        # one line per pair, then the AUC over all of them (no pose: +inf).
        opcoes = dict(a.split("=", 1) for a in sys.argv[3:])
        erros = []
        for linha in open(sys.argv[2]):
            c = linha.split()
            if not c:
                continue
            o = dict(opcoes, **dict(a.split("=", 1) for a in c[2:]))
            n, inliers, er, et, _ = avalia(c[0], c[1], o)
            erros.append(np.inf if er is None else max(er, et))
            print("%s matches=%d inliers=%d pose_error=%s" % (c[0], n, inliers, texto(None if er is None else erros[-1])))
        print("auc@5=%.6f auc@10=%.6f auc@20=%.6f" % tuple(auc(erros)))
        return
    if len(sys.argv) < 3:
        sys.exit("uso: pose.py casamentos.txt pose.txt [ransac=1] [metodo=ransac|magsac] [keys=k0.xml,k1.xml]\n"
                 "     pose.py --lista LISTA [ransac=1] [metodo=ransac|magsac]")
    n, inliers, er, et, precisao = avalia(sys.argv[1], sys.argv[2], dict(a.split("=", 1) for a in sys.argv[3:]))
    print("matches=%d inliers=%d" % (n, inliers))
    print("pose_error=%s rotation_error=%s translation_error=%s"
          % (texto(None if er is None else max(er, et)), texto(er), texto(et)))
    print("epipolar@1e-4=%s epipolar@5e-4=%s epipolar@1e-3=%s" % tuple(texto(p) for p in precisao))


main()
