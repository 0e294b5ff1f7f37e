#!/usr/bin/env bash
# Installs the built library and tool into a fresh prefix, moves the tree
# elsewhere (an installed tree must work from wherever it is put), then
# builds and runs small programs against it with find_package and with
# pkg-config, and runs the installed nxxml. No LD_LIBRARY_PATH anywhere.
#   run.sh BUILD_DIR SAMPLES_DIR
set -euo pipefail
build=$1
samples=$2
src=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
unset LD_LIBRARY_PATH
cmake --install "$build" --prefix "$tmp/installed" >/dev/null
mv "$tmp/installed" "$tmp/moved"
prefix=$tmp/moved

cmake -S "$src" -B "$tmp/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$tmp/cmake" >/dev/null
"$tmp/cmake/consumer"
echo " (find_package)"

pc=$(dirname "$(find "$prefix" -name nxxmlparser.pc)")
libdir=$(PKG_CONFIG_PATH="$pc" pkg-config --variable=libdir nxxmlparser)
[[ $(cd "$libdir" && pwd) == "$prefix"/* ]] || { echo "pkg-config names $libdir, outside $prefix" >&2; exit 1; }
flags=$(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs nxxmlparser)
c++ -std=c++17 "$src/main.cpp" $flags -Wl,-rpath,"$libdir" -o "$tmp/pc-consumer"
"$tmp/pc-consumer"
echo " (pkg-config)"

# The README's example, run on a sample and on a broken packet.
"$tmp/cmake/example" "$samples/packet.xml" "$tmp/sent.xml"
grep -q 'op="sent"' "$tmp/sent.xml"
! grep -q 'op="insert"' "$tmp/sent.xml"
printf '<packet>\n<record op="insert"><name>x</record>\n</packet>' >"$tmp/broken.xml"
if "$tmp/cmake/example" "$tmp/broken.xml" "$tmp/out.xml" 2>"$tmp/err"; then
  echo "the example accepted a broken packet" >&2; exit 1
fi
grep -q "TAG_MISMATCH: mismatched tag at line 2, column " "$tmp/err" || { cat "$tmp/err" >&2; exit 1; }
echo "example: $(cat "$tmp/err")"

# The tool, when the build has one, runs from the moved tree as it is.
if [[ -x $build/tools/nxxml/nxxml ]]; then
  "$prefix/bin/nxxml" --version
  "$prefix/bin/nxxml" check "$samples/packet.xml"
fi
