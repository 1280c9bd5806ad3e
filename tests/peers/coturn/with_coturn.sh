#!/usr/bin/env bash
# with_coturn.sh COMMAND [ARGS...]
# Starts coturn on loopback (127.0.0.1 and ::1) on free ports with long-term credentials, runs
# COMMAND with these variables set, then stops the server whatever the outcome:
#   TURN_PORT          listening port (UDP and TCP) on 127.0.0.1 and ::1
#   TURN_USER, TURN_PASSWORD, TURN_REALM
#   TURN_LOG           the server's log file (kept until the command returns)
#   TURN_RELAY_MIN, TURN_RELAY_MAX   the relay port range
# Exits with COMMAND's status.
set -euo pipefail

free_port() {
  python3 - "$@" <<'PY'
import socket, sys
for _ in range(200):
    u = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); u.bind(("127.0.0.1", 0)); p = u.getsockname()[1]
    try:
        t = socket.socket(socket.AF_INET, socket.SOCK_STREAM); t.bind(("127.0.0.1", p)); t.close()
        u6 = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM); u6.bind(("::1", p)); u6.close()
    except OSError:
        u.close(); continue
    u.close(); print(p); sys.exit(0)
sys.exit(1)
PY
}

command -v turnserver >/dev/null || { echo "with_coturn: turnserver is not installed (package coturn)" >&2; exit 1; }
work=$(mktemp -d)
export TURN_USER=alice TURN_PASSWORD=secret TURN_REALM=example.org
export TURN_LOG="$work/turn.log"
server=""
cleanup() { [ -n "$server" ] && { kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; }; rm -rf "$work"; }
trap cleanup EXIT

# A free port can be taken by another process between its choice and coturn's bind, and coturn then
# runs without that listener: ready means coturn itself listens on the UDP port, else a new port.
for attempt in 1 2 3 4 5; do
  export TURN_PORT=$(free_port)
  base=$(( (RANDOM % 200) * 100 + 40000 ))
  export TURN_RELAY_MIN=$base TURN_RELAY_MAX=$((base + 99))
  turnserver -n --listening-ip=127.0.0.1 --listening-ip=::1 --listening-port="$TURN_PORT" \
    --relay-ip=127.0.0.1 --relay-ip=::1 --min-port="$TURN_RELAY_MIN" --max-port="$TURN_RELAY_MAX" \
    --lt-cred-mech --user="$TURN_USER:$TURN_PASSWORD" --realm="$TURN_REALM" \
    --no-tls --no-dtls --no-cli --allow-loopback-peers --userdb="$work/turn.sqlite" \
    --pidfile="$work/turn.pid" --log-file=stdout --simple-log >"$TURN_LOG" 2>&1 &
  server=$!
  ready=0
  for _ in $(seq 1 100); do
    if ss -Hlunp "sport = :$TURN_PORT" 2>/dev/null | grep -q "pid=$server,"; then ready=1; break; fi
    kill -0 "$server" 2>/dev/null || break
    sleep 0.05
  done
  [ "$ready" = 1 ] && break
  kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; server=""
  echo "with_coturn: coturn did not take port $TURN_PORT (attempt $attempt)" >&2
done
[ -n "$server" ] || { cat "$TURN_LOG" >&2; exit 1; }
set +e
"$@"
status=$?
exit $status
