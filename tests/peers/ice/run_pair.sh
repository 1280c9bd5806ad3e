#!/usr/bin/env bash
# run_pair.sh [--json] "A_CMD" "B_CMD" [-- EXTRA_ARGS...]
#
# Runs two ICE peers against each other on loopback: A controlling, B controlled. Each command gets
# "--role R --out FILE --in FILE" appended (and EXTRA_ARGS, e.g. --local ::1), where each side's out
# is the other's in. Passes when both exit 0 and both name the same pair from their own ends (A's
# local is B's remote and the other way round). With --json it prints both selected-pair lines as
# {"a":...,"b":...} on success. Temporary files and both processes go away whatever happens.
set -euo pipefail

print_json=0
if [ "${1:-}" = --json ]; then print_json=1; shift; fi
[ $# -ge 2 ] || { echo "usage: $0 [--json] A_CMD B_CMD [-- EXTRA_ARGS...]" >&2; exit 2; }
a_cmd=$1 b_cmd=$2; shift 2
[ "${1:-}" = -- ] && shift
extra=("$@")

dir=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$dir"
}
trap cleanup EXIT

# Each peer gives up by itself after 15 s; the outer limit is only for a peer that hangs, and a
# peer that hangs in its own shutdown after TERM is killed, so the test prints what it saw
# shellcheck disable=SC2086  # the commands are word lists on purpose
timeout -k 5 25 $a_cmd --role controlling --out "$dir/a.sdp" --in "$dir/b.sdp" "${extra[@]}" \
    >"$dir/a.out" 2>"$dir/a.err" &
pids+=($!)
# shellcheck disable=SC2086
timeout -k 5 25 $b_cmd --role controlled --out "$dir/b.sdp" --in "$dir/a.sdp" "${extra[@]}" \
    >"$dir/b.out" 2>"$dir/b.err" &
pids+=($!)
a_rc=0 b_rc=0
wait "${pids[0]}" || a_rc=$?
wait "${pids[1]}" || b_rc=$?
pids=()

show() {
    for side in a b; do
        echo "--- $side: exit $([ $side = a ] && echo $a_rc || echo $b_rc)" >&2
        sed 's/^/  out: /' "$dir/$side.out" >&2
        tail -n 40 "$dir/$side.err" | sed 's/^/  err: /' >&2
        [ -f "$dir/$side.sdp" ] && sed 's/^/  sdp: /' "$dir/$side.sdp" >&2
    done
}

if [ "$a_rc" != 0 ] || [ "$b_rc" != 0 ]; then
    echo "run_pair: a peer failed" >&2
    show
    exit 1
fi

/usr/bin/python3 - "$dir/a.out" "$dir/b.out" "$print_json" <<'EOF' || { show; exit 1; }
import json, sys

def selected(path):
    # The selected pair is the last JSON line; a peer may print other lines before it.
    for line in reversed(open(path).read().splitlines()):
        line = line.strip()
        if line.startswith("{"):
            return json.loads(line)
    sys.exit(f"run_pair: no JSON line in {path}")

a, b = selected(sys.argv[1]), selected(sys.argv[2])
for key in ("local", "remote", "local_type", "conclusion_ms"):
    for side, doc in (("a", a), ("b", b)):
        if key not in doc:
            sys.exit(f"run_pair: {side} printed no {key!r}")
if a["local"] != b["remote"] or a["remote"] != b["local"]:
    sys.exit(f"run_pair: the sides disagree: a {a['local']} -> {a['remote']}, b {b['local']} -> {b['remote']}")
if sys.argv[3] == "1":
    print(json.dumps({"a": a, "b": b}, separators=(",", ":")))
else:
    print(f"run_pair: agreed on {a['local']} <-> {a['remote']} "
          f"(a {a['conclusion_ms']} ms, b {b['conclusion_ms']} ms)")
EOF
