#!/usr/bin/env bash
# CAN traffic through kelsim, each figure beside a raw loop that moves the same frames in
# the same run (build/bench/can_raw_bench):
#   send   kelcmd 'send 0x123:count*N' against one send() per frame, for N of 50,000,
#          500,000 and 2,000,000 ($SEND_FRAMES)
#   recv   kelcmd 'recv 0x123:count*N' against a loop that reads and checks the frames
#          where they lie in its buffer: wall time, and processor time per million frames,
#          of the whole process at N and of the frames alone (the difference between runs
#          of $RECV_LONG_FRAMES, 4,000,000, and of N frames: start-up and end cancel out)
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

# A receiver started first on channel 2, then a feeder that blasts $frames frames into
# channel 0: the wall time from the feeder's start to the receiver's end.
# The wall time is the feeder's as much as the receiver's, so the receiver's processor
# time (in microseconds) goes to the file $tmp/cpu, a line per run.
receive_ns() {
  local start end pid
  cpu_us_to "$tmp/cpu.last" "$@" &
  pid=$!
  "$raw" clients $((base + 1)) 1
  start=$(now_ns)
  "$raw" blast "$base" "$frames"
  wait "$pid"
  end=$(now_ns)
  cat "$tmp/cpu.last" >>"$tmp/cpu"
  echo $((end - start))
}

# Runs the receiver turns for $frames frames; their processor times, kelcmd's and the raw
# loop's by turns, end up in $tmp/cpu.$frames.
receive_turns() {
  : >"$tmp/cpu"
  turns receive_ns /dev/null /dev/null "$KEL_BIN/kelcmd" -p"$base" -c2 \
    "recv 0x123:count*$frames" -- "$raw" recv $((base + 2)) "$frames"
  cp "$tmp/cpu" "$tmp/cpu.$frames"
}

# The medians of kelcmd's and the raw loop's processor times in the file $1 (turns ran
# kelcmd first: odd lines are kelcmd's, even lines the raw loop's), and of the ratios of
# their turns: "kelcmd raw ratio".
cpu_medians() {
  awk 'NR % 2 == 1' "$1" >"$tmp/cpu.kel"
  awk 'NR % 2 == 0' "$1" >"$tmp/cpu.raw"
  paste - - <"$1" | awk '{ printf "%.6f\n", ($2 == 0 ? 0 : $1 / $2) }' >"$tmp/cpu.ratios"
  echo "$(median "$tmp/cpu.kel") $(median "$tmp/cpu.raw") $(median "$tmp/cpu.ratios")"
}

per_s() { awk -v n="$1" -v ns="$2" 'BEGIN { printf "%d", n * 1e9 / ns }'; }
report() {  # name unit count target
  printf '%s: kelcmd %s %s/s, raw loop %s %s/s (best of %d), ratio %s (target >= %s)\n' "$1" \
    "$(per_s "$3" "$kel")" "$2" "$(per_s "$3" "$base_ns")" "$2" "$runs" "$pair_ratio" "$4"
}

for n in ${SEND_FRAMES:-50000 500000 2000000}; do
  turns once_ns /dev/null /dev/null "$KEL_BIN/kelcmd" -p"$base" -c0 "send 0x123:count*$n" -- \
    "$raw" send "$base" "$n"
  report "send $n" frames "$n" 0.85
done

runs=$recv_runs
long_frames=${RECV_LONG_FRAMES:-4000000}
short_frames=$frames
frames=$long_frames
receive_turns
frames=$short_frames
receive_turns
report "recv $frames" frames "$frames" 0.85
read -r kel_cpu raw_cpu cpu_ratio < <(cpu_medians "$tmp/cpu.$frames")
read -r kel_long raw_long _ < <(cpu_medians "$tmp/cpu.$long_frames")
awk -v k="$kel_cpu" -v r="$raw_cpu" -v q="$cpu_ratio" -v n="$frames" -v runs="$runs" 'BEGIN {
    printf "recv %d processor time per million frames, whole process: kelcmd %.1f ms, raw loop %.1f ms (medians of %d), ratio %.2f\n",
      n, k * 1000 / n, r * 1000 / n, runs, q }'
awk -v k="$kel_cpu" -v r="$raw_cpu" -v kl="$kel_long" -v rl="$raw_long" -v n="$frames" \
  -v nl="$long_frames" 'BEGIN {
    kf = (kl - k) * 1000 / (nl - n); rf = (rl - r) * 1000 / (nl - n)
    printf "recv processor time per million frames, the frames alone (%d less %d frames): kelcmd %.1f ms, raw loop %.1f ms, ratio %.2f (target <= 1.3)\n",
      nl, n, kf, rf, (rf == 0 ? 0 : kf / rf) }'
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
