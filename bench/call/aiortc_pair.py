#!/usr/bin/python3
"""Two aiortc peers in one process on loopback, audio only: prints one JSON line with the time from
createOffer to the first RTP packet each side received ("first_rtp_ms": [offerer, answerer]).

Run with Debian's python3 (the one first on PATH may not see python3-aiortc). Every address is
127.0.0.1 and no STUN server is used: nothing leaves the machine.
"""
import asyncio
import json
import sys
import time

import aioice.ice

aioice.ice.get_host_addresses = lambda *args, **kwargs: ["127.0.0.1"]

from aiortc import RTCConfiguration, RTCPeerConnection  # noqa: E402
from aiortc.contrib.media import MediaBlackhole  # noqa: E402
from aiortc.mediastreams import AudioStreamTrack  # noqa: E402
from aiortc.rtcrtpreceiver import RTCRtpReceiver  # noqa: E402

# The first RTP packet a receiver handles, before any decoding: the same moment our library reports
# as "first RTP received".
first_rtp = {}
_handle = RTCRtpReceiver._handle_rtp_packet


async def _noting_first(self, packet, arrival_time_ms):
    first_rtp.setdefault(id(self), time.monotonic())
    return await _handle(self, packet, arrival_time_ms)


RTCRtpReceiver._handle_rtp_packet = _noting_first


async def run(limit_s):
    config = RTCConfiguration(iceServers=[])
    a, b = RTCPeerConnection(config), RTCPeerConnection(config)
    sinks = []

    # The received audio is consumed (and dropped), as a player would.
    for pc in (a, b):
        @pc.on("track")
        def on_track(track):
            sink = MediaBlackhole()
            sink.addTrack(track)
            sinks.append(sink)

    a.addTrack(AudioStreamTrack())
    b.addTrack(AudioStreamTrack())

    start = time.monotonic()
    await a.setLocalDescription(await a.createOffer())
    await b.setRemoteDescription(a.localDescription)
    await b.setLocalDescription(await b.createAnswer())
    await a.setRemoteDescription(b.localDescription)
    for sink in sinks:
        await sink.start()
    receivers = [a.getReceivers()[0], b.getReceivers()[0]]
    deadline = start + limit_s
    while time.monotonic() < deadline and not all(id(r) in first_rtp for r in receivers):
        await asyncio.sleep(0.002)
    ok = all(id(r) in first_rtp for r in receivers)
    result = {
        "ok": ok,
        "first_rtp_ms": [round((first_rtp[id(r)] - start) * 1000, 1) if id(r) in first_rtp else None
                         for r in receivers],
    }
    for sink in sinks:
        await sink.stop()
    await a.close()
    await b.close()
    return result


if __name__ == "__main__":
    result = asyncio.run(run(float(sys.argv[1]) if len(sys.argv) > 1 else 10.0))
    print(json.dumps(result))
    sys.exit(0 if result["ok"] else 1)
