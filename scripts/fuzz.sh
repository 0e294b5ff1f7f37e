#!/usr/bin/env bash
# Builds the fuzz targets as libFuzzer programs (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each registered target over its
# committed corpus for a bounded time. A crash, a leak, a timeout or a
# failed check fails the run; the input that found it is left in the build
# folder (and named on standard error) to be added to the corpus.
#   NXXML_FUZZ_SECONDS  time for each target (default 30)
#   NXXML_FUZZ_RUNS     a number of runs for each target instead of a time
#   NXXML_FUZZ_ONLY     a target name: run only that one
#   scripts/fuzz.sh [BUILD_DIR]   (default build-fuzz)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build-fuzz}
seconds=${NXXML_FUZZ_SECONDS:-30}
CC=clang-14 CXX=clang++-14 bash "$root/scripts/build.sh" "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNXXML_FUZZ=ON \
  -DNXXML_BUILD_TESTS=OFF -DNXXML_BUILD_BENCH=OFF -DNXXML_BUILD_TOOL=OFF
limit=(-max_total_time="$seconds")
[[ -n ${NXXML_FUZZ_RUNS:-} ]] && limit=(-runs="$NXXML_FUZZ_RUNS")
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1
failed=()
while read -r name binary corpus; do
  [[ -n ${NXXML_FUZZ_ONLY:-} && $name != "$NXXML_FUZZ_ONLY" ]] && continue
  # New inputs go to a scratch folder: the committed corpus stays as it is.
  work="$dir/fuzz-work/$name"
  rm -rf "$work" && mkdir -p "$work/corpus" "$work/artifacts"
  start=$(date +%s)
  if "$binary" "${limit[@]}" -timeout=10 -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1 \
       -artifact_prefix="$work/artifacts/" "$work/corpus" "$corpus" >"$work/log" 2>&1; then
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/log" | grep -o '[0-9]*$' || echo "?")
    echo "fuzz $name: $runs runs in $(($(date +%s) - start)) s, nothing found"
  else
    echo "fuzz $name: FAILED after $(($(date +%s) - start)) s; log $work/log" >&2
    tail -n 40 "$work/log" >&2
    ls "$work/artifacts" >&2 || true
    failed+=("$name")
  fi
done <"$dir/fuzzers.txt"
if ((${#failed[@]})); then
  echo "fuzz: findings in ${failed[*]}" >&2
  exit 1
fi
