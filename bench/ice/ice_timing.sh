#!/usr/bin/env bash
# ice_timing.sh [-n RUNS] [-b BUILD_DIR] [-p PAIRING]...
#
# How long ICE takes on loopback, per pairing of agents: runs each pairing RUNS times (default 20)
# through tests/peers/ice/run_pair.sh and prints, for the controlling (A) and the controlled (B)
# side, the median, the spread (min, 90th percentile, max) of "conclusion_ms": the time from having
# both descriptions, when the first check goes out, to that side's conclusion; and the same for
# "both", the later of the two sides in each run. A run that fails is counted and left out of the
# figures. -p keeps only the named pairings (ours-ours, ours-libnice, libnice-ours,
# libnice-libnice, ours-aioice).
#
# Needs `mediasession` and `ice_nice_peer` built in BUILD_DIR (default: build), e.g.
#   scripts/build.sh build-ice -DMS_BENCH=OFF && bench/ice/ice_timing.sh -b build-ice
set -euo pipefail
cd "$(dirname "$0")/../.."

runs=20 build=build only=()
while getopts "n:b:p:" opt; do
    case $opt in
        n) runs=$OPTARG ;;
        b) build=$OPTARG ;;
        p) only+=("$OPTARG") ;;
        *) echo "usage: $0 [-n RUNS] [-b BUILD_DIR] [-p PAIRING]..." >&2; exit 2 ;;
    esac
done

ours="$build/tools/mediasession ice-peer"
nice=$(find "$build/tests" -name ice_nice_peer -type f -perm -u+x | head -n 1)
aioice="/usr/bin/python3 tests/peers/ice/aioice_peer.py"
[ -x "$build/tools/mediasession" ] && [ -n "$nice" ] || {
    echo "ice_timing: build mediasession and ice_nice_peer in $build first" >&2
    exit 2
}

pairings=(
    "ours-ours|$ours|$ours"
    "ours-libnice|$ours|$nice"
    "libnice-ours|$nice|$ours"
    "libnice-libnice|$nice|$nice"
    "ours-aioice|$ours|$aioice"
)

results=$(mktemp)
trap 'rm -f "$results"' EXIT
for entry in "${pairings[@]}"; do
    IFS='|' read -r name a b <<<"$entry"
    if [ ${#only[@]} -gt 0 ] && [[ ! " ${only[*]} " == *" $name "* ]]; then continue; fi
    for ((i = 0; i < runs; ++i)); do
        if line=$(tests/peers/ice/run_pair.sh --json "$a" "$b" 2>/dev/null); then
            echo "$name $line" >>"$results"
        else
            echo "$name FAILED" >>"$results"
        fi
    done
done

/usr/bin/python3 - "$results" "$runs" <<'EOF'
import json, statistics, sys

runs = int(sys.argv[2])
by = {}
for line in open(sys.argv[1]):
    name, rest = line.rstrip("\n").split(" ", 1)
    entry = by.setdefault(name, {"a": [], "b": [], "both": [], "failed": 0})
    if rest == "FAILED":
        entry["failed"] += 1
        continue
    doc = json.loads(rest)
    entry["a"].append(doc["a"]["conclusion_ms"])
    entry["b"].append(doc["b"]["conclusion_ms"])
    entry["both"].append(max(doc["a"]["conclusion_ms"], doc["b"]["conclusion_ms"]))

def spread(values):
    if not values:
        return "n/a"
    v = sorted(values)
    p90 = v[min(len(v) - 1, int(round(0.9 * (len(v) - 1))))]
    return f"median {statistics.median(v):6.1f}  min {v[0]:4d}  p90 {p90:4d}  max {v[-1]:4d}"

print(f"conclusion_ms on loopback, {runs} runs per pairing (A controlling, B controlled)")
for name, e in by.items():
    print(f"{name:16s} A: {spread(e['a'])}")
    print(f"{'':16s} B: {spread(e['b'])}   failed runs: {e['failed']}")
    print(f"{'':16s} both: {spread(e['both'])}")
EOF
