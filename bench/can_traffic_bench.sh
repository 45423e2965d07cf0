#!/usr/bin/env bash
# CAN traffic through kelsim, each figure beside a raw loop that moves the same frames in
# the same run (build/bench/can_raw_bench):
#   send   kelcmd 'send 0x123:count*N' against one send() per frame
#   recv   kelcmd 'recv 0x123:count*N' against a loop that reads and checks the frames
#   extio  kelcmd 'send 0x123:EXTIO:count*M' against a plain ping-pong
#   filt   kelcmd 'filt tst' over 2^29 identifiers against a plain loop, output to files
# Each measurement runs by turns with its baseline, $RUNS times (5; $RECV_RUNS, 25, for the
# short receiver runs); rates are the best of the runs, ratios the median of the turns.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

raw="$KEL_BENCH_BIN/can_raw_bench"
[ -x "$raw" ] || { echo "build first: $raw is missing" >&2; exit 1; }
frames=${FRAMES:-500000}
pings=${PINGS:-20000}
send_runs=${RUNS:-5}
runs=$send_runs
# A receiver run is short (tens of ms) and the most disturbed by other work: more turns.
recv_runs=${RECV_RUNS:-25}

start_kelsim
kelcmd() { "$KEL_BIN/kelcmd" -p"$base" "$@"; }

# The wall time in ns of one run of a command, its output to the file $out.
out=/dev/null
once_ns() {
  local start end
  start=$(now_ns)
  "$@" >"$out"
  end=$(now_ns)
  echo $((end - start))
}

# A receiver started first on channel 2, then a feeder that blasts the frames into channel
# 0: the wall time from the feeder's start to the receiver's end.
receive_ns() {
  local start end pid
  "$@" >/dev/null &
  pid=$!
  "$raw" clients $((base + 1)) 1
  start=$(now_ns)
  "$raw" blast "$base" "$frames"
  wait "$pid"
  end=$(now_ns)
  echo $((end - start))
}

# Runs the kelcmd measurement and the baseline measurement by turns, $runs times each.
# Sets kel and base_ns to the best time of each, and pair_ratio to the median of the
# ratios baseline time / kelcmd time of the turns: a turn's two runs meet the same load,
# so the median of their ratios is what a busy machine disturbs least.
# Usage: turns MEASURE KEL_OUT BASE_OUT kelcmd-command... -- baseline-command...
turns() {
  local measure=$1 kel_out=$2 base_out=$3 i k b
  shift 3
  local -a kel_cmd=() base_cmd=()
  while [ "$1" != "--" ]; do kel_cmd+=("$1"); shift; done
  shift
  base_cmd=("$@")
  : >"$tmp/turns"
  for ((i = 0; i < runs; i++)); do
    k=$(out=$kel_out $measure "${kel_cmd[@]}")
    b=$(out=$base_out $measure "${base_cmd[@]}")
    echo "$k $b" >>"$tmp/turns"
  done
  kel=$(sort -n -k1,1 "$tmp/turns" | awk 'NR == 1 { print $1 }')
  base_ns=$(sort -n -k2,2 "$tmp/turns" | awk 'NR == 1 { print $2 }')
  pair_ratio=$(awk '{ printf "%.6f\n", $2 / $1 }' "$tmp/turns" | sort -g |
    awk '{ r[NR] = $1 } END { printf "%.2f", (NR % 2) ? r[(NR + 1) / 2] : (r[NR / 2] + r[NR / 2 + 1]) / 2 }')
}

per_s() { awk -v n="$1" -v ns="$2" 'BEGIN { printf "%d", n * 1e9 / ns }'; }
report() {  # name unit count target
  printf '%s: kelcmd %s %s/s, raw loop %s %s/s (best of %d), ratio %s (target >= %s)\n' "$1" \
    "$(per_s "$3" "$kel")" "$2" "$(per_s "$3" "$base_ns")" "$2" "$runs" "$pair_ratio" "$4"
}

turns once_ns /dev/null /dev/null "$KEL_BIN/kelcmd" -p"$base" -c0 "send 0x123:count*$frames" -- \
  "$raw" send "$base" "$frames"
report "send $frames" frames "$frames" 0.85

runs=$recv_runs
turns receive_ns /dev/null /dev/null "$KEL_BIN/kelcmd" -p"$base" -c2 "recv 0x123:count*$frames" \
  -- "$raw" recv $((base + 2)) "$frames"
report "recv $frames" frames "$frames" 0.85
runs=$send_runs

turns once_ns /dev/null /dev/null "$KEL_BIN/kelcmd" -p"$base" -c0 \
  "send 0x123:EXTIO:count*$pings" -- "$raw" ping "$base" "$pings"
report "extio $pings" "round trips" "$pings" 0.8

kelcmd -c0 "filt set IDE=1,AM=0x1FFF0000,AR=0x120000" >/dev/null
turns once_ns "$tmp/kelcmd.txt" "$tmp/raw.txt" "$KEL_BIN/kelcmd" -p"$base" -c0 "filt tst" -- \
  "$raw" filter 0x1FFF0000 0x120000
cmp -s "$tmp/kelcmd.txt" "$tmp/raw.txt" || echo "filt tst: the listings differ" >&2
printf 'filt tst 2^29 ids, 2^16 matches: kelcmd %d ms, plain loop %d ms (best of %d), ratio %s (target <= 1.2)\n' \
  $((kel / 1000000)) $((base_ns / 1000000)) "$runs" "$(awk -v r="$pair_ratio" 'BEGIN { printf "%.2f", 1 / r }')"
