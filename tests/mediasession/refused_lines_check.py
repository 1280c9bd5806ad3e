#!/usr/bin/python3
"""refused_lines_check.py MEDIASESSION_TOOL

Two-process calls on loopback where the sides have different lines: what one side has and the other
has not is refused in the answer (port 0). Each row: both sides exit 0 within a bound well under the
connect time-out (a refused line is not waited for), the report of each side marks exactly the
lines expected as refused, and every other line received media.
"""
import json
import socket
import subprocess
import sys
import time

BOUND_S = 15  # far under the 30 s a side would wait for a line that never connects


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


# (name, offerer's lines, answerer's lines, refused at the offerer, refused at the answerer)
ROWS = [
    ("the answerer has no share line", "share,audio", "audio", {"share"}, set()),
    ("the offer has no share line", "audio", "audio,share", set(), {"share"}),
    ("each has one the other has not", "audio,video", "audio,share", {"video"}, {"share"}),
    ("nothing refused", "audio", "audio", set(), set()),
]


def lines(report):
    return [line for side in report["sides"] for line in side["lines"]]


def main():
    tool = sys.argv[1]
    failures = []
    for name, offered, answering, refused_a, refused_b in ROWS:
        address = f"127.0.0.1:{free_port()}"
        common = [tool, "call", "--json", "--duration", "1"]
        started = time.monotonic()
        b = subprocess.Popen(common + ["--media", answering, "--listen", address], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True)
        a = subprocess.Popen(common + ["--media", offered, "--connect", address], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True)
        try:
            outs = [p.communicate(timeout=BOUND_S + 30)[0] for p in (a, b)]
        except subprocess.TimeoutExpired:
            for p in (a, b):
                p.kill()
                p.wait()
            failures.append(f"{name}: a side did not end")
            continue
        took = time.monotonic() - started
        if took > BOUND_S:
            failures.append(f"{name}: took {took:.1f} s")
        for side, proc, out, refused in (("offerer", a, outs[0], refused_a), ("answerer", b, outs[1], refused_b)):
            if proc.returncode != 0:
                failures.append(f"{name}: the {side} exited {proc.returncode}")
            try:
                report = json.loads(out)
            except ValueError:
                failures.append(f"{name}: the {side} gave no report")
                continue
            marked = {line["type"] for line in lines(report) if line["refused"]}
            if marked != refused:
                failures.append(f"{name}: the {side} marks {sorted(marked)} refused, not {sorted(refused)}")
            for line in lines(report):
                if not line["refused"] and line["packets_received"] == 0:
                    failures.append(f"{name}: the {side}'s {line['type']} line received nothing")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
