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
