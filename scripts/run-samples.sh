#!/usr/bin/env bash
# Sets up, builds, and runs the tool on the bundled samples.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" "$root/build" -DCMAKE_BUILD_TYPE=Release >/dev/null
nxxml="$root/build/tools/nxxml/nxxml"
cd "$root/samples"
set -x
"$nxxml" --version
"$nxxml" check packet.xml
"$nxxml" check --embedded fragments.xml
"$nxxml" tokens packet.xml
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
"$nxxml" copy packet.xml -o "$out/packet.xml" --max-size 256
"$nxxml" check --joined "$out"/packet.xml*
# Old packets: classified, then repaired into current UTF-8 XML.
"$nxxml" detect legacy/packet-om-gbk.xml legacy/packet-om-cp1252.xml legacy/packet-omsr1.xml legacy/packet-fmt4.xml
"$nxxml" detect --codepage 1252 legacy/packet-om-cp1252.xml
"$nxxml" clean --locale zh_CN.GBK legacy/packet-om-gbk.xml
"$nxxml" clean --locale en_US.CP1252 legacy/packet-om-cp1252.xml
"$nxxml" clean legacy/packet-omsr1.xml
"$nxxml" clean --format 4 legacy/packet-fmt4.xml
"$nxxml" tokens --format 4 legacy/packet-fmt4.xml

# A file travels as base64 inside a packet, and comes back byte for byte.
"$nxxml" attach attachment.bin --element file -o "$out/attached.xml" --max-size 256
"$nxxml" extract --joined "$out"/attached.xml "$out"/attached.xml_2 "$out"/attached.xml_3 -o "$out/attachment.bin"
cmp attachment.bin "$out/attachment.bin" && echo "attachment.bin: the same bytes after attach and extract"

# The four everyday tasks of samples/, as an application writes them.
bin="$root/build/samples"
"$bin/read_records" packet.xml
"$bin/update_values" packet.xml "$out/updated.xml"
cat "$out/updated.xml"; echo
"$bin/write_packet"
"$bin/report_error" packet.xml
if "$bin/report_error" malformed.xml; then exit 1; fi
