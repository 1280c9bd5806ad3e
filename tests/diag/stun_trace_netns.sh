#!/usr/bin/env bash
# stun_trace_netns.sh TOOL TESTBED
# The route trace through a NAT, in network namespaces of the test's own (TESTBED is
# nat_testbed.sh, run with a prefix of this test so that nothing of anyone else's is touched):
#   - from hostA to the STUN server the document lists natA's hop (time exceeded, with its latency)
#     and then the server (success, with its latency), and a probe of the mapped address follows;
#   - towards an address whose packets are dropped, the trace ends by its limits: natA's hop, then
#     four silent hops.
# Needs root; exits 77 (skipped) with the reason otherwise.
set -uo pipefail
tool=$1
testbed=$2
python=python3
[ -x /usr/bin/python3 ] && python=/usr/bin/python3

skip() { echo "SKIP: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "network namespaces need root"
[ -x "$testbed" ] || skip "no testbed at $testbed"
for c in ip nft turnserver; do command -v "$c" >/dev/null || skip "$c is not installed"; done

export NTB_PREFIX="diagtr$$-" NTB_STATE="/run/nat_testbed-diagtr$$"
cleanup() { "$testbed" down >/dev/null 2>&1 || true; }
trap cleanup EXIT
"$testbed" up cone >"$NTB_STATE.log" 2>&1 || { cat "$NTB_STATE.log"; rm -f "$NTB_STATE.log"; echo "FAIL: testbed up"; exit 1; }
rm -f "$NTB_STATE.log"
eval "$("$testbed" env)"
failures=0

# check NAME STATUS WANT_STATUS JSON EXPRESSION...: Python over the parsed document `o`.
check() {
  local name=$1 status=$2 want=$3 out=$4
  shift 4
  if [ "$status" != "$want" ]; then
    echo "FAIL: $name: exit status $status, wanted $want"
    failures=$((failures + 1))
  fi
  "$python" - "$out" "$@" <<'PY' || { echo "FAIL: $name"; failures=$((failures + 1)); }
import json, sys
o = json.loads(sys.argv[1])
bad = [e for e in sys.argv[2:] if not eval(e)]
for e in bad:
    print("  not true:", e, file=sys.stderr)
if bad:
    print(json.dumps(o, indent=1), file=sys.stderr)
sys.exit(1 if bad else 0)
PY
}

out=$("$testbed" exec hostA "$tool" diag trace "$NTB_STUN1:$NTB_TURN_PORT" --wait-ms 500)
check "trace to the server" $? 0 "$out" \
  "o['ret'] == 0" \
  "o['trace'][0]['type'] == 'server' and o['trace'][0]['ttl'] == 1" \
  "o['trace'][0]['dest'] == '$NTB_HOSTA'.rsplit('.', 1)[0] + '.1' and o['trace'][0]['icmp_type'] == 11" \
  "o['trace'][0]['result'] == 'UNSPEC' and o['trace'][0]['rtt'] >= 0" \
  "o['trace'][1]['ttl'] == 2 and o['trace'][1]['result'] == 'success' and o['trace'][1]['dest'] == '$NTB_STUN1'" \
  "o['trace'][1]['rtt'] >= 0 and o['server_rtt'] == o['trace'][1]['rtt']" \
  "o['mapped'].startswith('$NTB_NATA_PUB:')" \
  "any(h['type'] == 'mapped' for h in o['trace'])"

# Packets to the spare address are dropped where they arrive.
ip netns exec "$NTB_NS_PUB" nft add table ip diag_silent
ip netns exec "$NTB_NS_PUB" nft add chain ip diag_silent in '{ type filter hook input priority -10; }'
ip netns exec "$NTB_NS_PUB" nft add rule ip diag_silent in ip daddr "$NTB_PEER" udp dport 3478 drop
out=$("$testbed" exec hostA "$tool" diag trace "$NTB_PEER:3478" --wait-ms 300 2>"$NTB_STATE/stderr")
check "trace to a silent address" $? 1 "$out" \
  "o['ret'] == 1 and o['server_rtt'] == '' and o['mapped'] == ''" \
  "len(o['trace']) == 5 and o['trace'][0]['icmp_type'] == 11" \
  "all(h['dest'] == '*' and h['result'] == 'UNSPEC' for h in o['trace'][1:])"
grep -q "no answer from the server within 5 hops" "$NTB_STATE/stderr" || {
  echo "FAIL: the reason on stderr: $(cat "$NTB_STATE/stderr")"
  failures=$((failures + 1))
}
echo "$failures failed"
[ "$failures" -eq 0 ]
