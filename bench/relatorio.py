"""Turns what scripts/bench-tools measured (in the folder given) into
bench/RESULTS.md on standard output: machine, commands, medians, ratios
against the anchors and against the targets."""
import json
import os
import statistics
import sys

pasta = sys.argv[1]


def caminho(nome):
    return os.path.join(pasta, nome)


def hyperfine(nome):
    with open(caminho("hf-%s.json" % nome)) as f:
        return {r["command"]: r for r in json.load(f)["results"]}


def ms(s):
    return s * 1000.0


def sim(ok):
    return "**sim**" if ok else "**nao**"


def tabela(cabeca, linhas):
    out = ["| " + " | ".join(cabeca) + " |", "|" + "---|" * len(cabeca)]
    out += ["| " + " | ".join(str(c) for c in linha) + " |" for linha in linhas]
    return "\n".join(out)


def sem_pasta(texto):
    return texto.replace(pasta, "$tmp")


maquina = dict(l.rstrip("\n").split("=", 1) for l in open(caminho("maquina.txt")))
partida = hyperfine("partida")
keysift = hyperfine("keysift")
matnn = hyperfine("matnn")
matnn_python = hyperfine("matnn-python")
keyrep = hyperfine("keyrep")
efd_ms = float(open(caminho("keyrep-dentro.txt")).read().split("=")[1])
cadeia_hf = hyperfine("cadeia")

saida = []
p = saida.append
p("# Medidas de desempenho")
p("")
p("Gerado por `scripts/bench-tools` (nao editar a mao). Tempos de processo inteiro com hyperfine "
  "(%s execucoes por comando apos 3 de aquecimento, sem shell; mediana em ms); cada comando ao lado da sua "
  "ancora, medidos na mesma execucao." % maquina["runs"])
p("")
p(tabela(["maquina", ""], [
    ["CPU", maquina["maquina"]], ["memoria", maquina["memoria"]], ["kernel", maquina["kernel"]],
    ["OpenCV", maquina["opencv"]], ["Python", maquina["python"]], ["hyperfine", maquina["hyperfine"]],
    ["huge pages transparentes", maquina["thp"]], ["commit", maquina["commit"]], ["data", maquina["data"]],
    ["carga (1, 5, 15 min)", maquina["carga"]]]))
p("")
p("A carga vem de outros processos na mesma maquina (compilacoes); com carga acima do numero de nucleos os "
  "tempos absolutos sobem, as razoes medidas na mesma execucao valem mais.")


def grupo(titulo, resultados, ancora):
    base = resultados[ancora]["median"]
    linhas = []
    for nome, r in resultados.items():
        linhas.append([nome, "%.1f" % ms(r["median"]), "%.1f" % ms(r["stddev"] or 0.0), "%.2f" % (r["median"] / base)])
    p("")
    p("## " + titulo)
    p("")
    p(tabela(["comando", "mediana ms", "desvio ms", "razao / " + ancora], linhas))


grupo("Partida", partida, "vazio: core imgproc features2d imgcodecs highgui")
grupo("KeySift em data/img1.png", keysift, "C++ minimo")
grupo("MatNN em dois stores SIFT de 5000 keypoints", matnn, "C++ minimo")
grupo("MatNN nos mesmos stores gravados pelo cv2.FileStorage do Python (YAML)", matnn_python, "C++ minimo")
grupo("KeyRep num par pequeno: 2400 e 1500 keypoints SIFT de graf 1 e 3", keyrep,
      "C++ minimo (evaluateFeatureDetector)")
p("")
p("So a chamada a `cv::evaluateFeatureDetector` dentro do processo da ancora (melhor de 15): %.1f ms." % efd_ms)

# Page faults: median of three runs per step and build.
faltas = {}
for linha in open(caminho("faltas.txt")):
    versao, i, nome, f, e, m = linha.split()
    faltas.setdefault((int(i), nome), {}).setdefault(versao, []).append((int(f), float(e), int(m)))
cadeia = [l.strip() for l in open(caminho("cadeia.txt"))]


def mediana(amostras, k):
    return statistics.median(a[k] for a in amostras)


