#!/bin/bash
# `mediasession call --sdp-only` end to end: the offer and answer it prints must read back through
# our typed model unchanged, and sdp-transform must read them as we do.
# Usage: sdp_only_check.sh TOOL [NODE CROSSCHECK_JS]
set -euo pipefail
tool=$1
node=${2:-}
crosscheck=${3:-}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

export MEDIASESSION_ALLOWED_ADDRS=127.0.0.1,::1
"$tool" call --sdp-only --media audio,video,share,audio-slide,application --insecure-logs --save "$dir" \
  >"$dir/out.txt"

for kind in offer answer; do
  "$tool" sdp parse "$dir/$kind.sdp" >"$dir/$kind.back"
  # The printer ends lines with CRLF as the text does; compare byte for byte.
  if ! cmp -s "$dir/$kind.sdp" "$dir/$kind.back"; then
    echo "the $kind does not read back unchanged:"
    diff "$dir/$kind.sdp" "$dir/$kind.back" || true
    exit 1
  fi
  # What the program printed is what it saved.
  printed=$(awk -v k="----- $kind of" 'index($0,k)==1{on=1;next} /^----- end -----/{on=0} on' "$dir/out.txt" |
    tr -d '\r')
  if [ "$printed" != "$(tr -d '\r' <"$dir/$kind.sdp")" ]; then
    echo "the printed $kind differs from the saved one"
    exit 1
  fi
  grep -q "^m=" "$dir/$kind.sdp" || { echo "the $kind has no media"; exit 1; }
done
grep -q "records of the answer: 4" "$dir/out.txt" || { echo "A did not record four lines"; exit 1; }

# Without the insecure option the keys stay out of the output.
"$tool" call --sdp-only --media audio >"$dir/masked.txt"
grep -q "^----- offer of A" "$dir/masked.txt"

if [ -n "$node" ]; then
  "$node" "$crosscheck" "$tool" "$dir" 2
fi
echo "sdp-only exchange reads back without loss"
