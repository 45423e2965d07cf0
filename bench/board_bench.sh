#!/usr/bin/env bash
# The board link: transactions per second of the shell against a raw ping-pong, and the
# virtual board's intake from four clients at once.
#   transact_bench  `int 0` through the shell's executor against a blocking send-then-read
#                   loop, the virtual board in the same process
#   pipe            kelcmd as a whole process reading $LINES (20,000) `int 0` lines from a
#                   pipe, against kelsim, by turns with can_raw_bench's blocking loop: once
#                   with a connection of its own per transaction (kelcmd opens one per
#                   command line), once on one connection; $RUNS (5) turns each
set -euo pipefail
source "$(dirname "$0")/lib.sh"

"$KEL_BENCH_BIN/transact_bench"

raw="$KEL_BENCH_BIN/can_raw_bench"
lines=${LINES:-20000}
runs=${RUNS:-5}
start_kelsim
for ((i = 0; i < lines; i++)); do echo 'int 0'; done >"$tmp/lines.txt"
piped_kelcmd() { cat "$tmp/lines.txt" | "$KEL_BIN/kelcmd" -p"$base" -c0; }
for mode in intconn int; do
  turns once_ns /dev/null /dev/null piped_kelcmd -- "$raw" "$mode" "$base" "$lines"
  awk -v n="$lines" -v k="$kel" -v b="$base_ns" -v q="$pair_ratio" -v m="$mode" -v runs="$runs" 'BEGIN {
    printf "int 0 x %d from a pipe: kelcmd %d/s, raw loop (%s) %d/s (best of %d), ratio %s (target >= 0.80)\n",
      n, n * 1e9 / k, m == "int" ? "one connection" : "a connection per transaction", n * 1e9 / b, runs, q }'
done

"$KEL_BENCH_BIN/sim_bench" --benchmark_filter='FourClients' --benchmark_counters_tabular=true 2>/dev/null
