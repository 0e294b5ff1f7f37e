#!/usr/bin/env bash
# nxxml attach and extract: any file comes back byte for byte, from one file
# or a joined series; refusals and failures leave nothing behind; tagged
# output makes one well-formed command message.
source "$(dirname "$0")/common.bash"
cd "$tmp"
# What a command says on standard error, then its exit code.
said() { "$@" 2>&1 >/dev/null; echo "exit $?"; }

: > empty.bin
printf 'x' > one.bin
head -c 1048576 /dev/urandom > mb.bin
for f in empty one mb; do
  "$nxxml" attach $f.bin --element data -o $f.xml > /dev/null
  "$nxxml" extract $f.xml -o $f.out > /dev/null
  expect "$f round trip" "0" "$(cmp -s $f.bin $f.out; echo $?)"
  "$nxxml" attach $f.bin --element data > $f.std.xml
  expect "$f to standard output" "0" "$(cmp -s $f.xml $f.std.xml; echo $?)"
done

# Cut into a series, found by name inside a packet, from the joined series.
{ printf '<packet><head>abcd</head><file>'; sed -e '1s/^<data>//' -e '$s/<\/data>$//' mb.xml; printf '</file></packet>'; } > packet.xml
"$nxxml" copy packet.xml -o part --max-size 100K > /dev/null
"$nxxml" extract --joined --element file part $(ls part_* | sort -t_ -k2 -n) -o joined.out > /dev/null
expect "joined series" "0" "$(cmp -s mb.bin joined.out; echo $?)"
# Without a name: the first element whose text is base64 and not empty,
# here <head>; --embedded takes top-level elements.
"$nxxml" extract packet.xml -o first.out > /dev/null
expect "first base64 element" "$(printf 'i\xb7\x1d' | od -An -tx1)" "$(od -An -tx1 first.out)"
printf '<x>no!</x><y>TWFu</y>' > two.xml
"$nxxml" extract --embedded two.xml -o man.out > /dev/null
expect "embedded" "Man" "$(cat man.out)"

# The attach series is refused like copy's, and removed when the file fails.
expect "existing series" $'nxxml attach: mb.xml exists (an earlier output); --force replaces the series\nexit 2' \
  "$(said "$nxxml" attach one.bin --element data -o mb.xml)"
mkdir folder
expect "unreadable file" $'nxxml attach: Cannot read the file folder: Is a directory.; no file was left\nexit 1' \
  "$(said "$nxxml" attach folder --element data -o gone.xml; ls gone.xml* 2>/dev/null)"
expect "bad name" "2" "$("$nxxml" attach one.bin --element 'a b' >/dev/null 2>&1; echo $?)"

# extract refuses to overwrite, reports a missing element or bad text with
# exit 1, and leaves no file (nor temporary) behind.
printf 'old' > kept.out
expect "existing output" $'nxxml extract: kept.out exists; --force replaces it\nexit 2' \
  "$(said "$nxxml" extract one.xml -o kept.out)"
printf '<p><data>TWFu!</data></p>' > bad.xml
expect "not base64" \
  $'bad.xml: The text decoded into kept.out is not base64 (after 3 bytes); the file was removed.\nexit 1\nold' \
  "$(said "$nxxml" extract --element data --force bad.xml -o kept.out; cat kept.out)"
expect "missing element" $'one.xml: no element <nothing> in the input\nexit 1' \
  "$(said "$nxxml" extract --element nothing one.xml -o none.out)"
printf '<p><a>!</a><b/><c>  </c><d><e>TWFu</e></d></p>' > two.xml
expect "no base64 element" $'two.xml: no element of the input holds base64 text\nexit 1' \
  "$(said "$nxxml" extract two.xml -o none.out)"
expect "unreadable input" "2" "$("$nxxml" extract missing.xml -o none.out >/dev/null 2>&1; echo $?)"
expect "usage" "2" "$("$nxxml" extract one.xml >/dev/null 2>&1; echo $?)"
expect "nothing left" "" "$(ls -A | grep -e none.out -e nxxml-)"
"$nxxml" extract --force one.xml -o kept.out > /dev/null
expect "forced" "x" "$(cat kept.out)"

# Tagged: output and errors, whatever they hold, inside one command message
# that the tool itself reads as well-formed, with the exit code.
printf '<p>\001</p>' > ctl.xml
tagged=$(NX_DIAGNOSTICS=170=7 "$nxxml" check one.xml ctl.xml 2>/dev/null)
expect "tagged well-formed" "-: ok" "$(printf '%s' "$tagged" | "$nxxml" check -)"
expect "tagged exit code" '"1"' \
  "$(printf '%s' "$tagged" | "$nxxml" tokens - | jq -s -c '[.[] | select(.type == "text")] | .[-1].text')"
expect "untagged" "one.xml: ok" "$("$nxxml" check one.xml)"

exit $fail