linhas = []
soma = {"com": [0, 0.0], "sem": [0, 0.0]}
for (i, nome), v in sorted(faltas.items()):
    c, s = v["com"], v["sem"]
    for versao, amostras in (("com", c), ("sem", s)):
        soma[versao][0] += mediana(amostras, 0)
        soma[versao][1] += mediana(amostras, 1)
    linhas.append([sem_pasta(cadeia[i]), "%d" % mediana(s, 0), "%d" % mediana(c, 0),
                   "%.2f" % mediana(s, 1), "%.2f" % mediana(c, 1), "%d" % (mediana(c, 2) // 1024)])
linhas.append(["**cadeia inteira**", "%d" % soma["sem"][0], "%d" % soma["com"][0], "%.2f" % soma["sem"][1],
               "%.2f" % soma["com"][1], ""])
p("")
p("## Faltas de pagina por ferramenta (cadeia do demo)")
p("")
p("`/usr/bin/time -f %R`, mediana de 3 execucoes. \"sem\": o mesmo programa compilado com "
  "`-DQUIVELAR_HEAP_RETIDO_FORCADO=0` (nenhuma ferramenta com a alavanca de memoria); \"com\": o programa "
  "normal, a alavanca so nas ferramentas em que compensa (app/comandos.cpp). "
  "Tempo de parede em s com resolucao de 10 ms.")
p("")
p(tabela(["passo", "faltas sem", "faltas com", "s sem", "s com", "MiB max com"], linhas))
faltas_cadeia = (soma["sem"][0], soma["com"][0])
tempo_cadeia = (soma["sem"][1], soma["com"][1])

# Own descriptors.
with open(caminho("descritores.json")) as f:
    bench = json.load(f)["benchmarks"]
desc = {}
for b in bench:
    if b.get("aggregate_name") != "median":
        continue
    nome, threads = b["run_name"].split("/")[:2]
    desc.setdefault(nome.replace("BM_Descreve_", ""), {})[threads.split(":")[1]] = b["real_time"]
sift = desc["Sift"]
linhas = []
proprios_ok = True
for nome in ["Sift", "Surf", "SimpleCopy", "SimpleInplace", "Riff", "Rihog", "Ruhog", "Forapro"]:
    t = desc[nome]
    razao = t["0"] / sift["0"]
    if nome not in ("Sift", "Surf"):
        proprios_ok = proprios_ok and razao <= 1.0
    linhas.append([nome, "%.1f" % t["1"], "%.1f" % t["0"], "%.2f" % (t["1"] / sift["1"]), "%.2f" % razao])
p("")
p("## Descritores nos mesmos 1000 keypoints SIFT de data/img1.png")
p("")
p("`quivelar_bench --benchmark_filter=^BM_Descreve_`, mediana de 3 repeticoes, tempo real em ms do compute() "
  "(1 thread e o numero de threads padrao da maquina).")
p("")
p(tabela(["descritor", "1 thread ms", "padrao ms", "razao / SIFT 1 thread", "razao / SIFT padrao"], linhas))

# Store input and output: our readers and writers, warm, in one process.
es = {}
for linha in open(caminho("es.txt")):
    arquivo, le, grava = linha.split()
    es[arquivo] = (float(le), float(grava))


o = caminho("cadeia")
fatias = [
    ("KeySift data/img1.png", es[caminho("k-tool.xml")][1], ms(keysift["quivelar KeySift"]["median"]),
     "grava o store de keypoints"),
    ("DesSift (cadeia, img1)", es[o + "/k1.xml"][0] + es[o + "/d1.xml"][1],
     ms(cadeia_hf["quivelar DesSift (cadeia, img1)"]["median"]),
     "le keypoints, grava descritores"),
    ("MatNN 5000 x 5000", es[caminho("d5000-1.xml")][0] + es[caminho("d5000-2.xml")][0] + es[caminho("m-tool.txt")][1],
     ms(matnn["quivelar MatNN"]["median"]), "le dois stores, grava o arquivo de casamentos"),
    ("FiltMat (cadeia)", es[o + "/nn.txt"][0], ms(cadeia_hf["quivelar FiltMat (cadeia)"]["median"]),
     "le o arquivo de casamentos"),
]
linhas = []
fatia_max = 0.0
for nome, es_ms, total_ms, oque in fatias:
    fatia = es_ms / total_ms
    fatia_max = max(fatia_max, fatia)
    linhas.append([nome, oque, "%.1f" % es_ms, "%.1f" % total_ms, "%.0f%%" % (100 * fatia)])
p("")
p("## Parte da leitura e gravacao de stores")
p("")
p("Leitura e gravacao medidas com `es_stores` (nossas funcoes, mediana de 5, processo ja aquecido) nos arquivos "
  "que as ferramentas escreveram; total = mediana da ferramenta inteira (hyperfine).")
p("")
p(tabela(["ferramenta", "E/S", "E/S ms", "total ms", "parte"], linhas))
p("")
p(tabela(["arquivo", "leitura ms", "gravacao ms"],
         [[sem_pasta(a), "%.1f" % v[0], "%.1f" % v[1]] for a, v in sorted(es.items())
          if not a.endswith((".png", ".bmp"))]))

# The fixed costs of a small job, each from the runs above.
kr = ms(keyrep["quivelar KeyRep (PNG: so o cabecalho)"]["median"])
kr_bmp = ms(keyrep["quivelar KeyRep (BMP: plug-in e imagem inteira)"]["median"])
partida_kr = ms(partida["quivelar keyrep (uso)"]["median"])
stores_kr = es[caminho("k2400.xml")][0] + es[caminho("k1500.xml")][0]
tamanho_png = es["data/img1.png"][0] + es["data/img3.png"][0]
decodifica_png = es["data/img1.png"][1] + es["data/img3.png"][1]
p("")
p("## Custos fixos de uma execucao")
p("")
p("O que uma ferramenta paga antes e em volta do seu trabalho, no KeyRep acima (%.1f ms no total)." % kr)
p("")
p(tabela(["custo", "ms", "de onde"], [
    ["partida: carregar o programa e as bibliotecas do OpenCV que ele liga (core, imgproc, features2d)",
     "%.1f" % partida_kr, "`quivelar keyrep` sem argumentos (erro de uso)"],
    ["tamanho de duas imagens PNG pelo cabecalho", "%.2f" % tamanho_png,
     "`es_stores`: `tvm::tamanho` (IHDR e os cabecalhos dos blocos)"],
    ["(se decodificasse as duas PNG inteiras)", "%.1f" % decodifica_png, "`es_stores`: `tvm::le`"],
    ["plug-in de codecs (imgcodecs) e as duas imagens BMP inteiras", "%.1f" % (kr_bmp - kr + tamanho_png),
     "KeyRep em BMP menos KeyRep em PNG, mais o cabecalho"],
    ["leitura dos dois stores de keypoints", "%.1f" % stores_kr, "`es_stores`, processo aquecido"],
    ["a medida (repetibilidade) e o resto", "%.1f" % (kr - partida_kr - stores_kr - tamanho_png),
     "o total menos partida, cabecalhos e stores"],
]))

# Targets.
vazio = partida["vazio: core imgproc features2d imgcodecs highgui"]["median"]
pior_partida = max(r["median"] for n, r in partida.items() if n.startswith("quivelar"))
k = keysift["quivelar KeySift"]["median"]
m = matnn["quivelar MatNN"]["median"]
mp = matnn_python["quivelar MatNN"]["median"] / matnn_python["C++ minimo"]["median"]
metas = [
    ["partida de uma ferramenta sem imagem <= 0.3 x vazio com imgcodecs+highgui", "%.2f" % (pior_partida / vazio),
     sim(pior_partida / vazio <= 0.3)],
    ["KeySift <= 0.8 x C++ minimo", "%.2f" % (k / keysift["C++ minimo"]["median"]),
     sim(k / keysift["C++ minimo"]["median"] <= 0.8)],
    ["KeySift < Python", "%.2f" % (k / keysift["Python"]["median"]), sim(k < keysift["Python"]["median"])],
    ["MatNN <= 0.8 x C++ minimo", "%.2f" % (m / matnn["C++ minimo"]["median"]),
     sim(m / matnn["C++ minimo"]["median"] <= 0.8)],
    ["MatNN < Python", "%.2f" % (m / matnn["Python"]["median"]), sim(m < matnn["Python"]["median"])],
    ["MatNN em stores do Python (YAML) <= 0.5 x C++ minimo", "%.2f" % mp, sim(mp <= 0.5)],
    ["SIMPLE, RIFF, RIHOG, RUHOG, Forapro <= DesSift (threads padrao)",
     "%.2f (pior)" % max(desc[n]["0"] / sift["0"] for n in ["SimpleCopy", "SimpleInplace", "Riff", "Rihog", "Ruhog",
                                                          "Forapro"]), sim(proprios_ok)],
    ["faltas de pagina da cadeia: com / sem alavancas", "%d / %d = %.2f" % (faltas_cadeia[1], faltas_cadeia[0],
                                                                      faltas_cadeia[1] / faltas_cadeia[0]),
     sim(faltas_cadeia[1] < faltas_cadeia[0])],
    ["tempo da cadeia: com / sem alavancas", "%.2f s / %.2f s" % (tempo_cadeia[1], tempo_cadeia[0]),
     sim(tempo_cadeia[1] < tempo_cadeia[0])],
    ["KeyRep num par pequeno <= 0.3 x evaluateFeatureDetector dentro do processo", "%.2f" % (kr / efd_ms),
     sim(kr / efd_ms <= 0.3)],
    ["E/S de stores nunca domina (< 50%)", "%.0f%% (maior)" % (100 * fatia_max), sim(fatia_max < 0.5)],
]
p("")
p("## Metas")
p("")
p(tabela(["meta", "medido", "cumprida"], metas))
p("")
p("## Comandos")
p("")
p("Os medidos com hyperfine (`$tmp` e a pasta temporaria do script; os stores de 5000 keypoints sao "
  "KeySift ... 5000 3 e DesSift nas imagens 1|3 e 2|4 lado a lado):")
p("")
p("```")
for linha in open(caminho("comandos.txt")):
    p(sem_pasta(linha.rstrip("\n")))
p("```")
print("\n".join(saida))
