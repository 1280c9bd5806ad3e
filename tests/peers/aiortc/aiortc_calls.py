#!/usr/bin/python3
"""aiortc_calls.py MEDIASESSION_TOOL [CASE...]

Whole calls between `mediasession call` (two-process form) and an aiortc peer on loopback, one row of
the table per case. In each: ICE concludes and DTLS keys SRTP on both ends; aiortc decodes our audio
for at least two seconds without a decode error and loses none of our packets; our audio line
receives aiortc's packets with no loss, keyed by DTLS. A call this aiortc cannot take (a line it
has no codec for) must end promptly on both sides.

Prints one line of timings per case (offer to first RTP at the offerer, and from the offer's arrival
at the answerer), and exits 1 with every fault seen, 77 when aiortc is not installed.
"""
import json
import os
import socket
import subprocess
import sys
import tempfile
import time

SKIP = 77
PEER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "aiortc_peer.py")
PYTHON = "/usr/bin/python3"
DURATION_S = 3          # media our side carries once every line has it
MIN_DECODED_S = 2.0
CALL_TIMEOUT_S = 40
SUITE = "AES_CM_128_HMAC_SHA1_80"

# This aiortc checks a DTLS fingerprint only when it is SHA-256, and our descriptions name the
# certificate by SHA-1; and it takes media only on the payload numbers of an answer, while ours
# carry numbers of their own. The peer is told to accept both (each as strictly): without that no
# call of ours can key with it, and when it offers it drops all we send.
ACCOMMODATIONS = ["--accept-sha1", "--receive-on-offered-numbers"]


class Case:
    def __init__(self, name, we_offer, media="audio", ours=(), peer=(), fails=None):
        self.name, self.we_offer, self.media = name, we_offer, media
        self.ours, self.peer = list(ours), list(peer)
        # A call that cannot work with this aiortc: what must hold of how both sides end.
        self.fails = fails


def both_end_promptly(peer_says):
    """This aiortc cannot refuse a line (it fails the whole description instead): both sides must
    still end, promptly and by an exit of their own, the peer with the reason given."""
    def check(ours_code, peer_code, peer_err, took):
        faults = []
        if ours_code is None or ours_code < 0 or ours_code == 0:
            faults.append(f"our side ended with {ours_code}, not an error exit of its own")
        if peer_code is None or peer_code < 0:
            faults.append(f"aiortc ended with {peer_code}")
        if peer_says not in peer_err:
            faults.append(f"aiortc did not fail as expected ({peer_says})")
        if took > 10:
            faults.append(f"the call took {took:.1f} s to end")
        return faults
    return check


