#!/usr/bin/python3
"""browser_calls.py MEDIASESSION_TOOL

Whole calls between `mediasession call` (two-process form) and headless Chromium. The browser gathers
no loopback candidates, so the test runs itself in a network namespace of its own (unshare) with a
veth pair whose one addressed end, 10.99.0.1, both sides use: nothing inside can reach anything
else. A small server on 127.0.0.1 in there serves the page, bridges the descriptions to our
side's signalling and takes the page's getStats() reports.

Cases:
  - we offer, the browser answers: both ICE and DTLS conclude; the browser's inbound-rtp counts our
    packets with no loss, our audio line receives the browser's with no loss.
  - the browser offers: its audio section carries rtpmaps our codec model refuses, so the whole
    section reads as disabled and our answer refuses it (port 0); both sides end in bounded time.
  - we offer audio and screen share, the browser (audio only) refuses the share line; audio flows.

Needs root (namespaces) and chromium; exits 77 with the reason without either.
"""
import http.server
import json
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77
HERE = os.path.dirname(os.path.abspath(__file__))
ADDRESS = "10.99.0.1"
DURATION_S = 3
CALL_TIMEOUT_S = 45
SUITE = "AES_CM_128_HMAC_SHA1_80"
CHROMIUM_FLAGS = [
    "--headless=new", "--no-sandbox", "--disable-gpu", "--autoplay-policy=no-user-gesture-required",
    "--disable-features=WebRtcHideLocalIpsWithMdns", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--disable-extensions", "--no-pings",
    "--host-resolver-rules=MAP * ~NOTFOUND , EXCLUDE 127.0.0.1",
]


def m_lines(sdp):
    return [(m.group(1), int(m.group(2))) for m in re.finditer(r"^m=(\w+) (\d+) ", sdp, re.M)]


class Bridge:
    """The page's server and our side's signalling, for one call."""

    def __init__(self, sig_port):
        self.sig_port = sig_port
        self.offer = None
        self.answer = None
        self.stats = None
        self.logs = []
        self.stop = False
        self.ready = threading.Event()  # the description the page waits for
        self.page_up = threading.Event()  # the page asked for the offer or brought one
        self.sock = None

    # Signalling frames as `mediasession call` sends them: a 4-byte big-endian length, the text.
    def send(self, text):
        data = text.encode()
        self.sock.sendall(struct.pack(">I", len(data)) + data)

    def receive(self):
        def exactly(n):
            out = b""
            while len(out) < n:
                chunk = self.sock.recv(n - len(out))
                if not chunk:
                    raise ConnectionError("our side closed the signalling connection")
                out += chunk
            return out
        (length,) = struct.unpack(">I", exactly(4))
        return exactly(length).decode()

    def take_our_offer(self):
        """We offer: our side connects here and sends its offer, which the page then fetches."""
        server = socket.create_server(("127.0.0.1", self.sig_port))
        server.settimeout(CALL_TIMEOUT_S)
        self.sock, _ = server.accept()
        server.close()
        self.sock.settimeout(CALL_TIMEOUT_S)
        self.offer = self.receive()
        self.ready.set()

    def our_answer_to(self, offer):
        """The browser offers: hand it to our side, which listens, and bring back its answer."""
        self.offer = offer
        deadline = time.monotonic() + CALL_TIMEOUT_S
        while True:
            try:
                self.sock = socket.create_connection(("127.0.0.1", self.sig_port), timeout=CALL_TIMEOUT_S)
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)
        self.send(offer)
        self.answer = self.receive()
        return self.answer

    def handler(bridge):
        class Handler(http.server.BaseHTTPRequestHandler):
            def log_message(self, *args):
                pass

            def reply(self, body, kind="text/plain"):
                data = body.encode()
                self.send_response(200)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(data)))
                self.end_headers()
                self.wfile.write(data)

            def do_GET(self):
                if self.path.startswith("/offer"):
                    bridge.page_up.set()
                    bridge.ready.wait(CALL_TIMEOUT_S)
                    return self.reply(bridge.offer or "")
                with open(os.path.join(HERE, "page.html")) as f:
                    self.reply(f.read(), "text/html")

            def do_POST(self):
                body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
                if self.path == "/answer":
                    bridge.answer = body
                    bridge.send(body)
                    return self.reply("")
                if self.path == "/offer":
                    bridge.page_up.set()
                    try:
                        return self.reply(bridge.our_answer_to(body))
                    except (OSError, ConnectionError) as e:
                        bridge.logs.append(f"bridge: {e}")
                        return self.reply("")
                if self.path == "/stats":
                    bridge.stats = json.loads(body)
                    return self.reply("stop" if bridge.stop else "go on")
                bridge.logs.append(body)
                return self.reply("")
        return Handler


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def inbound_audio(stats):
    return [s for s in (stats or {}).get("stats", []) if s.get("type") == "inbound-rtp" and s.get("kind") == "audio"]


