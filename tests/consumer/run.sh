#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs a
# small program against it with find_package and with pkg-config.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
cmake -S "$src" -B "$tmp/cmake" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/cmake" >/dev/null
LD_LIBRARY_PATH="$tmp/prefix/lib" "$tmp/cmake/consumer"
echo " (find_package)"
libdir=$(dirname "$(find "$tmp/prefix" -name nxxmlparser.pc)")
# The .pc file names the configured prefix; point pkg-config at the scratch one.
flags=$(PKG_CONFIG_PATH="$libdir" pkg-config --define-variable=prefix="$tmp/prefix" --cflags --libs nxxmlparser)
c++ -std=c++17 "$src/main.cpp" $flags -o "$tmp/pc-consumer"
LD_LIBRARY_PATH="$libdir/.." "$tmp/pc-consumer"
echo " (pkg-config)"
