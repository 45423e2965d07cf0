#!/usr/bin/env bash
# Regression-test workers: 100 copies of kelcmd running `delay 0` against 100 starts of
# /bin/true, in the same run.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

cd "$(mktemp -d)"
trap 'rm -rf "$PWD"' EXIT
"$KEL_BENCH_BIN/workers_bench" "$KEL_BIN/kelcmd"
