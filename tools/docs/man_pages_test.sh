#!/usr/bin/env bash
# Renders the man pages with man -l: no groff warnings, the usual sections, every command
# that `kelcmd help` lists and every option of kelcmd's and kelsim's usage texts.
#   man_pages_test.sh <folder of the pages> <kelcmd>  (kelsim lies beside kelcmd)
# Exits 77 (skipped) when man is missing.
set -euo pipefail
pages=$1
kelcmd=$2
kelsim="$(dirname "$kelcmd")/kelsim"
command -v man >/dev/null || { echo "SKIPPED: man is missing (scripts/bootstrap --package)"; exit 77; }

failures=0
fail() { echo "FAILED: $*" >&2; failures=$((failures + 1)); }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

render() {  # page -> rendered text in $work/<page>.txt; warnings fail
  MANWIDTH=100 LC_ALL=C.UTF-8 man --warnings=w -l "$pages/$1" >"$work/$1.txt" 2>"$work/$1.err" ||
    fail "man -l $1 failed: $(cat "$work/$1.err")"
  [ ! -s "$work/$1.err" ] || fail "$1 renders with warnings: $(cat "$work/$1.err")"
  for section in NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS" "SEE ALSO"; do
    grep -q "^$section\$" "$work/$1.txt" || fail "$1 has no $section section"
  done
}

render kelcmd.1
render kelsim.1

# Every command of the help listing, as a heading of its own ("   name" then aliases).
names=$("$kelcmd" help | awk '$2 == "-" { print $1 }')
[ -n "$names" ] || fail "kelcmd help listed no commands"
for name in $names; do
  grep -Eq "^   $name(,| \(board\)|\$)" "$work/kelcmd.1.txt" || fail "kelcmd.1 lacks the command $name"
done

# Every option letter of the usage text (printed for an unknown option).
letters=$("$kelcmd" -? 2>&1 | grep -o -- ' -[a-z]<' | cut -c3 || true)
[ -n "$letters" ] || fail "kelcmd's usage named no options"
for letter in $letters; do
  grep -q "^       -$letter<" "$work/kelcmd.1.txt" || fail "kelcmd.1 lacks the option -$letter"
done
for option in $("$kelsim" --help | grep -o -- '^  --[a-z-]*'); do
  grep -q -- "^       $option\\b" "$work/kelsim.1.txt" || fail "kelsim.1 lacks the option $option"
done

[ "$failures" -eq 0 ] || exit 1
echo "kelcmd.1 and kelsim.1 render cleanly with $(wc -w <<<"$names") commands"
