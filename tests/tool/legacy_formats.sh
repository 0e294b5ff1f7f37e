#!/usr/bin/env bash
# Old packets from the command line: clean's output reads as the old packet
# read with --format, detect's classification, and the refusals with their
# exit codes.
source "$(dirname "$0")/common.bash"
legacy=$samples/legacy

have_locale() { locale -a 2>/dev/null | grep -qix "${1//-/}"; }
for name in zh_CN.GBK en_US.CP1252; do
  if ! have_locale "$name"; then
    [ -n "${NXXML_REQUIRE_LOCALES:-}" ] && { echo "FAIL the locale $name is missing"; exit 1; }
    echo "skipped: the locale $name is not installed"; exit 0
  fi
done

# roundtrip NAME FORMAT LOCALE OLD TWIN: clean's output reads as the old
# packet read with --format, and as the current packet it was made from.
roundtrip() {
  local name=$1 format=$2 loc=$3 old=$4 twin=$5
  "$nxxml" clean --format "$format" --locale "$loc" "$old" > "$tmp/clean.xml" 2>"$tmp/err" \
    || { echo "FAIL $name: clean failed: $(cat "$tmp/err")"; fail=1; return; }
  tokens --format "$format" --locale "$loc" "$old" | as_copied > "$tmp/want"
  tokens "$tmp/clean.xml" > "$tmp/got"
  cmp -s "$tmp/want" "$tmp/got" || { echo "FAIL $name: tokens differ"; diff "$tmp/want" "$tmp/got" | head -5; fail=1; }
  "$nxxml" copy "$twin" | cmp -s - "$tmp/clean.xml" || { echo "FAIL $name: not the copy of its current twin"; fail=1; }
}
roundtrip "OM in GBK" 2 zh_CN.GBK "$legacy/packet-om-gbk.xml" "$legacy/packet.xml"
roundtrip "OM in CP1252" 2 en_US.CP1252 "$legacy/packet-om-cp1252.xml" "$legacy/latin.xml"
roundtrip "OMSR1" 3 C.UTF-8 "$legacy/packet-omsr1.xml" "$legacy/controls.xml"
roundtrip "format 4" 4 C.UTF-8 "$legacy/packet-fmt4.xml" "$legacy/units.xml"
roundtrip "OMSR1 detected" auto C.UTF-8 "$legacy/packet-omsr1.xml" "$legacy/controls.xml"
# The default format of clean is auto; of the other commands, a current packet.
out=$(LC_ALL=zh_CN.GBK "$nxxml" clean "$legacy/packet-om-gbk.xml" | "$nxxml" check -); rc=$?
expect "clean detects by default" "0|-: ok" "$rc|$out"
"$nxxml" check "$legacy/packet-omsr1.xml" >/dev/null 2>&1; rc=$?
expect "check reads a current packet by default" "1" "$rc"

out=$("$nxxml" detect "$legacy"/packet*.xml "$samples/packet.xml" | jq -r '[.file, .type] | join(" ")'); rc=$?
expect "detect" "0|$legacy/packet-fmt4.xml ambiguous
$legacy/packet-om-cp1252.xml om
$legacy/packet-om-gbk.xml om
$legacy/packet-omsr1.xml sr1
$legacy/packet.xml sr1
$samples/packet.xml sr1" "$rc|$out"
out=$("$nxxml" detect --codepage 1252 - < "$legacy/packet-om-cp1252.xml"); rc=$?
expect "detect with a code page" '0|{"file":"-","type":"om","nonAscii":true,"corrupt":false}' "$rc|$out"

# Refusals.
out=$("$nxxml" detect --max-bytes 300 "$legacy/packet-om-gbk.xml" "$legacy/latin.xml" 2>"$tmp/err"); rc=$?
expect "detect: too large" "1|sr1|$legacy/packet-om-gbk.xml: the packet is larger than --max-bytes (300 bytes), the most that is read whole to detect its format" \
  "$rc|$(jq -r .type <<<"$out")|$(cat "$tmp/err")"
"$nxxml" detect "$tmp/missing.xml" >/dev/null 2>&1; rc=$?
expect "detect: missing file" "2" "$rc"
for bad in "--codepage 0" "--codepage 99999" "--locale xx_YY.NOPE" "--max-bytes 3X"; do
  # shellcheck disable=SC2086
  "$nxxml" detect $bad "$legacy/latin.xml" >/dev/null 2>"$tmp/err"; rc=$?
  expect "detect: usage $bad" "2" "$rc"
done
"$nxxml" tokens --locale xx_YY.NOPE "$legacy/latin.xml" >/dev/null 2>"$tmp/err"; rc=$?
expect "a missing locale is named" "2|1" "$rc|$(grep -c 'xx_YY.NOPE' "$tmp/err")"
"$nxxml" clean --format 5 "$legacy/latin.xml" >/dev/null 2>&1; rc=$?
expect "clean: only the formats that repair" "2" "$rc"

# A packet that breaks its format: exit 1, the full error with the place in
# the packet, and what was repaired before it written.
printf '<p>\n<a>caf&#233;</a><b>x\xC8y</b></p>' > "$tmp/broken.xml"
out=$("$nxxml" clean --format 2 --locale en_US.CP1252 "$tmp/broken.xml" 2>"$tmp/err"); rc=$?
expect "clean: broken OM" "1|<p><a>café</a><b>|nxxml clean: $tmp/broken.xml: Internal error: a condition that must hold does not.
The old packet cannot be repaired at line 2, column 20, byte 24. [c == AMP]; 5 tokens were copied" "$rc|$out|$(cat "$tmp/err")"
printf '<p>\xC3\xA9</p>' > "$tmp/ambiguous.xml"
"$nxxml" clean "$tmp/ambiguous.xml" >/dev/null 2>"$tmp/err"; rc=$?
expect "clean: ambiguous" "1|1" "$rc|$(grep -c 'pType != eDetectedTypeAmbiguous' "$tmp/err")"
"$nxxml" check --format auto --max-bytes 10 "$legacy/latin.xml" >/dev/null 2>"$tmp/err"; rc=$?
expect "check: too large" "1|1" "$rc|$(grep -c 'larger than --max-bytes (10 bytes)' "$tmp/err")"
# clean writes a series as copy does, and names itself.
"$nxxml" clean --locale en_US.CP1252 "$legacy/packet-om-cp1252.xml" -o "$tmp/series" --max-size 100 >/dev/null; rc=$?
"$nxxml" clean --locale en_US.CP1252 "$legacy/packet-om-cp1252.xml" -o "$tmp/series" >/dev/null 2>"$tmp/err"; rc2=$?
expect "clean: an earlier series" "0|2|nxxml clean: $tmp/series exists (an earlier output); --force replaces the series" \
  "$rc|$rc2|$(cat "$tmp/err")"

exit $fail
