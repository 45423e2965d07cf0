#!/usr/bin/env bash
# Runs the bash completion function of kelcmd on typed lines, as bash does at Tab:
# COMP_WORDS and COMP_CWORD in, COMPREPLY out.
#   completion_test.sh <completion file>
set -uo pipefail
set -f  # words such as "?" stay words
# shellcheck source=/dev/null
source "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
touch "$work/kelcmd.ini" "$work/other.ini"
failures=0

complete_line() {  # the line up to the cursor -> the replies, one line, sorted
  read -ra COMP_WORDS <<<"$1"
  [[ $1 == *' ' ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _kelcmd
  printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ' | sed 's/ $//'
}

# exact: the replies are these words and no others.
exact() {
  local got
  got=$(complete_line "$1")
  [ "$got" = "$2" ] || { echo "FAILED: '$1' completes to '$got', not '$2'" >&2; failures=$((failures + 1)); }
}

# has: these words are among the replies, and every reply starts with what is typed.
has() {
  local got typed=${1##* } word
  got=" $(complete_line "$1") "
  for word in $2; do
    [[ $got == *" $word "* ]] || { echo "FAILED: '$1' does not offer '$word' (got '$got')" >&2; failures=$((failures + 1)); }
  done
  for word in $got; do
    [[ $word == "$typed"* ]] || { echo "FAILED: '$1' offers '$word'" >&2; failures=$((failures + 1)); }
  done
}

exact "kelcmd -" "-a -c -i -m -p -s -x"
exact "kelcmd -i$work/k" "-i$work/kelcmd.ini"
has "kelcmd lo" "log logging"
has "kelcmd " "addr baud filt help log proxy send recv test"
exact "kelcmd tet" ""                                 # hidden commands are not offered
has "kelcmd debug " "capture serial socket worker"
exact "kelcmd debug socket " "off on"
exact "kelcmd DEBUG Worker o" "off on"                # names compare without case
has "kelcmd log st" "start stop"
has "kelcmd logging " "comment count file note path size start stop"
has "kelcmd proxy " "start stop"
has "kelcmd test " "? sync"
has "kelcmd rtest sy" "sync"
has "kelcmd help lo" "log logging"
exact "kelcmd baud 250k " ""                          # nothing follows a plain value
has "kelcmd -p27016 baud\\; lo" "log logging"         # a new command after ';'
exact "kelcmd -p27016 out\\; proxy -c2 st" "start stop"  # options anywhere are skipped

[ "$failures" -eq 0 ] || exit 1
echo "kelcmd completes options, commands, sub-words and values"