def run_case(tool, we_offer, media, check, workdir):
    sig_port, http_port = free_port(), free_port()
    bridge = Bridge(sig_port)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", http_port), bridge.handler())
    threading.Thread(target=server.serve_forever, daemon=True).start()
    if we_offer:
        threading.Thread(target=bridge.take_our_offer, daemon=True).start()
    ours_args = [tool, "call", "--media", media, "--json", "--duration", str(DURATION_S), "--local", ADDRESS,
                 "--connect" if we_offer else "--listen", f"127.0.0.1:{sig_port}"]
    profile = os.path.join(workdir, "profile")
    url = f"http://127.0.0.1:{http_port}/?role={'answer' if we_offer else 'offer'}"
    browser = subprocess.Popen(["chromium", *CHROMIUM_FLAGS, f"--user-data-dir={profile}", url],
                               stdout=subprocess.DEVNULL, stderr=open(os.path.join(workdir, "chromium.err"), "w"))
    # Our side starts once the page is up, so that its times do not count the browser's start.
    bridge.page_up.wait(CALL_TIMEOUT_S)
    ours_err = open(os.path.join(workdir, "ours.err"), "w")
    ours = subprocess.Popen(ours_args, stdout=subprocess.PIPE, stderr=ours_err, text=True)
    faults = []
    started = time.monotonic()
    try:
        out, _ = ours.communicate(timeout=CALL_TIMEOUT_S + 15)
    except subprocess.TimeoutExpired:
        ours.kill()
        out, _ = ours.communicate()
        faults.append("our side did not end in time")
    took = time.monotonic() - started
    # The browser's last counts, once our side has gone: one more report after the stop.
    seen_before = bridge.stats
    deadline = time.monotonic() + 3
    while bridge.stats is seen_before and time.monotonic() < deadline:
        time.sleep(0.05)
    bridge.stop = True
    time.sleep(0.6)
    browser.terminate()
    try:
        browser.wait(10)
    except subprocess.TimeoutExpired:
        browser.kill()
        browser.wait()
    server.shutdown()
    if bridge.sock:
        bridge.sock.close()
    for kind, text in (("offer", bridge.offer), ("answer", bridge.answer)):
        with open(os.path.join(workdir, kind + ".sdp"), "w") as f:
            f.write(text or "")
    try:
        report = json.loads(out)
    except ValueError:
        report = None
        faults.append(f"our side exited {ours.returncode} without a report")
    faults += check(ours.returncode, report, bridge)
    if check is not browser_offers:
        faults += [f"page: {line}" for line in bridge.logs]
    return faults, took, report, bridge


def our_audio(report):
    return [line for side in (report or {}).get("sides", []) for line in side["lines"] if line["type"] == "audio"]


