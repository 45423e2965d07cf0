#!/usr/bin/env bash
# Runs the benchmarks: every bench/<name>_bench.sh, or the names given
# (bench/run.sh startup). Each prints its figures beside a baseline measured in the same
# run, and the ratio between them; the machine's load average (1, 5 and 15 minutes) is
# shown before and after each, since other work on the machine moves every figure.
set -euo pipefail
cd "$(dirname "$0")"
if [ $# -eq 0 ]; then
  set -- $(ls *_bench.sh | sed 's/_bench\.sh$//')
fi
load() { cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown; }
for name in "$@"; do
  echo "== $name (load average $(load))"
  bash "./${name}_bench.sh"
  echo "-- $name done (load average $(load))"
done
