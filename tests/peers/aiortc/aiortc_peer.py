#!/usr/bin/python3
"""An aiortc peer for `mediasession call --listen` / `--connect`: trades one offer and one answer over
the call's signalling (a 4-byte big-endian length, then the SDP text), sends a tone until its standard
input closes, and then prints one JSON document of what it received and decoded.

    aiortc_peer.py answer --listen 127.0.0.1:PORT    our side offers (mediasession call --connect)
    aiortc_peer.py offer --connect 127.0.0.1:PORT    aiortc offers (mediasession call --listen)

Run with Debian's python3 (the one first on PATH may not see python3-aiortc). Every address is
127.0.0.1 and no STUN server is used: nothing leaves the machine.
"""
import argparse
import asyncio
import dataclasses
import fractions
import json
import math
import struct
import sys
import time

import aioice.ice

aioice.ice.get_host_addresses = lambda *args, **kwargs: ["127.0.0.1"]

import aiortc.codecs  # noqa: E402
import aiortc.rtcdtlstransport as dtls  # noqa: E402
import aiortc.rtcrtpreceiver as receiver  # noqa: E402
from aiortc import RTCConfiguration, RTCPeerConnection, RTCSessionDescription  # noqa: E402
from aiortc.mediastreams import AudioStreamTrack  # noqa: E402
from av import AudioFrame  # noqa: E402

# What the receive side saw, counted where aiortc handles it: RTP packets per SSRC as they reach the
# receiver, and frames out of the decoder (an exception out of a decoder counts as an error and
# would otherwise end aiortc's decoder thread silently).
seen = {"rtp": {}, "first_rtp": None, "first_frame": None, "frames": 0, "samples": 0, "rate": 0,
        "errors": [], "codec": None}


_handle_rtp = receiver.RTCRtpReceiver._handle_rtp_packet


async def _counting_rtp(self, packet, arrival_time_ms):
    stream = seen["rtp"].setdefault(packet.ssrc, {"packets": 0, "first_seq": packet.sequence_number,
                                                  "last_seq": packet.sequence_number})
    stream["packets"] += 1
    # Sequence numbers unwrapped against the last one: loss is the span less what arrived.
    delta = (packet.sequence_number - (stream["last_seq"] & 0xFFFF)) & 0xFFFF
    if delta < 0x8000:
        stream["last_seq"] += delta
    if seen["first_rtp"] is None:
        seen["first_rtp"] = time.monotonic()
    return await _handle_rtp(self, packet, arrival_time_ms)


receiver.RTCRtpReceiver._handle_rtp_packet = _counting_rtp

# Packets that decrypted but found no receiver (an SSRC or payload type the descriptions did not
# announce), by payload type: the first thing to look at when a call connects and nothing plays.
_route = dtls.RtpRouter.route_rtp


def _noting_unrouted(self, packet):
    found = _route(self, packet)
    if found is None:
        unrouted = seen.setdefault("unrouted", {})
        unrouted[packet.payload_type] = unrouted.get(packet.payload_type, 0) + 1
    return found


dtls.RtpRouter.route_rtp = _noting_unrouted


class CountingDecoder:
    def __init__(self, inner, name):
        self.inner = inner
        seen["codec"] = name

    def decode(self, encoded_frame):
        try:
            frames = self.inner.decode(encoded_frame)
        except Exception as e:  # noqa: BLE001 - any failure of the decoder is what we count
            seen["errors"].append(repr(e))
            return []
        for f in frames:
            seen["frames"] += 1
            seen["samples"] += f.samples
            seen["rate"] = f.sample_rate
            if seen["first_frame"] is None:
                seen["first_frame"] = time.monotonic()
        return frames


_get_decoder = aiortc.codecs.get_decoder
receiver.get_decoder = lambda codec: CountingDecoder(_get_decoder(codec), codec.mimeType)

if "--accept-sha1" in sys.argv:
    # The far end may name its certificate by a SHA-1 fingerprint only, which this aiortc refuses (it
    # compares SHA-256 alone). With this flag a SHA-1 fingerprint is checked as strictly: the SHA-1
    # digest of the certificate the handshake showed must equal the one in the description.
    _digest = dtls.certificate_digest

    class _Digest(str):
        """The certificate's SHA-256 text, still knowing the certificate."""

        def lower(self):
            out = _Digest(str.lower(self))
            out.x509 = self.x509
            return out

    def _knowing_digest(x509):
        out = _Digest(_digest(x509))
        out.x509 = x509
        return out

    class _Sha1(str):
        def lower(self):
            return self

        def __eq__(self, other):
            x509 = getattr(other, "x509", None)
            return x509 is not None and x509.digest("sha1").decode().lower() == str.lower(self)

        __hash__ = str.__hash__

    _start = dtls.RTCDtlsTransport.start

    async def _start_accepting_sha1(self, remoteParameters):
        for i, f in enumerate(remoteParameters.fingerprints):
            if f.algorithm.lower() == "sha-1":
                remoteParameters.fingerprints[i] = dtls.RTCDtlsFingerprint(algorithm="sha-256", value=_Sha1(f.value))
        return await _start(self, remoteParameters)

    dtls.certificate_digest = _knowing_digest
    dtls.RTCDtlsTransport.start = _start_accepting_sha1


