#!/usr/bin/env bash
# Installs what is missing, builds what the main job needs and nothing more (the library and the
# `mediasession` program; the tests' build directory is the same, so the second README command
# reuses all of it), and runs the main job: a loopback call between two connections.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh build --target mediasession_tool
exec build/tools/mediasession call "$@"
