#!/usr/bin/python3
"""call_timing.py [-n RUNS] [-b BUILD_DIR] [--only setup|ice]

Two figures of a whole call on loopback, each beside an independent implementation measured in the
same run, with the runs of both interleaved so that they share the machine's load:

  setup: from CreateOffer to the first RTP received on both sides (the later of the two), for our
         loopback call (`mediasession call`, ICE + DTLS-SRTP) with audio only and with audio and
         video, beside two aiortc peers with audio only (aiortc_pair.py; aiortc 1.4 delivers no
         video frame on this machine, so it is compared on audio).
  ice:   from giving the offerer the answer to both sides concluded (status "connected" without
         SRTP, so no DTLS time is in it), beside the libnice-libnice pairing of
         bench/ice/ice_timing.sh ("both": the later side's conclusion from having both
         descriptions).

Prints the median and spread of each, and the ratios ours / theirs. A failed run is counted and left
out. Needs `mediasession` and `ice_nice_peer` built in BUILD_DIR (default: build), python3-aiortc,
python3-aioice and libnice. Run by hand: no test runs it.
"""
import argparse
import json
import os
import re
import statistics
import subprocess
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


def spread(values):
    if not values:
        return "n/a"
    v = sorted(values)
    p90 = v[min(len(v) - 1, int(round(0.9 * (len(v) - 1))))]
    return f"median {statistics.median(v):7.1f}  min {v[0]:7.1f}  p90 {p90:7.1f}  max {v[-1]:7.1f}  (n={len(v)})"


def ours(tool, args):
    """One `mediasession call --json` run: its document, or None when the call failed."""
    try:
        done = subprocess.run([tool, "call", "--json", "--duration", "1"] + args, capture_output=True, text=True,
                              timeout=60)
    except subprocess.TimeoutExpired:
        return None
    if done.returncode != 0:
        return None
    try:
        return json.loads(done.stdout)
    except json.JSONDecodeError:
        return None


def every_line(doc, key):
    return [line[key] for side in doc["sides"] for line in side["lines"]]


def first_rtp_both(doc):
    times = every_line(doc, "first_rtp_received_ms")
    return None if min(times) < 0 else float(max(times))


def concluded_after_answer(doc):
    times = every_line(doc, "connected_ms")
    if min(times) < 0 or doc["answer_applied_ms"] < 0:
        return None
    return float(max(times) - doc["answer_applied_ms"])


def aiortc_run():
    try:
        done = subprocess.run(["/usr/bin/python3", os.path.join(ROOT, "bench/call/aiortc_pair.py")],
                              capture_output=True, text=True, timeout=60)
    except subprocess.TimeoutExpired:
        return None
    if done.returncode != 0:
        return None
    result = json.loads(done.stdout.strip().splitlines()[-1])
    return float(max(result["first_rtp_ms"]))


def collect(name, runs, samplers):
    """Runs each sampler `runs` times, interleaved; returns {label: [values]} and failures."""
    values = {label: [] for label, _ in samplers}
    failed = {label: 0 for label, _ in samplers}
    for i in range(runs):
        for label, sample in samplers:
            v = sample()
            if v is None:
                failed[label] += 1
            else:
                values[label].append(v)
        print(f"  {name}: run {i + 1}/{runs}", file=sys.stderr, end="\r")
    print(file=sys.stderr)
    return values, failed


def ratio(a, b):
    return f"{statistics.median(a) / statistics.median(b):.2f}" if a and b else "n/a"


def setup_figure(tool, runs):
    stages = {"ours audio": [], "ours audio+video": []}

    def ours_setup(label, media):
        doc = ours(tool, ["--media", media])
        if not doc or first_rtp_both(doc) is None:
            return None
        stages[label].append((doc["answer_applied_ms"], max(every_line(doc, "connected_ms"))))
        return first_rtp_both(doc)

    samplers = [
        ("ours audio", lambda: ours_setup("ours audio", "audio")),
        ("ours audio+video", lambda: ours_setup("ours audio+video", "audio,video")),
        ("aiortc audio", aiortc_run),
    ]
    values, failed = collect("setup", runs, samplers)
    print(f"CreateOffer -> first RTP received on both sides, ms, {runs} runs each (loopback)")
    for label, _ in samplers:
        print(f"  {label:18s} {spread(values[label])}   failed {failed[label]}")
        if stages.get(label):
            answered = statistics.median(a for a, _ in stages[label])
            connected = statistics.median(c for _, c in stages[label])
            print(f"  {'':18s} medians of the steps: answer given {answered:.0f}, both connected (ICE and DTLS) "
                  f"{connected:.0f}, first RTP {statistics.median(values[label]):.0f}")
    print(f"  ratio ours audio / aiortc audio:       {ratio(values['ours audio'], values['aiortc audio'])}")
    print(f"  ratio ours audio+video / aiortc audio: {ratio(values['ours audio+video'], values['aiortc audio'])}")


def ice_figure(tool, runs, build):
    values, failed = collect("ice", runs, [
        ("ours", lambda: (lambda d: d and concluded_after_answer(d))(
            ours(tool, ["--media", "audio", "--no-srtp"]))),
    ])
    nice = subprocess.run([os.path.join(ROOT, "bench/ice/ice_timing.sh"), "-n", str(runs), "-b", build, "-p",
                           "libnice-libnice"], capture_output=True, text=True, cwd=ROOT)
    match = re.search(r"both: median\s+([0-9.]+)", nice.stdout)
    print(f"Answer given to the offerer -> both sides concluded, ms, {runs} runs (loopback, no DTLS)")
    print(f"  {'ours (audio)':18s} {spread(values['ours'])}   failed {failed['ours']}")
    print("  libnice-libnice (bench/ice/ice_timing.sh, both descriptions -> both concluded):")
    for line in nice.stdout.splitlines()[1:]:
        print("   " + line)
    if nice.returncode != 0 or not match:
        print("  libnice: no figure (" + (nice.stderr.strip() or "no output") + ")")
        return
    theirs = float(match.group(1))
    mine = statistics.median(values["ours"]) if values["ours"] else None
    print(f"  ratio ours / libnice-libnice: {mine / theirs:.2f}" if mine and theirs else "  ratio: n/a")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("-n", "--runs", type=int, default=20)
    parser.add_argument("-b", "--build", default="build")
    parser.add_argument("--only", choices=["setup", "ice"])
    args = parser.parse_args()
    build = args.build if os.path.isabs(args.build) else os.path.join(ROOT, args.build)
    tool = os.path.join(build, "tools", "mediasession")
    if not os.access(tool, os.X_OK):
        sys.exit(f"call_timing: build mediasession in {build} first")
    if args.only in (None, "setup"):
        setup_figure(tool, args.runs)
    if args.only in (None, "ice"):
        ice_figure(tool, args.runs, build)


if __name__ == "__main__":
    main()
