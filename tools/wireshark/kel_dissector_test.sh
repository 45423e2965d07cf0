#!/usr/bin/env bash
# Tests kel.lua with tshark: frames made here decode field by field (on the default ports,
# split across segments too), then a kelcmd session against kelsim, captured on the
# loopback interface, shows GET_BAUD, its answer and a CAN frame.
#   kel_dissector_test.sh <folder with kelcmd and kelsim>
# Exits 77 (skipped) when tshark is missing or cannot capture here.
set -euo pipefail
bin=$(cd "$1" && pwd)
script="$(cd "$(dirname "$0")" && pwd)/kel.lua"

skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*" >&2; exit 1; }
for program in tshark text2pcap dumpcap; do
  command -v "$program" >/dev/null || skip "$program is missing (scripts/bootstrap --package)"
done

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT

decode() {  # capture, then tshark options; the fields of every KEL frame, one per line
  local capture=$1
  shift
  tshark -r "$capture" -X lua_script:"$script" -Y kel "$@" -T fields -E occurrence=a \
    -e kel.command -e kel.value2 -e kel.baud -e kel.internal -e kel.can.id -e kel.can.dlc \
    -e kel.can.channel -e kel.can.extended -e kel.can.remote -e kel.can.echo -e kel.can.data \
    2>/dev/null || true
}

# Made frames. I: towards the board (40000 -> 27016), O: from it. The third packet holds
# the first half of a CAN frame; the fourth its second half and one more frame.
cat >"$work/frames.txt" <<'EOF'
I
0000  05 00 01 81 00 00 00 00 00 00 00 00 00 00 00 00
O
0000  05 00 01 80 00 00 00 00 04 00 00 00 00 00 00 00
I
0000  23 01 00 00 02 02 00 00
I
0000  12 34 00 00 00 00 00 00 67 45 23 01 00 82 01 02
0010  00 00 00 00 00 00 00 00
I
0000  ff ff ff ff 00 00 00 00 00 55 00 80 00 00 00 00
EOF
text2pcap -q -D -T 40000,27016 "$work/frames.txt" "$work/frames.pcap" >/dev/null 2>&1
got=$(decode "$work/frames.pcap")
expected=$'0x81010005\t0x00000000\t\t\t\t\t\t\t\t\t\n'\
$'0x80010005\t0x00000004\t4\t\t\t\t\t\t\t\t\n'\
$'\t\t\t\t0x00000123,0x01234567\t2,0\t2,2\t0,1\t0,1\t0,1\t12 34\n'\
$'0xffffffff\t0x80005500\t\t0x80005500\t\t\t\t\t\t\t'
[ "$got" = "$expected" ] || fail "made frames decode as
$got
instead of
$expected"

# A live session on the loopback interface, the capture filtered to kelsim's ports.
"$bin/kelsim" --port 0 >"$work/kelsim.log" 2>&1 &
pids+=($!)
port=""
for _ in $(seq 300); do
  port=$(sed -n 's/.* ports \([0-9]*\)-.*/\1/p' "$work/kelsim.log")
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || fail "kelsim did not start: $(cat "$work/kelsim.log")"
ports="$port-$((port + 3))"

dumpcap -q -i lo -f "tcp portrange $ports" -w - >"$work/live.pcapng" 2>"$work/dumpcap.log" &
pids+=($!)
dumpcap_pid=$!
for _ in $(seq 300); do
  grep -q "Capturing on" "$work/dumpcap.log" && break
  kill -0 "$dumpcap_pid" 2>/dev/null || skip "cannot capture on lo here: $(cat "$work/dumpcap.log")"
  sleep 0.1
done
grep -q "Capturing on" "$work/dumpcap.log" || skip "dumpcap never started capturing"

# dumpcap writes each packet as it comes; wait until the session's frames are in the file.
# A busy machine may let the first session pass before the capture's filter is in place,
# so the session runs again when its frames do not show within ten seconds.
for attempt in 1 2 3; do
  "$bin/kelcmd" -p"$port" "baud; send 0x123:1234" >"$work/kelcmd.log" 2>&1 ||
    fail "kelcmd failed: $(cat "$work/kelcmd.log")"
  deadline=$((SECONDS + 10))
  while [ "$SECONDS" -lt "$deadline" ]; do
    got=$(decode "$work/live.pcapng" -o "kel.ports:$ports")
    if grep -q "^0x81010005" <<<"$got" && grep -q "^0x80010005.*	3	" <<<"$got" &&
      grep -q "0x00000123	2	0	0	0	0	12 34$" <<<"$got"; then
      echo "GET_BAUD, its answer and the CAN frame decoded from the live capture (session $attempt)"
      exit 0
    fi
    sleep 0.2
  done
done
fail "the live capture decodes as
$got"