CASES = [
    Case("we offer, aiortc answers", we_offer=True),
    Case("aiortc offers, we answer", we_offer=False),
    Case("client type 2: we offer", we_offer=True, ours=["--client-type", "2"]),
    Case("client type 2: aiortc offers", we_offer=False, ours=["--client-type", "2"]),
    # A share line beside audio, in a profile aiortc has no codec for: it fails our offer.
    Case("we offer audio and share, aiortc cannot refuse share", we_offer=True, media="audio,share",
         fails=both_end_promptly("Failed to set remote video description")),
]


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def run_case(tool, case, workdir):
    """(faults, timings) of one call."""
    faults = []
    address = f"127.0.0.1:{free_port()}"
    role = "answer" if case.we_offer else "offer"
    peer_args = [PYTHON, PEER, role, "--timeout", str(CALL_TIMEOUT_S)] + ACCOMMODATIONS + case.peer
    peer_args += ["--listen", address] if case.we_offer else ["--connect", address]
    ours_args = [tool, "call", "--media", case.media, "--json", "--duration", str(DURATION_S),
                 "--save", workdir] + case.ours
    ours_args += ["--connect", address] if case.we_offer else ["--listen", address]
    peer_err = open(os.path.join(workdir, "peer.err"), "w+")
    ours_err = open(os.path.join(workdir, "ours.err"), "w+")
    peer = subprocess.Popen(peer_args, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=peer_err, text=True)
    ours = None
    started = time.monotonic()
    try:
        # Whichever side listens, the other tries to connect until it does, within its bound; when
        # we offer, our side starts once aiortc listens, so our times do not count its start.
        if case.we_offer:
            deadline = time.monotonic() + CALL_TIMEOUT_S
            while "listening" not in open(peer_err.name).read() and peer.poll() is None and time.monotonic() < deadline:
                time.sleep(0.02)
        ours = subprocess.Popen(ours_args, stdout=subprocess.PIPE, stderr=ours_err, text=True)
        ours_out, _ = ours.communicate(timeout=CALL_TIMEOUT_S + 20)
        peer_out, _ = peer.communicate(input="", timeout=CALL_TIMEOUT_S)
    except subprocess.TimeoutExpired:
        for p in (ours, peer):
            if p and p.poll() is None:
                p.kill()
                p.wait()
        return [f"a side did not end in time (see {workdir})"], {}
    finally:
        for p in (ours, peer):
            if p and p.poll() is None:
                p.kill()
                p.wait()
    if case.fails:
        peer_err.seek(0)
        return case.fails(ours.returncode, peer.returncode, peer_err.read(), time.monotonic() - started), {}
    try:
        report = json.loads(ours_out)
    except ValueError:
        ours_err.seek(0)
        return [f"our side exited {ours.returncode} without a report: {ours_err.read()[-800:]}"], {}
    try:
        heard = json.loads(peer_out)
    except ValueError:
        peer_err.seek(0)
        return [f"aiortc exited {peer.returncode} without a report: {peer_err.read()[-800:]}"], {}
    if ours.returncode != 0:
        faults.append(f"our side exited {ours.returncode}")

    # What aiortc received and decoded from us.
    if heard.get("ice") not in ("completed", "connected"):
        faults.append(f"aiortc's ICE ended {heard.get('ice')}")
    if not heard.get("dtls") or any(state != "connected" for state in heard["dtls"]):
        faults.append(f"aiortc's DTLS transports: {heard.get('dtls')}")
    if heard.get("decode_errors"):
        faults.append(f"aiortc's decoder failed on our audio: {heard['decode_errors']}")
    if heard.get("decoded_seconds", 0) < MIN_DECODED_S:
        faults.append(f"aiortc decoded {heard.get('decoded_seconds')} s of our audio ({heard.get('codec')}), "
                      f"under {MIN_DECODED_S}; unrouted by payload type {heard.get('unrouted_by_payload_type')}")
    for stream in heard.get("streams", []):
        if stream["lost"] != 0:
            faults.append(f"aiortc lost {stream['lost']} of our packets on SSRC {stream['ssrc']}")

    # What our side received from aiortc, line by line.
    lines = [line for side in report["sides"] for line in side["lines"]]
    audio = [line for line in lines if line["type"] == "audio"]
    if not audio:
        faults.append("our report has no audio line")
    for line in audio:
        if line["packets_received"] == 0:
            faults.append(f"our audio line (mid {line['mid']}) received nothing")
        if line["loss_percent"] != 0:
            faults.append(f"our audio line (mid {line['mid']}) lost {line['loss_percent']}%")
        if line["srtp"] != SUITE:
            faults.append(f"our audio line (mid {line['mid']}) keyed {line['srtp']}, not {SUITE}")


    first = next(iter(audio), {})
    timings = {"ours_first_rtp_ms": first.get("first_rtp_received_ms"), "aiortc_first_rtp_ms": heard.get("first_rtp_ms")}
    return faults, timings


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    if subprocess.run([PYTHON, "-c", "import aiortc"], capture_output=True).returncode != 0:
        print("aiortc is not installed (python3-aiortc): skipped", file=sys.stderr)
        return SKIP
    tool, wanted = sys.argv[1], sys.argv[2:]
    failed = 0
    for case in CASES:
        if wanted and case.name not in wanted:
            continue
        workdir = tempfile.mkdtemp(prefix="aiortc-call-")
        faults, timings = run_case(tool, case, workdir)
        offerer, answerer = ("ours", "aiortc") if case.we_offer else ("aiortc", "ours")
        print(f"{'FAIL' if faults else 'ok  '} {case.name}: first RTP at the offerer ({offerer}) "
              f"{timings.get(offerer + '_first_rtp_ms')} ms after its offer, at the answerer ({answerer}) "
              f"{timings.get(answerer + '_first_rtp_ms')} ms after the offer came", flush=True)
        for fault in faults:
            print(f"     {fault}")
        if faults:
            failed += 1
            print(f"     (descriptions and logs in {workdir})")
        else:
            subprocess.run(["rm", "-rf", workdir])
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
