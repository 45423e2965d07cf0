#!/usr/bin/env bash
# The board link: transactions per second of the shell against a raw ping-pong, and the
# virtual board's intake from four clients at once.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

"$KEL_BENCH_BIN/transact_bench"
"$KEL_BENCH_BIN/sim_bench" --benchmark_filter='FourClients' --benchmark_counters_tabular=true 2>/dev/null
