#!/usr/bin/env bash
# CAN traffic through kelsim, each figure beside a raw loop that moves the same frames in
# the same run (build/bench/can_raw_bench):
#   send   kelcmd 'send 0x123:count*N' against one send() per frame
#   recv   kelcmd 'recv 0x123:count*N' against a loop that reads and checks the frames
#   extio  kelcmd 'send 0x123:EXTIO:count*M' against a plain ping-pong
#   filt   kelcmd 'filt tst' over 2^29 identifiers against a plain loop, output to files
# Every figure is the best of $RUNS runs (5), taken by turns with its baseline, so that a
# busy machine disturbs both alike.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

raw="$KEL_BENCH_BIN/can_raw_bench"
[ -x "$raw" ] || { echo "build first: $raw is missing" >&2; exit 1; }
frames=${FRAMES:-500000}
pings=${PINGS:-20000}
runs=${RUNS:-5}

tmp=$(mktemp -d)
kelsim_pid=
cleanup() {
  if [ -n "$kelsim_pid" ]; then
    kill "$kelsim_pid" 2>/dev/null || true
    wait "$kelsim_pid" 2>/dev/null || true
  fi
  rm -rf "$tmp"
}
trap cleanup EXIT

"$KEL_BIN/kelsim" --port 0 >"$tmp/kelsim.out" 2>&1 &
kelsim_pid=$!
for _ in $(seq 200); do grep -q ' ports ' "$tmp/kelsim.out" && break; sleep 0.05; done
base=$(sed -n 's/.* ports \([0-9]*\)-.*/\1/p' "$tmp/kelsim.out")
[ -n "$base" ] || { echo "kelsim did not start" >&2; exit 1; }
kelcmd() { "$KEL_BIN/kelcmd" -p"$base" "$@"; }

# The wall time in ns of one run of a command, its output to $out.
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

# Runs the kelcmd measurement and the baseline measurement by turns, $runs times each, and
# sets kel and base_ns to the best of each: a busy machine disturbs both alike.
best_of_turns() {  # measure kelcmd-command -- baseline-command
  local measure=$1 t i
  shift
  local -a kel_cmd=() base_cmd=()
  while [ "$1" != "--" ]; do kel_cmd+=("$1"); shift; done
  shift
  base_cmd=("$@")
  kel=0
  base_ns=0
  for ((i = 0; i < runs; i++)); do
    t=$($measure "${kel_cmd[@]}")
    if ((kel == 0 || t < kel)); then kel=$t; fi
    t=$($measure "${base_cmd[@]}")
    if ((base_ns == 0 || t < base_ns)); then base_ns=$t; fi
  done
}

per_s() { awk -v n="$1" -v ns="$2" 'BEGIN { printf "%d", n * 1e9 / ns }'; }
report() {  # name unit count kel_ns raw_ns target
  printf '%s: kelcmd %s %s/s, raw loop %s %s/s, ratio %s (target >= %s)\n' "$1" \
    "$(per_s "$3" "$4")" "$2" "$(per_s "$3" "$5")" "$2" "$(ratio "$5" "$4")" "$6"
}

best_of_turns once_ns "$KEL_BIN/kelcmd" -p"$base" -c0 "send 0x123:count*$frames" -- \
  "$raw" send "$base" "$frames"
report "send $frames" frames "$frames" "$kel" "$base_ns" 0.85

best_of_turns receive_ns "$KEL_BIN/kelcmd" -p"$base" -c2 "recv 0x123:count*$frames" -- \
  "$raw" recv $((base + 2)) "$frames"
report "recv $frames" frames "$frames" "$kel" "$base_ns" 0.85

best_of_turns once_ns "$KEL_BIN/kelcmd" -p"$base" -c0 "send 0x123:EXTIO:count*$pings" -- \
  "$raw" ping "$base" "$pings"
report "extio $pings" "round trips" "$pings" "$kel" "$base_ns" 0.8

kelcmd -c0 "filt set IDE=1,AM=0x1FFF0000,AR=0x120000" >/dev/null
kel=0
base_ns=0
for ((i = 0; i < runs; i++)); do
  out="$tmp/kelcmd.txt"
  t=$(once_ns kelcmd -c0 "filt tst")
  if ((kel == 0 || t < kel)); then kel=$t; fi
  out="$tmp/raw.txt"
  t=$(once_ns "$raw" filter 0x1FFF0000 0x120000)
  if ((base_ns == 0 || t < base_ns)); then base_ns=$t; fi
done
cmp -s "$tmp/kelcmd.txt" "$tmp/raw.txt" || echo "filt tst: the listings differ" >&2
printf 'filt tst 2^29 ids, 2^16 matches: kelcmd %d ms, plain loop %d ms, ratio %s (target <= 1.2)\n' \
  $((kel / 1000000)) $((base_ns / 1000000)) "$(ratio "$kel" "$base_ns")"
