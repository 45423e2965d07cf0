#!/usr/bin/env bash
# Runs the benchmarks: every bench/<name>_bench.sh, or the names given
# (bench/run.sh startup). Each prints its figures beside a baseline measured in the same
# run, and the ratio between them.
set -euo pipefail
cd "$(dirname "$0")"
if [ $# -eq 0 ]; then
  set -- $(ls *_bench.sh | sed 's/_bench\.sh$//')
fi
for name in "$@"; do
  echo "== $name"
  bash "./${name}_bench.sh"
done
