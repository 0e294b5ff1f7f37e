#!/usr/bin/env bash
# nxxml check and nxxml tokens as scripts call them: exit codes, outputs.
source "$(dirname "$0")/common.bash"

printf '<a x="1" y="&lt;2&gt;">caf\xc3\xa9 &amp; \xe4\xb8\xad</a>' > "$tmp/good.xml"
printf '<a><b></a>' > "$tmp/bad.xml"
printf '<a><b>' > "$tmp/cut.xml"
printf '<r><a/>' > "$tmp/part1.xml"
printf '<b/></r>' > "$tmp/part2.xml"

out=$("$nxxml" check "$samples/packet.xml" "$tmp/good.xml" 2>&1); rc=$?
expect "check good" "0|$samples/packet.xml: ok
$tmp/good.xml: ok" "$rc|$out"

out=$("$nxxml" check "$tmp/good.xml" "$tmp/bad.xml" 2>"$tmp/err"); rc=$?
expect "check bad: rc and stdout" "1|$tmp/good.xml: ok" "$rc|$out"
expect "check bad: stderr" "$tmp/bad.xml: *** Fatal error from XML_parse(): TAG_MISMATCH: mismatched tag at line 1, column 8, byte 8, near \"<a><b></a>\"" "$(cat "$tmp/err")"


"$nxxml" check "$tmp/cut.xml" 2>"$tmp/err"; rc=$?
expect "check truncated" "1|$tmp/cut.xml: the input ends inside the element <b> opened at line 1, column 3" "$rc|$(cat "$tmp/err")"

"$nxxml" check --bogus "$tmp/good.xml" >/dev/null 2>&1; rc=$?
expect "usage error" "2" "$rc"
"$nxxml" check >/dev/null 2>&1; rc=$?
expect "no file" "2" "$rc"

out=$("$nxxml" check --joined "$tmp/part1.xml" "$tmp/part2.xml"); rc=$?
expect "joined" "0|$tmp/part1.xml+$tmp/part2.xml: ok" "$rc|$out"
out=$("$nxxml" check --embedded "$samples/fragments.xml"); rc=$?
expect "embedded" "0|$samples/fragments.xml: ok" "$rc|$out"
"$nxxml" check "$samples/fragments.xml" >/dev/null 2>&1; rc=$?
expect "fragments need --embedded" "1" "$rc"

out=$("$nxxml" tokens "$tmp/good.xml"); rc=$?
expect "tokens" '0|{"type":"start","name":"a","attributes":{"x":"1","y":"<2>"},"line":1,"column":0,"byte":0}
{"type":"text","text":"café & 中","line":1,"column":23,"byte":23}
{"type":"end","name":"a","line":1,"column":35,"byte":38}' "$rc|$out"

out=$("$nxxml" tokens "$tmp/bad.xml" 2>"$tmp/err"); rc=$?
expect "tokens then error" "1|2|1" "$rc|$(echo "$out" | wc -l)|$(grep -c TAG_MISMATCH "$tmp/err")"

exit $fail
