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
# The four everyday tasks of samples/, as an application writes them.
bin="$root/build/samples"
"$bin/read_records" packet.xml
"$bin/update_values" packet.xml "$out/updated.xml"
cat "$out/updated.xml"; echo
"$bin/write_packet"
"$bin/report_error" packet.xml
if "$bin/report_error" malformed.xml; then exit 1; fi
