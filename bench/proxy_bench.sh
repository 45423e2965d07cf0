#!/usr/bin/env bash
# The kelcmd proxy against socat relaying the same traffic to the same device, in the same
# run (build/bench/proxy_load_bench): two-way throughput of 16-byte frames, and the round
# trip a relay adds to a 16-byte ping-pong (p50, p99). socat comes with
# scripts/bootstrap --bench.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

load="$KEL_BENCH_BIN/proxy_load_bench"
[ -x "$load" ] || { echo "build first: $load is missing" >&2; exit 1; }
socat=$(command -v socat) || { echo "socat is missing: scripts/bootstrap --bench" >&2; exit 1; }

seconds=${SECONDS_PER_RUN:-2}
pings=${PINGS:-20000}
rounds=${ROUNDS:-5}

timeout 900 "$load" "$KEL_BIN/kelcmd" "$socat" "$seconds" "$pings" "$rounds"
