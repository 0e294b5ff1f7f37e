#!/usr/bin/env bash
# Sets up, builds, and runs every test.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" "$root/build" -DCMAKE_BUILD_TYPE=Release
cd "$root/build"
# A test that needs a locale fails here when it is missing, instead of skipping.
export NXXML_REQUIRE_LOCALES=1
ctest --output-on-failure -j "$(nproc)"
