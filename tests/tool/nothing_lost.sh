# What the tool must never do: lose data, hang, or report a failure as done.
source "$(dirname "$0")/common.bash"
cd "$tmp"

# An empty input is the end of the input, not a parse error.
: > empty.xml
"$nxxml" check empty.xml 2>err; rc=$?
expect "check empty" "1|empty.xml: the input holds no element" "$rc|$(cat err)"
out=$("$nxxml" tokens empty.xml 2>err); rc=$?
expect "tokens empty" "0||" "$rc|$out|$(cat err)"
"$nxxml" check - </dev/null 2>err; rc=$?
expect "check empty stdin" "1|-: the input holds no element" "$rc|$(cat err)"

# What only the end reveals is judged, with its place (the texts are the
# library's); held-back text is delivered.
printf '<a>x</a><!' >junk.xml
printf '<a>x]]' >rsqb.xml
printf '<a/><b' >cut.xml
"$nxxml" check junk.xml 2>err; rc=$?
expect "end junk" "1|junk.xml: *** Fatal error from XML_parse(): UNCLOSED_TOKEN: unclosed token at line 1, column 8, byte 8, near \"\"" "$rc|$(cat err)"
out=$("$nxxml" copy rsqb.xml 2>err); rc=$?
expect "held-back text copied" "1|<a>x]]|nxxml copy: rsqb.xml: the input ends inside the element <a>; 3 tokens were copied" "$rc|$out|$(cat err)"
"$nxxml" check --embedded cut.xml 2>err; rc=$?
expect "embedded cut record" "1|cut.xml: *** Fatal error from XML_parse(): INVALID_TOKEN: not well-formed (invalid token) at line 1, column 14, byte 14, near \"\"" "$rc|$(cat err)"

# Write failures are errors, on standard output as in a file.
"$nxxml" copy "$samples/packet.xml" >/dev/full 2>err; rc=$?
expect "copy to a full stdout" "1|nxxml copy: writing standard output failed: No space left on device" "$rc|$(cat err)"
"$nxxml" tokens "$samples/packet.xml" >/dev/full 2>err; rc=$?
expect "tokens to a full stdout" "1|nxxml: writing standard output failed: No space left on device" "$rc|$(cat err)"

# Every input is reported in turn; the worst status wins; nothing spins.
mkdir folder
"$nxxml" check missing.xml folder "$samples/packet.xml" >out 2>err; rc=$?
expect "each input" "2|$samples/packet.xml: ok|missing.xml: cannot open: No such file or directory
folder: cannot read: Is a directory" "$rc|$(cat out)|$(cat err)"
timeout 20 "$nxxml" check --joined folder junk.xml 2>err; rc=$?
expect "joined folder" "2|folder+junk.xml: Cannot read the input folder: Is a directory." "$rc|$(cat err)"
timeout 20 "$nxxml" check --joined junk.xml missing.xml 2>err; rc=$?
expect "joined missing" "2|junk.xml+missing.xml: Cannot open the input file missing.xml: No such file or directory." "$rc|$(cat err)"

# A series never mixes with an earlier one, nor overwrites its own input.
printf '<r>' >big.xml; for i in $(seq 200); do printf '<rec n="%d">some text</rec>' "$i" >>big.xml; done; printf '</r>' >>big.xml
"$nxxml" copy big.xml -o o.xml --max-size 1K >/dev/null || fail=1
n=$(ls o.xml* | wc -l)
"$nxxml" copy "$samples/packet.xml" -o o.xml >/dev/null 2>err; rc=$?
expect "rerun refused" "2|nxxml copy: o.xml exists (an earlier output); --force replaces the series|$n" "$rc|$(cat err)|$(ls o.xml* | wc -l)"
"$nxxml" copy o.xml_2 -o o.xml --force --max-size 1K >/dev/null 2>err; rc=$?
expect "input in the series" "2|nxxml copy: the input o.xml_2 is a file of the output series o.xml|$n" "$rc|$(cat err)|$(ls o.xml* | wc -l)"
"$nxxml" copy "$samples/packet.xml" -o o.xml --force >/dev/null 2>err; rc=$?
expect "force replaces" "0||o.xml" "$rc|$(cat err)|$(ls o.xml*)"
"$nxxml" check --joined o.xml >/dev/null || fail=1
: >o.xml_3
"$nxxml" copy "$samples/packet.xml" -o o.xml --force >/dev/null 2>err; rc=$?
expect "gap refused, nothing removed" "2|nxxml copy: o.xml_3 exists apart from the series it would join; remove it or choose another output|o.xml o.xml_3" "$rc|$(cat err)|$(echo $(ls o.xml*))"

# Size limits: a token past the limit is refused at its place.
printf '<a v="%s"/>' "$(head -c 3000 /dev/zero | tr '\0' x)" >long.xml
"$nxxml" check --max-token-size 1K long.xml 2>err; rc=$?
expect "token too long" "1|long.xml: A tag or text is longer than the limit of 1024 bytes at line 1, column 0, byte 0." "$rc|$(cat err)"
"$nxxml" check --max-token-size 4K long.xml >/dev/null || fail=1
exit $fail