def audio_both_ways(code, report, bridge):
    faults = []
    if code != 0:
        faults.append(f"our side exited {code}")
    inbound = inbound_audio(bridge.stats)
    if not inbound or inbound[0].get("packetsReceived", 0) == 0:
        faults.append(f"the browser counted none of our packets (connection {(bridge.stats or {}).get('connection')})")
    for s in inbound:
        if s.get("packetsLost", 0) != 0:
            faults.append(f"the browser lost {s['packetsLost']} of our packets")
    for line in our_audio(report):
        if line["packets_received"] == 0 or line["loss_percent"] != 0:
            faults.append(f"our audio line received {line['packets_received']}, lost {line['loss_percent']}%")
        if line["srtp"] != SUITE:
            faults.append(f"our audio line keyed {line['srtp']}")
    return faults


def share_refused(code, report, bridge):
    faults = audio_both_ways(code, report, bridge)
    # Our offer's lines come in the order they became ready: the share line is the video one.
    lines = m_lines(bridge.answer or "")
    if sorted(lines)[0][0] != "audio" or sorted(lines)[0][1] == 0 or ("video", 0) not in lines or len(lines) != 2:
        faults.append(f"the browser's answer does not refuse the share line alone: {lines}")
    return faults


def browser_offers(code, report, bridge):
    faults = []
    offered = bridge.offer or ""
    if "red/48000/2" not in offered:
        faults.append("the browser's offer no longer carries red/48000/2: this case may now carry media")
    lines = m_lines(bridge.answer or "")
    if not lines or lines[0] != ("audio", 0):
        faults.append(f"our answer does not refuse the audio line: {lines}")
    if report is None or code not in (0, 1):
        faults.append(f"our side ended with {code}")
    return faults


CASES = [
    ("we offer, the browser answers", True, "audio", audio_both_ways),
    ("we offer audio and share, the browser refuses share", True, "audio,share", share_refused),
    ("the browser offers; our answer refuses its audio line", False, "audio", browser_offers),
]


def inside(tool):
    for cmd in (["ip", "link", "set", "lo", "up"],
                ["ip", "link", "add", "ms0", "type", "veth", "peer", "name", "ms1"],
                ["ip", "addr", "add", f"{ADDRESS}/24", "dev", "ms0"],
                ["ip", "link", "set", "ms0", "up"], ["ip", "link", "set", "ms1", "up"],
                # The browser gathers only when it sees a default route; it leads into the pair.
                ["ip", "route", "add", "default", "dev", "ms0"]):
        subprocess.run(cmd, check=True)
    failed = 0
    for name, we_offer, media, check in CASES:
        workdir = tempfile.mkdtemp(prefix="browser-call-")
        faults, took, report, bridge = run_case(tool, we_offer, media, check, workdir)
        first = next(iter(our_audio(report)), {})
        inbound = inbound_audio(bridge.stats)
        print(f"{'FAIL' if faults else 'ok  '} {name}: {took:.1f} s; our first RTP {first.get('first_rtp_received_ms')} ms "
              f"after {'our offer' if we_offer else 'the offer came'}; the browser received "
              f"{inbound[0].get('packetsReceived') if inbound else None} packets", flush=True)
        for fault in faults:
            print(f"     {fault}")
        if check is browser_offers:
            for line in bridge.logs:
                print(f"     the page said: {line}")
        if faults:
            failed += 1
            print(f"     (logs in {workdir})")
        else:
            shutil.rmtree(workdir, ignore_errors=True)
    return 1 if failed else 0


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    if sys.argv[1] == "--inside":
        return inside(sys.argv[2])
    if os.geteuid() != 0:
        print("needs root to make a network namespace: skipped", file=sys.stderr)
        return SKIP
    if not shutil.which("chromium"):
        print("chromium is not installed: skipped", file=sys.stderr)
        return SKIP
    # A namespace of our own that ends with the processes in it.
    return subprocess.run(["unshare", "--net", "--", sys.executable, os.path.abspath(__file__), "--inside",
                           sys.argv[1]]).returncode


if __name__ == "__main__":
    sys.exit(main())
