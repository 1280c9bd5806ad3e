#!/usr/bin/env bash
# nat_call.sh CASE TOOL TESTBED
#
# A two-process `mediasession call` across two NATs built by TESTBED (nat_testbed.sh: network
# namespaces, nftables NAT, coturn on the "public" side), each side with only its host's address,
# the testbed's STUN and TURN server, and --json. The descriptions cross one NAT through a forwarded
# TCP port; media finds its own way. CASE:
#   cone        both NATs keep ports: each line concludes on a reflexive pair, never a relayed one,
#               never a host one (the hosts cannot reach each other directly).
#   symmetric   a new port per destination on both sides: only a relay gets through; every line
#               concludes on a relayed pair on at least one side.
#   rebinding   mid-call, natA forgets its mappings and gives hostA's flows new ports: the next
#               keep-alive answer shows hostA a new mapped port, the line reconnects, both sides
#               report the new path, and media flows again both ways.
# In every case the tool exits 0 only when every line carried media both ways.
#
# Exits 77 (skipped) without root, ip netns, nft, coturn, conntrack or the testbed; the testbed
# goes down whatever happens. Its namespaces and state carry this run's own prefix, so runs of other
# engineers on the machine do not collide.
set -euo pipefail

kSkip=77
case_name=${1:-} tool=${2:-} testbed=${3:-}
skip() { echo "nat_call: SKIPPED: $*"; exit "$kSkip"; }
fail() { echo "nat_call: FAILED: $*" >&2; show; exit 1; }

[ -n "$case_name" ] && [ -x "$tool" ] || { echo "usage: $0 cone|symmetric|rebinding TOOL TESTBED" >&2; exit 2; }
case $case_name in
    cone) modes=(cone cone) ;;
    symmetric) modes=(symmetric symmetric) ;;
    # The far NAT lets any source in, so hostA's keep-alive from its new port reaches the far end and
    # its answer comes back: that answer is what tells hostA of the new mapping.
    rebinding) modes=(cone-remap fullcone) ;;
    *) echo "nat_call: unknown case $case_name" >&2; exit 2 ;;
esac
[ "$(id -u)" = 0 ] || skip "network namespaces need root"
[ -r "$testbed" ] || skip "no NAT testbed at $testbed"
for cmd in ip nft turnserver python3; do command -v "$cmd" >/dev/null || skip "$cmd is not installed"; done
[ "$case_name" != rebinding ] || command -v conntrack >/dev/null || skip "conntrack is not installed"
ip netns list >/dev/null 2>&1 || skip "ip netns does not work here"

work=$(mktemp -d)
export NTB_PREFIX="ms$$${case_name:0:3}-" NTB_STATE="$work/testbed"
tb() { bash "$testbed" "$@"; }
cleanup() {
    local rc=$?
    tb down >/dev/null 2>&1 || true
    rm -rf "$work"
    exit "$rc"
}
trap cleanup EXIT
trap 'exit 143' TERM INT HUP
show() {
    for side in A B; do
        [ -f "$work/$side.progress" ] || continue
        echo "--- side $side: progress and traces" >&2
        tail -n 60 "$work/$side.progress" | sed 's/^/  /' >&2
        [ -s "$work/$side.json" ] && sed 's/^/  json: /' "$work/$side.json" | head -80 >&2
    done
    return 0
}

started=$(date +%s%N)
tb up "${modes[@]}" 2>"$work/up.log" || { cat "$work/up.log" >&2; fail "the testbed did not come up"; }
eval "$(tb env)"
# The public side stands for the Internet, where a packet to a private address is lost on its way,
# not refused at once: coturn ends an allocation whose relayed send fails on the spot, and every
# relayed check to the other side's host candidate would do that here.
tb exec pub ip link add void0 type veth peer name void1
tb exec pub ip link set void0 up
tb exec pub ip link set void1 up
tb exec pub ip route add 10.0.0.0/8 dev void0

port=5000
servers=(--stun "$NTB_STUN1:$NTB_TURN_PORT" --turn "$NTB_TURN_USER:$NTB_TURN_PASS@$NTB_STUN1:$NTB_TURN_PORT")
if [ "$case_name" = rebinding ]; then
    # The side whose NAT rebinds offers, so it is the controlling one: only that side can nominate
    # its new pair (a controlled side's reconnect waits for a nomination that never comes).
    offer_host=hostA offer_ip=$NTB_HOSTA answer_host=hostB answer_ip=$NTB_HOSTB
    tb forward natB "$port"
    signal="$NTB_NATB_PUB:$port" duration=8
else
    offer_host=hostB offer_ip=$NTB_HOSTB answer_host=hostA answer_ip=$NTB_HOSTA
    tb forward natA "$port"
    signal="$NTB_NATA_PUB:$port" duration=3
fi
# Offerer and answerer by host: A is always hostA's side, B hostB's.
side_of() { [ "$1" = hostA ] && echo A || echo B; }
offer_side=$(side_of "$offer_host") answer_side=$(side_of "$answer_host")

