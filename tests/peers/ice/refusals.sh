#!/usr/bin/env bash
# refusals.sh MEDIASESSION: `ice-peer` on inputs it must refuse, one row each: the exit status (2 for a
# bad command line, 1 for a run that cannot succeed) and a part of the reason on standard error.
# The last row is a peer whose only candidate never answers: the agent's time limit must end the run.
set -uo pipefail
tool=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

head='m=- 40000 ICE/SDP\nc=IN IP4 127.0.0.1\na=ice-ufrag:u\na=ice-pwd:pppppppppppppppppppppp\n'
printf "${head}a=candidate:1 1 UDP 1 127.0.0.1 0 typ host\n" >"$dir/port0.sdp"
printf "${head}a=candidate:1 1 TCP 1 127.0.0.1 40000 typ host\n" >"$dir/tcponly.sdp"
printf 'not a description\n' >"$dir/garbage.sdp"
# UDP port 1 on loopback: nothing listens there, so no check is ever answered.
printf "${head}a=candidate:1 1 UDP 2130706431 127.0.0.1 1 typ host\n" >"$dir/silent.sdp"

failures=0
row() {  # row NAME STATUS REASON ARGS...
    local name=$1 want=$2 reason=$3
    shift 3
    local got=0
    "$tool" ice-peer "$@" >"$dir/out" 2>"$dir/err" || got=$?
    if [ "$got" != "$want" ] || ! grep -q -- "$reason" "$dir/err"; then
        echo "FAIL $name: exit $got (want $want), stderr:" >&2
        sed 's/^/  /' "$dir/err" >&2
        failures=$((failures + 1))
    else
        echo "ok   $name"
    fi
}

row no_role 2 "--role" --out "$dir/o" --in "$dir/port0.sdp"
row bad_role 2 "--role" --role leader --out "$dir/o" --in "$dir/port0.sdp"
row no_in 2 "--in" --role controlled --out "$dir/o"
row unknown_option 2 "unknown option '--fast'" --fast --role controlled --out "$dir/o" --in "$dir/port0.sdp"
row local_is_a_name 2 "not an IP address" --role controlled --out "$dir/o" --in "$dir/port0.sdp" --local localhost
row local_with_port 2 "not an IP address" --role controlled --out "$dir/o" --in "$dir/port0.sdp" --local 127.0.0.1:5
row remote_port_zero 1 "line 5: bad address" --role controlled --out "$dir/o" --in "$dir/port0.sdp"
row remote_tcp_only 1 "no UDP candidate" --role controlled --out "$dir/o" --in "$dir/tcponly.sdp"
row remote_garbage 1 "no ice-ufrag" --role controlled --out "$dir/o" --in "$dir/garbage.sdp"
row remote_silent 1 "ICE failed" --role controlling --out "$dir/o" --in "$dir/silent.sdp"
[ "$failures" = 0 ]
