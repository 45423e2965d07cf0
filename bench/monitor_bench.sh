#!/usr/bin/env bash
# The monitor under a flood: kelsim (--close-after N) passes N frames from a batch sender on
# channel 0 to the monitor on channel 2 and then closes its connection, which ends it.
#   mon      kelcmd 'mon' with its rows going to a file, against build/bench/monitor_raw_bench
#            reading the same frames and writing the same rows, made with snprintf, to a file
#   mon ids  kelcmd 'mon ids' folding the same flood into its per-identifier table
# Each figure is the time from the sender's start to the reader's end, best of $RUNS (5)
# turns; the ratio is the median of the turns' ratios (a turn's runs meet the same load).
set -euo pipefail
source "$(dirname "$0")/lib.sh"

raw="$KEL_BENCH_BIN/monitor_raw_bench"
clients="$KEL_BENCH_BIN/can_raw_bench"
[ -x "$raw" ] || { echo "build first: $raw is missing" >&2; exit 1; }
frames=${FRAMES:-1000000}
runs=${RUNS:-5}

start_kelsim --close-after "$frames"

# The ns from the sender's start to the end of the reader "$@" (on channel 2, its output to
# the file $1), once the board counts the reader.
flood_ns() {
  local file=$1 start end pid
  shift
  "$@" >"$file" 2>/dev/null &
  pid=$!
  "$clients" clients $((base + 1)) 1
  start=$(now_ns)
  "$raw" blast "$base" "$frames"
  wait "$pid" || true  # the board's close ends kelcmd with an error
  end=$(now_ns)
  echo $((end - start))
}

per_s() { awk -v n="$frames" -v ns="$1" 'BEGIN { printf "%d", n * 1e9 / ns }'; }
best() { sort -n | head -1; }
median() {
  sort -g | awk '{ r[NR] = $1 } END { printf "%.2f", (NR % 2) ? r[(NR + 1) / 2] : (r[NR / 2] + r[NR / 2 + 1]) / 2 }'
}

: >"$tmp/turns"
for ((i = 0; i < runs; i++)); do
  k=$(flood_ns "$tmp/kelcmd.txt" "$KEL_BIN/kelcmd" -p"$base" -c2 mon)
  b=$(flood_ns "$tmp/raw.txt" "$raw" rows $((base + 2)))
  d=$(flood_ns "$tmp/ids.txt" "$KEL_BIN/kelcmd" -p"$base" -c2 "mon ids")
  echo "$k $b $d" >>"$tmp/turns"
done
# Both wrote the same rows: compared without their time column.
grep -E '^ {0,9}[0-9]+ [-x][-r][-s] ' "$tmp/kelcmd.txt" | cut -c11- >"$tmp/kelcmd.rows"
cut -c11- "$tmp/raw.txt" >"$tmp/raw.rows"
cmp -s "$tmp/kelcmd.rows" "$tmp/raw.rows" || echo "mon: the rows differ from the baseline's" >&2
[ "$(wc -l <"$tmp/raw.rows")" -eq "$frames" ] || echo "mon: the baseline missed frames" >&2
grep -q "^$frames frames, " "$tmp/ids.txt" || echo "mon ids: frames missing" >&2

kel=$(cut -d' ' -f1 "$tmp/turns" | best)
raw_ns=$(cut -d' ' -f2 "$tmp/turns" | best)
ids=$(cut -d' ' -f3 "$tmp/turns" | best)
ratio=$(awk '{ printf "%.6f\n", $2 / $1 }' "$tmp/turns" | median)
printf 'mon %d frames, rows to a file: kelcmd %s frames/s, snprintf reader %s frames/s (best of %d), ratio %s (target >= 0.7)\n' \
  "$frames" "$(per_s "$kel")" "$(per_s "$raw_ns")" "$runs" "$ratio"
printf 'mon ids %d frames, 256 ids: kelcmd %s frames/s (best of %d) (target >= 5000000)\n' \
  "$frames" "$(per_s "$ids")" "$runs"