tb exec "$answer_host" timeout 90 "$tool" call --listen "$answer_ip:$port" --local "$answer_ip" "${servers[@]}" \
    --json --duration "$duration" >"$work/$answer_side.json" 2>"$work/$answer_side.progress" &
answer_pid=$!
tb exec "$offer_host" timeout 90 "$tool" call --connect "$signal" --local "$offer_ip" "${servers[@]}" \
    --json --duration "$duration" >"$work/$offer_side.json" 2>"$work/$offer_side.progress" &
offer_pid=$!

marks="$work/marks"
: >"$marks"
if [ "$case_name" = rebinding ]; then
    # Once media flows both ways on hostA's side, two seconds of it, then natA forgets its mappings.
    # What each side prints after this point is told apart by its line count at the flush.
    for _ in $(seq 300); do
        grep -q "first RTP received" "$work/A.progress" 2>/dev/null && grep -q "first RTP sent" "$work/A.progress" && break
        kill -0 "$offer_pid" 2>/dev/null || break
        sleep 0.05
    done
    sleep 2
    before=$(tb exec natA conntrack -L -p udp 2>/dev/null | grep -c "src=$NTB_HOSTA" || true)
    echo "A $(wc -l <"$work/A.progress") B $(wc -l <"$work/B.progress")" >"$marks"
    tb exec natA conntrack -D -p udp >/dev/null 2>&1 || true
    echo "nat_call: natA forgot $before UDP flows of hostA"
fi
offer_rc=0 answer_rc=0
wait "$offer_pid" || offer_rc=$?
wait "$answer_pid" || answer_rc=$?
[ "$offer_rc" = 0 ] && [ "$answer_rc" = 0 ] || fail "exit codes: offerer $offer_rc, answerer $answer_rc"

python3 - "$case_name" "$work" <<'EOF' || fail "the reports do not show what $case_name must show"
import json, sys

case, work = sys.argv[1], sys.argv[2]
docs = {}
for side in ("A", "B"):
    with open(f"{work}/{side}.json") as f:
        doc = json.load(f)
    (only,) = doc["sides"]
    docs[side] = {line["mid"]: line for line in only["lines"]}
errors = []
for mid in sorted(docs["A"]):
    a, b = docs["A"][mid], docs["B"][mid]
    types = {"A": a["selected_pair"]["type"], "B": b["selected_pair"]["type"]}
    print(f"nat_call: {a['type']} mid {mid}: A {a['selected_pair']} B {b['selected_pair']}; "
          f"packets A {a['packets_sent']}/{a['packets_received']} B {b['packets_sent']}/{b['packets_received']} "
          f"(sent/received), rtt A {a['rtt_ms']} B {b['rtt_ms']}")
    if case in ("cone", "rebinding"):
        for side, t in types.items():
            if t not in ("srflx", "prflx"):
                errors.append(f"mid {mid}: side {side} concluded on a {t!r} pair, not a reflexive one")
    if case == "symmetric" and "relay" not in types.values():
        errors.append(f"mid {mid}: neither side concluded on a relayed pair: {types}")
    if case == "rebinding":
        # Media stopped at the flush and came back: received at most what was sent before the flush
        # had it not come back (the flush falls at a quarter to a third of the call); with it, all
        # but the second or so the reconnect took.
        for side, peer in (("A", b), ("B", a)):
            got, sent = docs[side][mid]["packets_received"], peer["packets_sent"]
            if got < 0.6 * sent:
                errors.append(f"mid {mid}: side {side} received {got} of the {sent} sent to it")
for e in errors:
    print("nat_call:", e, file=sys.stderr)
sys.exit(1 if errors else 0)
EOF

if [ "$case_name" = rebinding ]; then
    read -r _ a_mark _ b_mark <"$marks"
    after_a=$(tail -n +"$((a_mark + 1))" "$work/A.progress")
    after_b=$(tail -n +"$((b_mark + 1))" "$work/B.progress")
    grep -q "the heartbeat mapped port is changed" <<<"$after_a" || fail "no keep-alive answer told side A of a new mapped port"
    lines=$(grep -c '"mid"' "$work/A.json")
    for side in A B; do
        text=$([ $side = A ] && echo "$after_a" || echo "$after_b")
        moved=$(grep -cE "\): (transport changed|reconnected)$" <<<"$text" || true)
        [ "$moved" -ge "$lines" ] || fail "side $side reported a new path on $moved of $lines lines after the flush"
    done
    grep -E "\): (transport changed|reconnected)$|heartbeat mapped port" <<<"$after_a" | sed 's/^/nat_call: A after the flush: /' | cut -c1-200
    grep -E "\): (transport changed|reconnected)$" <<<"$after_b" | sed 's/^/nat_call: B after the flush: /'
fi
echo "nat_call: $case_name passed in $(( ($(date +%s%N) - started) / 1000000 )) ms"
