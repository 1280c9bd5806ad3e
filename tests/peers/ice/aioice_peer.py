#!/usr/bin/python3
"""An independent ICE peer on aioice, with the same command line and output as `mediasession ice-peer`:

    aioice_peer.py --role controlling|controlled --out FILE --in FILE [--local ADDR]...

Writes its description in the libnice shape (m=, c=, a=ice-ufrag, a=ice-pwd, a=candidate lines) to
FILE through FILE.tmp and a rename, waits for the other side's, runs ICE, prints the selected pair as
one JSON line and trades datagrams over it as nice_peer.c describes. Exit 0 once the peer's datagram
arrived, 1 on failure or after 15 s. Runs with Debian's python3 (python3-aioice).
"""
import argparse
import asyncio
import json
import os
import sys
import time

import aioice
import aioice.ice

GIVE_UP_S = 15.0
POLL_IN_S = 0.005
RESEND_S = 0.05
LINGER_S = 1.0


def address_text(host, port):
    return f"[{host}]:{port}" if ":" in host else f"{host}:{port}"


def description(conn):
    lines = []
    default = conn.get_default_candidate(1)
    family = "IP6" if ":" in default.host else "IP4"
    lines.append(f"m=- {default.port} ICE/SDP")
    lines.append(f"c=IN {family} {default.host}")
    lines.append(f"a=ice-ufrag:{conn.local_username}")
    lines.append(f"a=ice-pwd:{conn.local_password}")
    for c in conn.local_candidates:
        lines.append("a=candidate:" + c.to_sdp())
    return "\n".join(lines) + "\n"


def write_atomically(path, text):
    with open(path + ".tmp", "w") as f:
        f.write(text)
    os.rename(path + ".tmp", path)


async def read_when_there(path):
    while not os.path.exists(path):
        await asyncio.sleep(POLL_IN_S)
    with open(path) as f:
        return f.read()


async def apply_remote(conn, text):
    for line in text.splitlines():
        line = line.strip()
        if line.startswith("a=ice-ufrag:"):
            conn.remote_username = line[len("a=ice-ufrag:"):]
        elif line.startswith("a=ice-pwd:"):
            conn.remote_password = line[len("a=ice-pwd:"):]
        elif line.startswith("a=candidate:"):
            await conn.add_remote_candidate(aioice.Candidate.from_sdp(line[len("a=candidate:"):]))
    await conn.add_remote_candidate(None)


async def exchange(conn):
    """Datagrams both ways, as nice_peer.c describes; True once the peer's arrived."""
    state = {"got_theirs": False, "they_got": False, "got_at": None}

    async def sender():
        while True:
            flag = 1 if state["got_theirs"] else 0
            await conn.sendto(f"ice-peer data got={flag}".encode(), 1)
            await asyncio.sleep(RESEND_S)

    send_task = asyncio.ensure_future(sender())
    try:
        while True:
            timeout = None
            if state["got_at"] is not None:
                timeout = max(0.0, LINGER_S - (time.monotonic() - state["got_at"]))
            try:
                data, _ = await asyncio.wait_for(conn.recvfrom(), timeout)
            except asyncio.TimeoutError:
                return True
            if not state["got_theirs"]:
                state["got_at"] = time.monotonic()
            state["got_theirs"] = True
            if data.endswith(b"got=1"):
                await conn.sendto(b"ice-peer data got=1", 1)
                return True
    finally:
        send_task.cancel()


async def run(args):
    locals_ = args.local or ["127.0.0.1"]
    aioice.ice.get_host_addresses = lambda *a, **k: list(locals_)
    conn = aioice.Connection(ice_controlling=args.role == "controlling", components=1,
                             use_ipv4=True, use_ipv6=True)
    try:
        await conn.gather_candidates()
        write_atomically(args.out, description(conn))
        remote = await read_when_there(getattr(args, "in"))
        both_known = time.monotonic()
        await apply_remote(conn, remote)
        await conn.connect()
        conclusion_ms = int((time.monotonic() - both_known) * 1000)
        pair = conn._nominated.get(1)  # aioice has no public accessor for the selected pair
        local = pair.local_candidate
        remote_host, remote_port = pair.remote_addr
        remote_type = next((c.type for c in conn.remote_candidates
                            if c.host == remote_host and c.port == remote_port), "prflx")
        print(json.dumps({"local": address_text(local.host, local.port),
                          "remote": address_text(remote_host, remote_port),
                          "local_type": local.type, "remote_type": remote_type,
                          "conclusion_ms": conclusion_ms}, separators=(",", ":")), flush=True)
        return 0 if await exchange(conn) else 1
    finally:
        await conn.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--role", choices=["controlling", "controlled"], required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--in", required=True)
    parser.add_argument("--local", action="append")
    args = parser.parse_args()
    try:
        return asyncio.run(asyncio.wait_for(run(args), GIVE_UP_S))
    except (asyncio.TimeoutError, ConnectionError, OSError, ValueError) as e:
        print(f"aioice_peer: {type(e).__name__}: {e}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
