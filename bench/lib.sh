# Shared by the bench/*_bench.sh scripts.
KEL_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
KEL_BIN="${KEL_BIN:-$KEL_ROOT/build/bin}"
KEL_BENCH_BIN="${KEL_BENCH_BIN:-$KEL_ROOT/build/bench}"
[ -x "$KEL_BIN/kelcmd" ] || { echo "build first: scripts/check" >&2; exit 1; }

now_ns() { date +%s%N; }

# Runs a command N times and prints the mean wall time of one run in microseconds.
mean_us() {
  local n=$1 start end i
  shift
  start=$(now_ns)
  for ((i = 0; i < n; i++)); do "$@" >/dev/null 2>&1 || true; done
  end=$(now_ns)
  echo $(((end - start) / n / 1000))
}

# Prints a ratio of two numbers with two decimals.
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b == 0 ? 0 : a / b) }'; }

# Starts kelsim on free ports in the background with the options given, and sets tmp (a
# temporary directory) and base (kelsim's first port). kelsim stops and the directory goes
# when the script ends.
start_kelsim() {
  tmp=$(mktemp -d)
  trap stop_kelsim EXIT
  "$KEL_BIN/kelsim" --port 0 "$@" >"$tmp/kelsim.out" 2>&1 &
  kelsim_pid=$!
  for _ in $(seq 200); do grep -q ' ports ' "$tmp/kelsim.out" && break; sleep 0.05; done
  base=$(sed -n 's/.* ports \([0-9]*\)-.*/\1/p' "$tmp/kelsim.out")
  [ -n "$base" ] || { echo "kelsim did not start" >&2; exit 1; }
}
stop_kelsim() {
  kill "$kelsim_pid" 2>/dev/null || true
  wait "$kelsim_pid" 2>/dev/null || true
  rm -rf "$tmp"
}

# The wall time in ns of one run of a command, its output to the file $out.
out=/dev/null
once_ns() {
  local start end
  start=$(now_ns)
  "$@" >"$out"
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
  awk '{ printf "%.6f\n", $2 / $1 }' "$tmp/turns" >"$tmp/ratios"
  pair_ratio=$(printf '%.2f' "$(median "$tmp/ratios")")
}

# The median of the numbers in the file $1, one a line.
median() {
  sort -g "$1" | awk '{ v[NR] = $1 } END { printf "%.6f", (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# Runs a command, its output discarded, and writes the processor time (user and system,
# in microseconds) that it and its children used to the file $1.
cpu_us_to() {
  local file=$1
  shift
  python3 -c 'import os, sys
out = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)]
pid = os.posix_spawnp(sys.argv[1], sys.argv[1:], os.environ, file_actions=out)
usage = os.wait4(pid, 0)[2]
print(round((usage.ru_utime + usage.ru_stime) * 1e6))' "$@" >"$file"
}
