#!/usr/bin/env bash
# tool_commands.sh TOOL DATA_DIR: the exchange commands of the tool, each case checked for its exit
# status and for a fragment of its output. Prints "N passed, N failed".
set -u
tool=$1
data=$2
out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
passed=0
failed=0

# check NAME STATUS STREAM FRAGMENT -- ARGS...
check() {
    local name=$1 status=$2 stream=$3 fragment=$4
    shift 5
    "$tool" "$@" >"$out" 2>"$err"
    local rc=$?
    local file=$out
    [ "$stream" = stderr ] && file=$err
    if [ "$rc" -eq "$status" ] && grep -qF -- "$fragment" "$file"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "FAILED: $name (exit $rc)"
        cat "$out" "$err"
    fi
}

check "offer prints the local group as version 1" 0 stdout "o=me 0 1 IN IP4 10.0.0.1" -- \
    sdp offer --local "$data/local_audio.sdp"
check "offer --json has no negotiated view yet" 0 stdout '{"local":null,"remote":null}' -- \
    sdp offer --local "$data/local_audio.sdp" --json
check "answer uses the local payload numbers" 0 stdout "m=audio 5000 RTP/AVP 96 0" -- \
    sdp answer --local "$data/local_audio.sdp" --offer "$data/offer_audio_video.sdp"
check "answer refuses the unmatched video line" 0 stdout "m=video 0 RTP/AVP *" -- \
    sdp answer --local "$data/local_audio.sdp" --offer "$data/offer_audio_video.sdp"
check "answer --json shows the local view" 0 stdout '"direction":"recvonly","mid":null,"formats":["96","0"]' -- \
    sdp answer --local "$data/local_audio.sdp" --offer "$data/offer_audio_video.sdp" --json
check "negotiate --json shows the peer's view" 0 stdout '"remote":{"user_name":"peer","session_version":"8"' -- \
    sdp negotiate --local "$data/local_audio.sdp" --answer "$data/answer_audio.sdp" --json
check "a refused offer text" 2 stderr "invalid sdp line" -- \
    sdp answer --local "$data/local_audio.sdp" --offer "$data/refused.sdp"
check "a refused answer text" 2 stderr "invalid sdp line" -- \
    sdp negotiate --local "$data/local_audio.sdp" --answer "$data/refused.sdp"
check "a missing file" 2 stderr "cannot read" -- \
    sdp offer --local "$data/no-such-file.sdp"
check "a missing option" 2 stderr "usage: mediasession sdp answer" -- \
    sdp answer --local "$data/local_audio.sdp"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
