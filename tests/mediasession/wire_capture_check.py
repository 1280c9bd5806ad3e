#!/usr/bin/python3
"""wire_capture_check.py MEDIASESSION_TOOL

A loopback call, read back from the wire by tshark. For each form of the call, tshark captures on
`lo` while `mediasession call --duration 2 --save DIR` runs, then reads the capture back and shows:
  - STUN Binding requests and success responses, each request with USERNAME, and every one with
    MESSAGE-INTEGRITY and a FINGERPRINT whose CRC-32 tshark finds correct;
  - with DTLS-SRTP: a ClientHello offering, and a ServerHello choosing, SRTP_AES128_CM_HMAC_SHA1_80
    in the use_srtp extension; without it, no DTLS at all;
  - RTP both ways on every m line, between the ports the offer and the answer carry, on the payload
    type the answer agreed first; its payload is the engine's synthetic frame (byte i is the
    sequence number plus i, modulo 256) only when the call runs without SRTP, and after a DTLS
    handshake tshark itself takes the stream for SRTP with an 80-bit tag.

Capturing needs root: without it the test is skipped (exit 77) with a message saying so.
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SKIP = 77
FIRST_PORT, LAST_PORT = 52000, 52199  # the lines' port ranges (audio, then video)
SUITE_80 = 0x0001  # SRTP_AES128_CM_HMAC_SHA1_80 in use_srtp
USE_SRTP = 14      # extension type


class Failures:
    """Each kind of fault once, with its first example and how often it was seen."""

    def __init__(self):
        self.seen = {}

    def add(self, kind, example):
        first, count = self.seen.get(kind, (example, 0))
        self.seen[kind] = (first, count + 1)

    def lines(self):
        return [f"{kind}: {first}" + (f" (and {count - 1} more)" if count > 1 else "")
                for kind, (first, count) in self.seen.items()]


class Case:
    def __init__(self, name, args, dtls, encrypted):
        self.name, self.args, self.dtls, self.encrypted = name, args, dtls, encrypted


CASES = [
    Case("ICE and DTLS-SRTP", [], dtls=True, encrypted=True),
    Case("ICE and SDES", ["--sdes"], dtls=False, encrypted=True),
    Case("ICE without SRTP", ["--no-srtp"], dtls=False, encrypted=False),
]


def fields(capture, display, names, extra=()):
    """Rows of the named fields of the call's packets that match the display filter."""
    command = ["tshark", "-r", capture, "-Y", f"({capture.scope}) && ({display})", "-T", "fields", "-E", "separator=\t", "-E", "aggregator=,",
               *extra]
    for name in names:
        command += ["-e", name]
    out = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return [line.split("\t") for line in out.splitlines() if line.strip()]


def media_lines(sdp_path):
    """[(kind, port, first payload type)] of the m lines of a description."""
    lines = []
    for line in open(sdp_path, encoding="ascii"):
        m = re.match(r"m=(\w+) (\d+) \S+ (\d+)", line)
        if m:
            lines.append((m.group(1), int(m.group(2)), int(m.group(3))))
    return lines


class Capture(str):
    """The capture file, and a display filter for the call's own packets: between the ports its
    descriptions carry, whatever else used the range meanwhile."""

    scope = "udp"


