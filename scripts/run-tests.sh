#!/usr/bin/env bash
# Sets up, builds, and runs every test.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" "$root/build" -DCMAKE_BUILD_TYPE=Release
cd "$root/build"
ctest --output-on-failure -j "$(nproc)"
