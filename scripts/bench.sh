#!/usr/bin/env bash
# Runs every benchmark and writes one table of results: bench/results/LATEST.md
# and LATEST.json (machine, date, commit, load, each figure with its peer and
# their ratio), and the figures with targets into README.md's performance
# section. Builds the bench preset first (build-bench/) and keeps the
# generated benchmark hosts in build-bench/bench-data between runs.
#
#   scripts/bench.sh [--quick] [--no-build] [--out DIR] [--name NAME]
#
# --quick: fewer runs and a smaller zdu tree, the same figures otherwise.
# A full run takes a few minutes once the hosts exist (the first run makes
# them, another few minutes). The benchmarks time single processes; other work
# on the machine disturbs them, which the table's load line records.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

quick=()
mode=full
build=1
out=$root/bench/results
name=LATEST
while [ $# -gt 0 ]; do
   case "$1" in
      --quick) quick=(--quick); mode=quick ;;
      --no-build) build=0 ;;
      --out) out=$2; shift ;;
      --name) name=$2; shift ;;
      *) echo "usage: scripts/bench.sh [--quick] [--no-build] [--out DIR] [--name NAME]" >&2; exit 2 ;;
   esac
   shift
done

bin=$root/build-bench
if [ "$build" = 1 ]; then
   cmake --preset bench >/dev/null
   cmake --build build-bench -j2
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

echo "load average: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"

# The Google Benchmark programs of the bench preset.
min_time=()
[ "$mode" = quick ] && min_time=(--benchmark_min_time=0.1)
results=()
for program in "$bin"/bin/*_bench; do
   echo "== $(basename "$program")"
   results+=("$scratch/$(basename "$program").json")
   "$program" "${min_time[@]}" --benchmark_out="${results[-1]}" --benchmark_out_format=json
done

# The whole-command scripts; each writes its figures for the report.
common=(--build "$bin" --cache "$bin/bench-data" "${quick[@]}")
for script in world/bench_ps.py world/bench_cartels.py pci/bench_lspci.py hostinfo/bench_uptime.py \
   memfs/bench_zdu.py capture/bench_capture.py zifcache/bench_diff.py; do
   echo "== $script"
   results+=("$scratch/$(basename "$script" .py).json")
   python3 "bench/$script" "${common[@]}" --json "${results[-1]}"
done

# The README shows the latest results of the tree's own table.
readme=()
[ "$out" = "$root/bench/results" ] && [ "$name" = LATEST ] && readme=(--readme "$root/README.md")
python3 bench/report.py --out "$out" --name "$name" --mode "$mode" "${readme[@]}" "${results[@]}"
echo "wrote $out/$name.md and $out/$name.json"
