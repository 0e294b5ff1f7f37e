#!/usr/bin/env bash
# nxxml copy shows progress on standard error only when that is a terminal
# and the input is larger than 64 MB; otherwise nothing changes.
source "$(dirname "$0")/common.bash"

# Runs the command line with standard error on a terminal (standard output
# into a file); prints what the terminal showed.
on_terminal() { script -qec "$1 >$tmp/out" /dev/null | tr '\r' '\n' | sed 's/\x1b\[K//g'; }

# Just over 64 MiB in few tokens, so that even a sanitized build reads it
# quickly.
record="<r>$(head -c 65529 /dev/zero | tr '\0' x)</r>"
{
  printf '<p>\n'
  for ((k = 0; k < 1025; ++k)); do printf '%s\n' "$record"; done
  printf '</p>\n'
} >"$tmp/big.xml"

shown=$(on_terminal "'$nxxml' copy '$tmp/big.xml'")
expect "big input on a terminal: a progress line with the share and the rate" "yes" \
  "$(grep -qE '^nxxml copy .*big.xml: [0-9.]+ MiB of [0-9.]+ MiB \(100%\), [0-9.]+ [KMG]?i?B/s$' <<<"$shown" && echo yes || echo "$shown")"
"$nxxml" copy "$tmp/big.xml" >"$tmp/plain" 2>/dev/null
expect "the copy itself is unchanged" "" "$(cmp "$tmp/plain" "$tmp/out")"

expect "small input on a terminal: nothing" "" "$(on_terminal "'$nxxml' copy '$samples/packet.xml'")"
expect "big input, standard error not a terminal: nothing" "" "$("$nxxml" copy "$tmp/big.xml" 2>&1 >/dev/null)"
exit $fail
