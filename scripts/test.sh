#!/usr/bin/env bash
# Installs what is missing, then builds and runs the whole suite:
#   1. unit tests under AddressSanitizer + UndefinedBehaviorSanitizer (label "unit"),
#   2. every libFuzzer target for a bounded time (clang),
#   3. the full suite (unit, peer and slow tests) on the normal build.
# FUZZ_SECONDS (default 10) bounds each fuzz target; SKIP_SANITIZERS=1 / SKIP_FUZZ=1 skip stages.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)
# Each stage says how long it took, so a run near its time budget shows where the time goes.
stage() { echo "== $1 (at ${SECONDS}s)"; }
trap 'echo "== done in ${SECONDS}s"' EXIT

if [ "${SKIP_SANITIZERS:-0}" != 1 ]; then
  stage "unit tests under ASan+UBSan"
  # Line tables are all a sanitizer report needs; full debug info only slows the compile and link.
  scripts/build.sh build-asan -DMS_SANITIZE=address,undefined -DMS_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_FLAGS_DEBUG=-g1 -DCMAKE_CXX_FLAGS_DEBUG=-g1
  ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan -L unit -j"$jobs" --output-on-failure
fi

if [ "${SKIP_FUZZ:-0}" != 1 ]; then
  stage "fuzz targets (${FUZZ_SECONDS:-10}s each)"
  scripts/build.sh build-fuzz -DMS_FUZZ=ON -DMS_TESTS=OFF -DMS_BENCH=OFF \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo
  for f in build-fuzz/fuzzers/fuzz_*; do
    [ -x "$f" ] || continue
    name=$(basename "$f")
    work=$(mktemp -d)
    seeds=()
    [ -d "fuzz/corpus/$name" ] && seeds=("fuzz/corpus/$name")
    echo "-- $name"
    "$f" -max_total_time="${FUZZ_SECONDS:-10}" -rss_limit_mb=2048 -print_final_stats=1 "$work" "${seeds[@]}" \
      2>"$work.log" || { tail -60 "$work.log"; exit 1; }
    grep -E '^Done [0-9]+ runs' "$work.log" || true
    rm -rf "$work" "$work.log"
  done
fi

stage "full suite"
scripts/build.sh build
ctest --test-dir build -j"$jobs" --output-on-failure
