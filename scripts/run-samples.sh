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
"$nxxml" attach attachment.bin --element file -o "$out/attached.xml" --max-size 256
"$nxxml" extract --joined "$out"/attached.xml "$out"/attached.xml_2 "$out"/attached.xml_3 -o "$out/attachment.bin"
cmp attachment.bin "$out/attachment.bin" && echo "attachment.bin: the same bytes after attach and extract"
