#!/usr/bin/env bash
# Installs what the build, the tests and the benchmarks need, if missing.
# Quick when everything is there: apt is only asked when a package is absent.
set -euo pipefail
packages=(g++ cmake ninja-build pkg-config libexpat1-dev libicu-dev libgtest-dev libgmock-dev
          libbenchmark-dev libcli11-dev nlohmann-json3-dev libxml2-dev
          libssl-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# Expat's security updates carry reparse deferral, which the input stream
# relies on for linear parsing of huge tokens: an older one counts as missing.
grep -q XML_SetReparseDeferralEnabled /usr/include/expat.h 2>/dev/null || missing+=(libexpat1-dev libexpat1)
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
