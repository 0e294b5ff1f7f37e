#!/usr/bin/env bash
# nxxml copy: what it writes reads back as the same tokens, whole or split
# into a series of files, and a series joined is the unsplit output.
source "$(dirname "$0")/common.bash"

# The tokens without their locations.
tokens() { "$nxxml" tokens "$@" | jq -c 'del(.line, .column, .byte)'; }

# The input's tokens as a copy reads back: a text that follows an end tag, or
# a start tag without attributes (or begins the input), is written with its
# leading line feed as a reference, which the reader drops as the first line
# feed after a tag. After a start tag with attributes the image's own line
# feed is the one dropped.
expected_tokens() {
  tokens "$@" | jq -s -c '
    reduce .[] as $t ({prev: null, out: []};
      (if $t.type == "text" and ($t.text | startswith("\n"))
          and (.prev == null or .prev.type == "end" or (.prev.type == "start" and (.prev.attributes | length) == 0))
       then $t | .text |= .[1:] else $t end) as $u
      | .out += (if $u.type == "text" and $u.text == "" then [] else [$u] end)
      | .prev = $t)
    | .out[]'
}

gen() {  # packets that try the newline rule, escapes, pairs, long texts
  printf '<p>\n<a>\n\nx</a>\n\n<b k="v">\n\ny</b><c/>\n\n\nz<d k="1"/>\n\nw</p>' > "$tmp/newlines.xml"
  printf '<p a="q&quot;&apos;&lt;&amp;&#xA;&#x9;&#xD;">t&#x9;&#xD;\xef\xa0\x80\xef\xa0\x81 \xf0\x9f\x98\x80 \xe4\xb8\xad</p>' \
    > "$tmp/escapes.xml"
  {
    printf '<packet site="s">\n'
    for i in $(seq 1 400); do
      printf '<record id="%d" note="n&amp;%d"><f>caf\xc3\xa9 %d &lt;%d&gt;</f><g>\xe4\xb8\xad\xe6\x96\x87</g><h/></record>\n' \
        "$i" "$i" "$i" "$i"
    done
    printf '</packet>\n'
  } > "$tmp/records.xml"
  { printf '<long>'; head -c 20000 /dev/zero | tr '\0' 'x'; printf '\xe2\x82\xac</long>'; } > "$tmp/long.xml"
}
gen

roundtrip() {  # roundtrip NAME MODE FILE [SIZE]: copy, read back, compare
  local name=$1 mode=$2 file=$3 size=${4:-}
  local opts=()
  [ "$mode" = embedded ] && opts=(--embedded)
  "$nxxml" copy "${opts[@]}" "$file" > "$tmp/whole" 2>"$tmp/err" || { echo "FAIL $name: copy failed: $(cat "$tmp/err")"; fail=1; return; }
  expected_tokens "${opts[@]}" "$file" > "$tmp/want"
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
roundtrip "newline rule" plain "$tmp/newlines.xml" 7
roundtrip "escapes and pairs" plain "$tmp/escapes.xml" 5
roundtrip "records" plain "$tmp/records.xml" 4K
roundtrip "long text" plain "$tmp/long.xml" 1000

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