class Tone(AudioStreamTrack):
    """A 440 Hz tone, 20 ms frames at 48 kHz, paced by the clock."""

    kind = "audio"

    def __init__(self):
        super().__init__()
        self._n = 0
        self._start = None

    async def recv(self):
        rate, samples = 48000, 960
        if self._start is None:
            self._start = time.monotonic()
        due = self._start + self._n * samples / rate
        wait = due - time.monotonic()
        if wait > 0:
            await asyncio.sleep(wait)
        frame = AudioFrame(format="s16", layout="mono", samples=samples)
        pcm = bytearray()
        for i in range(samples):
            v = int(8000 * math.sin(2 * math.pi * 440 * (self._n * samples + i) / rate))
            pcm += struct.pack("<h", v)
        frame.planes[0].update(bytes(pcm))
        frame.pts = self._n * samples
        frame.sample_rate = rate
        frame.time_base = fractions.Fraction(1, rate)
        self._n += 1
        return frame


def receive_on_offered_numbers(pc):
    """This aiortc takes media only on the payload numbers of the answer, as if an answer always
    reused the offer's; an answer may carry numbers of its own, and its sender then sends on the
    offer's. Each receiver is told the numbers of our own offer too, behind the answer's (the
    sender keeps sending on the first). Runs before the transports connect, which read the list."""
    for t in pc.getTransceivers():
        offered = {}
        for line in pc.localDescription.sdp.splitlines():
            if line.startswith("a=rtpmap:"):
                number, _, name = line[len("a=rtpmap:"):].partition(" ")
                offered[name.split("/")[0].lower()] = int(number)
        extra = []
        for c in t._codecs:
            number = offered.get(c.mimeType.split("/")[1].lower())
            if number is not None and number != c.payloadType and all(x.payloadType != number for x in t._codecs):
                extra.append(dataclasses.replace(c, payloadType=number))
        t._codecs = t._codecs + extra


async def read_description(reader):
    (length,) = struct.unpack(">I", await reader.readexactly(4))
    if length == 0 or length > 1 << 20:
        raise ValueError("description of bad length %d" % length)
    return (await reader.readexactly(length)).decode()


def write_description(writer, text):
    data = text.encode()
    writer.write(struct.pack(">I", len(data)) + data)


def split(host_port):
    host, _, port = host_port.rpartition(":")
    return host.strip("[]"), int(port)


async def run(args):
    pc = RTCPeerConnection(RTCConfiguration(iceServers=[]))
    sinks = []

    @pc.on("track")
    def on_track(track):
        async def drain():
            try:
                while True:
                    await track.recv()
            except Exception:  # noqa: BLE001 - the track ends with the call
                pass
        sinks.append(asyncio.ensure_future(drain()))

    pc.addTrack(Tone())

    result = {"role": args.role}
    start = None
    if args.role == "answer":
        host, port = split(args.listen)
        got = asyncio.get_running_loop().create_future()

        async def on_connect(reader, writer):
            if not got.done():
                got.set_result((reader, writer))

        server = await asyncio.start_server(on_connect, host, port)
        print("listening", flush=True, file=sys.stderr)
        reader, writer = await asyncio.wait_for(got, args.timeout)
        server.close()
        offer = await asyncio.wait_for(read_description(reader), args.timeout)
        start = time.monotonic()
        await pc.setRemoteDescription(RTCSessionDescription(offer, "offer"))
        await pc.setLocalDescription(await pc.createAnswer())
        write_description(writer, pc.localDescription.sdp)
        await writer.drain()
        result["remote_sdp"], result["local_sdp"] = offer, pc.localDescription.sdp
    else:
        host, port = split(args.connect)
        deadline = time.monotonic() + args.timeout
        while True:
            try:
                reader, writer = await asyncio.open_connection(host, port)
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                await asyncio.sleep(0.05)
        start = time.monotonic()
        await pc.setLocalDescription(await pc.createOffer())
        write_description(writer, pc.localDescription.sdp)
        await writer.drain()
        answer = await asyncio.wait_for(read_description(reader), args.timeout)
        result["local_sdp"], result["remote_sdp"] = pc.localDescription.sdp, answer
        await pc.setRemoteDescription(RTCSessionDescription(answer, "answer"))
        if args.receive_on_offered_numbers:
            receive_on_offered_numbers(pc)

    # Media until our side has finished (the driver closes our standard input then), bounded.
    try:
        await asyncio.wait_for(asyncio.get_running_loop().run_in_executor(None, sys.stdin.read), args.timeout)
    except asyncio.TimeoutError:
        result["timed_out"] = True
    result.update({
        "ice": pc.iceConnectionState,
        "dtls": [t.sender.transport.state for t in pc.getTransceivers() if t.sender.transport],
        "first_rtp_ms": round((seen["first_rtp"] - start) * 1000, 1) if seen["first_rtp"] else None,
        "first_frame_ms": round((seen["first_frame"] - start) * 1000, 1) if seen["first_frame"] else None,
        "codec": seen["codec"],
        "frames_decoded": seen["frames"],
        "decoded_seconds": round(seen["samples"] / seen["rate"], 3) if seen["rate"] else 0,
        "decode_errors": seen["errors"][:5],
        "unrouted_by_payload_type": seen.get("unrouted", {}),
        "streams": [{"ssrc": ssrc, "packets": s["packets"],
                     "lost": s["last_seq"] - s["first_seq"] + 1 - s["packets"]}
                    for ssrc, s in seen["rtp"].items()],
    })
    for sink in sinks:
        sink.cancel()
    await pc.close()
    writer.close()
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("role", choices=["offer", "answer"])
    parser.add_argument("--listen", default="127.0.0.1:0")
    parser.add_argument("--connect", default="")
    parser.add_argument("--timeout", type=float, default=20.0)
    parser.add_argument("--accept-sha1", action="store_true")
    parser.add_argument("--receive-on-offered-numbers", action="store_true")
    args = parser.parse_args()
    result = asyncio.run(run(args))
    print(json.dumps(result, indent=1))


if __name__ == "__main__":
    main()
