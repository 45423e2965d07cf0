#!/usr/bin/env bash
# kelcmd help as a whole process, against /bin/true, in the same run.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

n=300
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp"
mean_us 20 "$KEL_BIN/kelcmd" help >/dev/null  # warm the page cache
base=$(mean_us $n /bin/true)
kel=$(mean_us $n "$KEL_BIN/kelcmd" help)
printf 'startup: kelcmd help %d us, /bin/true %d us, added %d us (target < 3000 us)\n' \
  "$kel" "$base" $((kel - base))
