#!/usr/bin/env bash
# Installs what the build, the tests and the benchmarks need, if missing.
# Quick when everything is there: apt is only asked when a package is absent.
set -euo pipefail
packages=(g++ cmake ninja-build pkg-config libexpat1-dev libicu-dev libgtest-dev libgmock-dev
          libbenchmark-dev libcli11-dev nlohmann-json3-dev libxml2-dev clang-14 libclang-rt-14-dev locales
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
# Old packets are in the code page of the process's locale: the tests need
# a double-byte code page whose trail bytes can be ASCII, and a Windows
# single-byte one.
for wanted in zh_CN:GBK en_US:CP1252; do
  name=${wanted%%:*}.${wanted##*:}
  if ! locale -a 2>/dev/null | grep -qix "${name//-/}"; then
    echo "setup: generating the locale $name"
    localedef -i "${wanted%%:*}" -f "${wanted##*:}" "$name"
  fi
done
