#!/usr/bin/env bash
# stun_bind_peer.sh TOOL served|silent
#   served: run under tests/peers/coturn/with_coturn.sh; `stun bind` against coturn over IPv4 and IPv6
#           must succeed and report the client socket's own address as the reflexive one.
#   silent: `stun bind` against a loopback port where nothing answers must send every copy of its
#           schedule, give up with StunResult_BindFailNoAnswer and exit 1.
set -uo pipefail
tool=$1
mode=$2
failures=0
python=python3
[ -x /usr/bin/python3 ] && python=/usr/bin/python3

# check JSON EXPRESSION...: each EXPRESSION is Python over the parsed object `o`; every failing one
# is printed.
check() {
  local out=$1
  shift
  if ! "$python" - "$out" "$@" <<'PY'
import json, sys
o = json.loads(sys.argv[1])
bad = [e for e in sys.argv[2:] if not eval(e)]
for e in bad:
    print("FAIL:", e, file=sys.stderr)
if bad:
    print(sys.argv[1], file=sys.stderr)
sys.exit(1 if bad else 0)
PY
  then
    failures=$((failures + 1))
  fi
}

case "$mode" in
served)
  for server in "127.0.0.1:$TURN_PORT" "[::1]:$TURN_PORT"; do
    out=$("$tool" stun bind "$server")
    status=$?
    check "$out" "$status == 0" "o['result'] == 'StunResult_BindOk'" "o['reflexive'] == o['local']" \
      "o['server'] == '$server'" "o['requests_sent'] == 1 and o['retransmits'] == 0"
  done
  ;;
silent)
  # A port that was free a moment ago; an unconnected UDP socket never hears the ICMP reply.
  port=$("$python" -c 'import socket; s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  out=$("$tool" stun bind "127.0.0.1:$port" --timeout-ms 8000)
  status=$?
  check "$out" "$status == 1" "o['result'] == 'StunResult_BindFailNoAnswer'" "o['requests_sent'] == 9" \
    "o['retransmits'] == 8" "o['reflexive'] is None"
  # Wrong use is refused with a usage line and status 2.
  for args in "" "127.0.0.1" "127.0.0.1:1 --timeout-ms" "127.0.0.1:1 --timeout-ms -5" "127.0.0.1:1 --bogus"; do
    # shellcheck disable=SC2086
    if "$tool" stun bind $args >/dev/null 2>&1 || [ $? -ne 2 ]; then
      echo "FAIL: 'stun bind $args' was not refused" >&2
      failures=$((failures + 1))
    fi
  done
  ;;
*)
  echo "unknown mode $mode" >&2
  exit 2
  ;;
esac
echo "$mode: $failures failed"
[ "$failures" -eq 0 ]
