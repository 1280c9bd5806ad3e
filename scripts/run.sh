#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: a loopback call between two connections.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh build
exec build/tools/mediasession call "$@"
