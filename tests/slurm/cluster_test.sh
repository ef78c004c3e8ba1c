#!/usr/bin/env bash
# A sharded sweep on a real one-node Slurm cluster: the 4-shard job array and
# its dependent merge (scripts/slurm/submete) give the unsharded sweep's tables
# byte for byte; a shard cancelled mid-run leaves the merge refusing and naming
# it, and submitted again alone makes the merge whole and identical again.
#
#   cluster_test.sh QUIVELAR SOURCE_DIR        (exit 77: skipped, no Slurm here)
set -euo pipefail
q=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
raiz=$(cd "$2" && pwd)
if ! command -v slurmctld >/dev/null && [ ! -x /usr/sbin/slurmctld ]; then
  echo "SKIP: slurmctld nao instalado (scripts/install-deps instala slurmctld, slurmd, slurm-client, munge)"
  exit 77
fi

tmp=$(mktemp -d /tmp/quivelar-slurm.XXXXXX)
cluster="$tmp/cluster"
trap '"$raiz/scripts/slurm/cluster-local" stop "$cluster"; rm -rf "$tmp"' EXIT
falha() { echo "FALHA: $*" >&2; for f in "$tmp"/o*/slurm/*.out; do [ -f "$f" ] && { echo "--- $f" >&2; cat "$f" >&2; }; done; exit 1; }

eval "$("$raiz/scripts/slurm/cluster-local" start "$cluster")"
export QUIVELAR="$q"
cd "$tmp"

# Three short sequences of graf's first view.
cp "$raiz/data/img1.png" fonte.png
"$q" SeqSint fonte.png ds/v_giro n=4 rotacao=40 escala=1.3 >/dev/null
"$q" SeqSint fonte.png ds/v_vista n=4 vista=40 >/dev/null
"$q" SeqSint fonte.png ds/i_luz n=4 brilho=-50 ruido=3 seed=5 >/dev/null
opcoes=(det=sift,fast des=sift,rihog mat=nn,ratio threads=1 sift.nfeatures=400 fast.limiar=50)

agora() { date +%s.%N; }
segundos() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f", b - a }'; }
# Waits (bounded) until squeue no longer lists the job.
espera() {
  for _ in $(seq 600); do
    [ -z "$(squeue -h -j "$1" 2>/dev/null)" ] && return 0
    sleep 0.2
  done
  falha "job $1 nao terminou em 120 s"
}
estado() { scontrol show job "$1" 2>/dev/null | grep -o 'JobState=[A-Z_]*' | head -1 | cut -d= -f2; }
iguais() {
  for t in resultados curvas; do
    cmp "um/$t.csv" "$1/$t.csv" || falha "$1/$t.csv difere da varredura sem fatias"
  done
  [ -s "$1/graficos/mma.svg" ] || falha "VarreJunta nao desenhou $1/graficos"
}

t0=$(agora)
"$q" Varre ds um "${opcoes[@]}" >/dev/null 2>&1 || falha "a varredura sem fatias falhou"
t1=$(agora)

# The whole array and its merge.
read -r vetor junta < <("$raiz/scripts/slurm/submete" 4 ds o4 "${opcoes[@]}")
[ -n "$junta" ] || falha "submete falhou"
espera "$junta"
t2=$(agora)
[ "$(estado "$junta")" = COMPLETED ] || falha "a juncao $junta terminou $(estado "$junta")"
iguais o4
echo "sem fatias, um processo: $(segundos "$t0" "$t1") s; 4 fatias no Slurm com a juncao: $(segundos "$t1" "$t2") s"

# Shard 3 cancelled while it runs: the merge never starts and refuses by hand.
read -r vetor junta < <("$raiz/scripts/slurm/submete" 4 ds oc "${opcoes[@]}")
[ -n "$junta" ] || falha "submete falhou"
for _ in $(seq 600); do
  case "$(estado "${vetor}_3")" in
    RUNNING) break ;;
    PENDING|CONFIGURING|"") sleep 0.05 ;;
    *) falha "a tarefa ${vetor}_3 terminou $(estado "${vetor}_3") antes de ser cancelada" ;;
  esac
done
scancel "${vetor}_3" || true
espera "$vetor"
[ "$(estado "${vetor}_3")" = CANCELLED ] || falha "a tarefa ${vetor}_3 nao foi cancelada: $(estado "${vetor}_3")"
scancel "$junta" 2>/dev/null || true
espera "$junta"
[ ! -e oc/resultados.csv ] || falha "a juncao rodou sem a fatia 3"
if "$q" VarreJunta oc >saida.txt 2>erro.txt; then falha "VarreJunta aceitou fatias faltando"; fi
grep -qx "Erro: faltam fatias em oc/fatias: 3/4" erro.txt || falha "mensagem: $(cat erro.txt)"

# Shard 3 again alone, then its merge.
read -r vetor junta < <(TAREFAS=3 "$raiz/scripts/slurm/submete" 4 ds oc "${opcoes[@]}")
[ -n "$junta" ] || falha "submete falhou"
espera "$junta"
[ "$(estado "$junta")" = COMPLETED ] || falha "a juncao $junta terminou $(estado "$junta")"
iguais oc
echo "OK: fatias juntadas iguais a varredura sem fatias, tambem apos cancelar e reenviar a fatia 3"
