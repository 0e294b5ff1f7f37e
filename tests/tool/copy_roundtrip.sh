#!/usr/bin/env bash
# nxxml copy: what it writes reads back as the same tokens, whole or split
# into a series of files, and a series joined is the unsplit output (the
# library's own round trips are fuzzed); the listing, standard input, full
# outputs, input and usage errors.
source "$(dirname "$0")/common.bash"

roundtrip() {  # roundtrip NAME MODE FILE [SIZE]: copy, read back, compare
  local name=$1 mode=$2 file=$3 size=${4:-}
  local opts=()
  [ "$mode" = embedded ] && opts=(--embedded)
  "$nxxml" copy "${opts[@]}" "$file" > "$tmp/whole" 2>"$tmp/err" || { echo "FAIL $name: copy failed: $(cat "$tmp/err")"; fail=1; return; }
  tokens "${opts[@]}" "$file" | as_copied > "$tmp/want"
  tokens "${opts[@]}" "$tmp/whole" > "$tmp/got"
  cmp -s "$tmp/want" "$tmp/got" || { echo "FAIL $name: tokens differ"; diff "$tmp/want" "$tmp/got" | head -5; fail=1; }
  [ -z "$size" ] && return
  rm -f "$tmp"/series*
  "$nxxml" copy "${opts[@]}" "$file" -o "$tmp/series" --max-size "$size" > "$tmp/list" 2>"$tmp/err" \
    || { echo "FAIL $name: split copy failed: $(cat "$tmp/err")"; fail=1; return; }
  mapfile -t parts < <(grep -v '^total' "$tmp/list" | cut -f1)
  cat "${parts[@]}" | cmp -s - "$tmp/whole" || { echo "FAIL $name: the series joined is not the whole output"; fail=1; }
  tokens "${opts[@]}" --joined "${parts[@]}" > "$tmp/got"
  cmp -s "$tmp/want" "$tmp/got" || { echo "FAIL $name: tokens of the series differ"; diff "$tmp/want" "$tmp/got" | head -5; fail=1; }
}

roundtrip "sample packet" plain "$samples/packet.xml" 100
roundtrip "sample fragments" embedded "$samples/fragments.xml" 33

# The series as listed, with sizes and a total.
rm -f "$tmp"/series*
out=$("$nxxml" copy "$samples/packet.xml" -o "$tmp/series" --max-size 150); rc=$?
expect "listing" "0|$tmp/series	150
$tmp/series_2	150
$tmp/series_3	99
total	399 bytes in 3 files" "$rc|$out"

# Standard input in, standard output out.
out=$(printf '<a x="1">t</a>' | "$nxxml" copy -); rc=$?
expect "stdin to stdout" '0|<a x="1">
t</a>' "$rc|$out"

# Out of files: exit 1, how far it got, the files written stay and are listed.
rm -f "$tmp"/series*
out=$("$nxxml" copy "$samples/packet.xml" -o "$tmp/series" --max-size 150 --max-files 2 2>"$tmp/err"); rc=$?
expect "out of files" "1|$tmp/series	150
$tmp/series_2	150
total	300 bytes in 2 files|nxxml copy: $samples/packet.xml: the output is full (150 bytes a file, 2 files); 20 tokens were copied" \
  "$rc|$out|$(cat "$tmp/err")"
rm -f "$tmp"/series*
out=$("$nxxml" copy "$samples/packet.xml" -o "$tmp/series" --max-size 150 --max-files 2 --allow-overflow | tail -1); rc=$?
expect "overflow allowed" "0|total	399 bytes in 3 files (past the limits)" "$rc|$out"
out=$("$nxxml" copy "$samples/packet.xml" --max-size 10 2>"$tmp/err"); rc=$?
expect "stdout limit" "1|<packet si|nxxml copy: $samples/packet.xml: the output is full (10 bytes); 0 tokens were copied" \
  "$rc|$out|$(cat "$tmp/err")"

# Input errors: what was copied stays, the message says where.
printf '<a><b>x</a>' > "$tmp/bad.xml"
out=$("$nxxml" copy "$tmp/bad.xml" 2>"$tmp/err"); rc=$?
expect "bad input" "1|<a><b>x|1" "$rc|$out|$(grep -c 'TAG_MISMATCH.*; 3 tokens were copied$' "$tmp/err")"
printf '<a><b>x' > "$tmp/cut.xml"
"$nxxml" copy "$tmp/cut.xml" >/dev/null 2>"$tmp/err"; rc=$?
expect "cut input" "1|nxxml copy: $tmp/cut.xml: the input ends inside the element <b>; 3 tokens were copied" "$rc|$(cat "$tmp/err")"

# Usage errors.
for bad in "--max-size 1X" "--max-size 2G" "--max-size K" "--max-files 2" "--allow-overflow" "-o $samples/packet.xml"; do
  # shellcheck disable=SC2086
  "$nxxml" copy "$samples/packet.xml" $bad >/dev/null 2>&1; rc=$?
  expect "usage: $bad" "2" "$rc"
done
"$nxxml" copy "$samples/packet.xml" -o "$tmp/nowhere/out" >/dev/null 2>"$tmp/err"; rc=$?
expect "cannot open output" "1|nxxml copy: Cannot open the output file $tmp/nowhere/out: No such file or directory." "$rc|$(cat "$tmp/err")"

exit $fail
