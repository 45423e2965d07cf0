#!/usr/bin/env bash
# Whole-process benchmarks. Each prints its figure next to a baseline measured in the
# same run, and the ratio between them.
#   bench/run.sh [section ...]      sections: startup (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."
build=build
bin="$build/bin"
[ -x "$bin/kelcmd" ] || { echo "build first: scripts/check" >&2; exit 1; }

now_ns() { date +%s%N; }

# Runs a command N times and prints the mean wall time of one run in microseconds.
mean_us() {
  local n=$1; shift
  local start end
  start=$(now_ns)
  for ((i = 0; i < n; i++)); do "$@" >/dev/null 2>&1 || true; done
  end=$(now_ns)
  echo $(( (end - start) / n / 1000 ))
}

startup() {
  local n=300 tmp
  tmp=$(mktemp -d)
  pushd "$tmp" >/dev/null
  mean_us 20 "$OLDPWD/$bin/kelcmd" help >/dev/null  # warm the page cache
  local base kel
  base=$(mean_us $n /bin/true)
  kel=$(mean_us $n "$OLDPWD/$bin/kelcmd" help)
  popd >/dev/null
  rm -rf "$tmp"
  printf 'startup: kelcmd help %d us, /bin/true %d us, added %d us (target < 3000 us)\n' \
    "$kel" "$base" $((kel - base))
}

sections=("$@")
[ ${#sections[@]} -eq 0 ] && sections=(startup)
for s in "${sections[@]}"; do "$s"; done
