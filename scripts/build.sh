#!/usr/bin/env bash
# Configures and builds one configuration: build.sh DIR [cmake options...]
set -euo pipefail
dir=$1; shift
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root" -B "$dir" -G Ninja -DNXXML_WERROR=ON "$@" >/dev/null
cmake --build "$dir" -j "$(nproc)"
