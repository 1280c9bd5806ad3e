#!/usr/bin/env bash
# many_pairs.sh RUNS AT_ONCE A_CMD B_CMD
#
# RUNS pairings of two ICE peers through run_pair.sh, AT_ONCE of them at a time. The two processes
# of a pairing start at the same instant: each waits on a shared lock of a file this script holds
# exclusively, and the lock is let go only once both wait on it. Passes when every pairing concluded
# on one pair; prints how many did, the conclusion times and the wall time.
set -euo pipefail

[ $# -eq 4 ] || { echo "usage: $0 RUNS AT_ONCE A_CMD B_CMD" >&2; exit 2; }
runs=$1 at_once=$2 a_cmd=$3 b_cmd=$4
here=$(cd "$(dirname "$0")" && pwd)
command -v flock >/dev/null || { echo "many_pairs: SKIPPED: flock is not installed"; exit 77; }

dir=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait 2>/dev/null || true; rm -rf "$dir"' EXIT

# Blocked requests on the file's lock, as the kernel lists them.
waiting() {
    local ino
    ino=$(stat -c %i "$1")
    grep -c -- "-> FLOCK .*:$ino " /proc/locks || true
}

one() {
    local n=$1 lock="$dir/go.$1" fd
    : >"$lock"
    exec {fd}>"$lock"
    flock -x "$fd"
    "$here/run_pair.sh" "flock -s $lock $a_cmd" "flock -s $lock $b_cmd" >"$dir/out.$n" 2>&1 &
    local pair=$!
    # Both peers are up and waiting (bounded: a peer that died does not hold the run).
    for _ in $(seq 500); do
        [ "$(waiting "$lock")" -ge 2 ] && break
        kill -0 "$pair" 2>/dev/null || break
        sleep 0.01
    done
    flock -u "$fd"
    exec {fd}>&-
    if wait "$pair"; then echo ok >"$dir/rc.$n"; else echo failed >"$dir/rc.$n"; fi
}

started=$(date +%s%N)
for n in $(seq 1 "$runs"); do
    while [ "$(jobs -rp | wc -l)" -ge "$at_once" ]; do wait -n || true; done
    one "$n" &
done
wait

passed=$(cat "$dir"/rc.* | grep -c '^ok$' || true)
for n in $(seq 1 "$runs"); do
    [ "$(cat "$dir/rc.$n" 2>/dev/null)" = ok ] && continue
    echo "--- run $n" >&2
    sed 's/^/  /' "$dir/out.$n" >&2 || true
done
# "run_pair: agreed on X <-> Y (a 30 ms, b 25 ms)": the later of the two conclusions of each run.
times=$(sed -n 's/.*(a \([0-9]*\) ms, b \([0-9]*\) ms).*/\1 \2/p' "$dir"/out.* | awk '{print ($1 > $2 ? $1 : $2)}' | sort -n)
median=$(awk '{a[NR]=$1} END {if (NR) print a[int((NR + 1) / 2)]; else print "-"}' <<<"$times")
slowest=$(tail -n 1 <<<"$times")
echo "many_pairs: $passed of $runs pairings concluded ($at_once at a time) in $(( ($(date +%s%N) - started) / 1000000 )) ms;" \
     "conclusion median ${median} ms, slowest ${slowest:-'-'} ms"
[ "$passed" -eq "$runs" ]