def capture_call(tool, args, directory):
    capture = Capture(os.path.join(directory, "call.pcap"))
    tshark = subprocess.Popen(["tshark", "-i", "lo", "-f", f"udp portrange {FIRST_PORT}-{LAST_PORT}", "-w", capture],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        # tshark says when it listens; the call starts after that.
        started = time.monotonic()
        seen = ""
        while "Capturing on" not in seen:
            line = tshark.stderr.readline()
            if not line or time.monotonic() - started > 20:
                sys.exit(f"tshark did not start: {seen}")
            seen += line
        call = subprocess.run([tool, "call", "--duration", "2", "--save", directory, *args], capture_output=True,
                              text=True, timeout=60)
        if call.returncode != 0:
            sys.exit(f"the call failed ({call.returncode}):\n{call.stdout}\n{call.stderr}")
    finally:
        tshark.send_signal(signal.SIGTERM)
        try:
            tshark.wait(timeout=10)
        except subprocess.TimeoutExpired:
            tshark.kill()
            tshark.wait()
    ports = ", ".join(str(line[1]) for name in ("offer.sdp", "answer.sdp")
                     for line in media_lines(os.path.join(directory, name)))
    capture.scope = f"udp.srcport in {{{ports}}} && udp.dstport in {{{ports}}}"
    return capture


def check_stun(capture, failures):
    rows = fields(capture, "stun", ["stun.type", "stun.att.username", "stun.att.hmac", "stun.att.crc32.status"])
    requests = [r for r in rows if int(r[0], 16) == 0x0001]
    responses = [r for r in rows if int(r[0], 16) == 0x0101]
    if not requests or not responses:
        failures.add("STUN Binding exchange missing", f"{len(requests)} requests, {len(responses)} success responses")
    for r in requests:
        if not r[1]:
            failures.add("STUN Binding request without USERNAME", r)
    for r in requests + responses:
        if not r[2] or r[3] != "1":
            failures.add("STUN without MESSAGE-INTEGRITY or a correct FINGERPRINT",
                         f"type {r[0]}, integrity {r[2]!r}, CRC-32 status {r[3]!r}")


def check_dtls(capture, case, failures):
    rows = fields(capture, "dtls.handshake.type == 1 || dtls.handshake.type == 2",
                  ["dtls.handshake.type", "dtls.handshake.extension.type", "dtls.use_srtp.protection_profile"])
    any_dtls = fields(capture, "dtls", ["frame.number"])
    if not case.dtls:
        if any_dtls:
            failures.add("DTLS in a call without DTLS-SRTP", f"{len(any_dtls)} packets")
        return
    hellos = {1: [], 2: []}
    for types, extensions, profiles in rows:
        for t in types.split(","):
            if int(t) in hellos:
                hellos[int(t)].append((extensions.split(","), [int(p, 16) for p in profiles.split(",") if p]))
    for kind, name in ((1, "ClientHello"), (2, "ServerHello")):
        if not hellos[kind]:
            failures.add(f"DTLS {name} missing", "none in the capture")
        for extensions, profiles in hellos[kind]:
            if str(USE_SRTP) not in extensions or SUITE_80 not in profiles:
                failures.add(f"DTLS {name} without use_srtp for SRTP_AES128_CM_HMAC_SHA1_80",
                             f"extensions {extensions}, profiles {profiles}")
            if kind == 2 and profiles != [SUITE_80]:
                failures.add("DTLS ServerHello chose another profile", profiles)


# The first byte of the engine's Opus frames: an Opus table of contents (CELT only, fullband, 20 ms,
# mono, one frame), so that a real decoder takes them; the rest is the synthetic frame.
OPUS_TOC = 0xF8


def cleartext(sequence, payload):
    if payload and payload[0] not in (sequence & 0xFF, OPUS_TOC):
        return False
    return all(b == (sequence + i) & 0xFF for i, b in enumerate(payload) if i > 0)


def check_rtp(capture, case, directory, failures):
    offer, answer = media_lines(os.path.join(directory, "offer.sdp")), media_lines(os.path.join(directory, "answer.sdp"))
    if len(offer) != len(answer) or not answer:
        failures.add("SDP m lines", f"{len(offer)} offered, {len(answer)} answered")
        return
    # After a DTLS handshake with use_srtp tshark itself takes the stream for SRTP: the payload is
    # then its encrypted payload, followed by the authentication tag.
    rows = fields(capture, "rtp", ["udp.srcport", "udp.dstport", "rtp.p_type", "rtp.seq", "rtp.payload",
                                   "srtp.enc_payload", "srtp.auth_tag", "rtp.setup-method"],
                  extra=("--enable-heuristic", "rtp_udp"))
    ways = {}
    for src, dst, pt, seq, clear, encrypted, tag, setup in rows:
        ports = {int(src), int(dst)}
        line = next((i for i, (o, a) in enumerate(zip(offer, answer)) if ports == {o[1], a[1]}), None)
        if line is None:
            failures.add("RTP between ports no m line carries", f"{src} -> {dst}")
            continue
        kind, _, agreed = answer[line]
        ways.setdefault(line, {}).setdefault(int(src), 0)
        ways[line][int(src)] += 1
        if int(pt) != agreed:
            failures.add(f"RTP {kind} on a payload type the answer did not agree first", f"{pt}, agreed {agreed}")
        if case.dtls and (setup != "DTLS-SRTP" or len(tag.replace(":", "")) != 20):
            failures.add(f"RTP {kind} that tshark does not take for DTLS-keyed SRTP with an 80-bit tag",
                         f"setup {setup!r}, tag {tag!r}")
        body = bytes.fromhex((clear or encrypted).replace(":", ""))
        if len(body) < 16:
            failures.add(f"RTP {kind} with a short payload", f"{len(body)} bytes")
        elif cleartext(int(seq), body[:16]) == case.encrypted:
            failures.add(f"RTP {kind} payload {'in clear' if case.encrypted else 'not in clear'}",
                         f"sequence {seq}, {body[:16].hex()}")
    for line, (kind, _, _) in enumerate(answer):
        counts = ways.get(line, {})
        if len(counts) != 2 or min(counts.values()) < 10:
            failures.add(f"RTP {kind} not both ways", f"packets by sending port {counts}")


def main():
    tool = sys.argv[1]
    if os.geteuid() != 0:
        print("wire_capture_check: SKIPPED: capturing on lo needs root")
        return SKIP
    if not shutil.which("tshark"):
        print("wire_capture_check: SKIPPED: tshark is not installed (scripts/install-deps.sh installs it)")
        return SKIP
    failed = 0
    for case in CASES:
        directory = tempfile.mkdtemp(prefix="wire-capture-")
        try:
            capture = capture_call(tool, case.args, directory)
            failures = Failures()
            check_stun(capture, failures)
            check_dtls(capture, case, failures)
            check_rtp(capture, case, directory, failures)
        finally:
            shutil.rmtree(directory, ignore_errors=True)
        lines = failures.lines()
        print(f"{'ok  ' if not lines else 'FAIL'} {case.name}")
        for line in lines:
            print(f"       {line}")
        failed += bool(lines)
    print(f"{len(CASES) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
