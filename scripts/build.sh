#!/usr/bin/env bash
# build.sh DIR [cmake options...] [--target TARGET]...: configure and build into DIR with Ninja;
# with --target, only those targets and what they need.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1; shift
options=() targets=()
while (($#)); do
  if [ "$1" = --target ] && (($# > 1)); then
    targets+=(--target "$2")
    shift 2
  else
    options+=("$1")
    shift
  fi
done
cmake -S . -B "$dir" -G Ninja "${options[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)" "${targets[@]}"
