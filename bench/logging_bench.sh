#!/usr/bin/env bash
# Logging, each figure beside a baseline measured in the same run:
#   writer   the BUSMASTER row writer alone (build/bench/log_writer_bench) against fwrite()
#            of the same rows, on one core, best of 5 repetitions
#   service  the logging service under a flood of four virtual-board channels
#            (build/bench/log_service_bench) against plain readers of the same flood,
#            FRAMES frames per channel, RUNS turns (the median of their ratios), with 1, 2
#            and 4 channels flooded ($CHANNELS)
# The service writes its files into $TMPDIR (default /tmp).
set -euo pipefail
source "$(dirname "$0")/lib.sh"

writer="$KEL_BENCH_BIN/log_writer_bench"
service="$KEL_BENCH_BIN/log_service_bench"
for program in "$writer" "$service"; do
  [ -x "$program" ] || { echo "build first: $program is missing" >&2; exit 1; }
done

"$writer" --benchmark_repetitions=5 2>/dev/null |
  grep -E 'rows/s, fwrite'
for channels in ${CHANNELS:-1 2 4}; do
  "$service" "${FRAMES:-1000000}" "${RUNS:-9}" "$channels"
done
