#!/usr/bin/env python3
"""Measures what it costs to play a stream and forward it as RTP over UDP, and what is lost: ts2av and av2rtp on a segment
of their own, and multicat twice over loopback, which plays the same file and relays it the same way.

usage: in-network-namespace forwarding.py BUILD_FOLDER [--rounds N] [--seconds N]

Nobody reads the datagrams, so no other process takes part. The kernel drops them when the socket is full.
"""

import functools
import re
import socket
import subprocess
import time

from measuring import Command, memory_folder, own_segment, parser, print_medians, run_to_end, take_turns

PACKET = 188
PCR_PID = 0x100
CLOCK = 90000


def write_stream(path, seconds, megabits):
    """A stream of constant rate. Returns the number of packets until the last clock reference, where playing ends."""
    rate = int(megabits * 1e6 / 8 / PACKET)
    every = 1600  # packets from one reference to the next: whole turns of the continuity counter
    padding = bytes(range(PACKET - 4))
    between = b"".join(b"\x47\x01\x00" + bytes([0x10 | number & 0xF]) + padding for number in range(1, every))
    count = int(seconds * rate) // every * every
    with path.open("wb") as file:
        for number in range(0, count + 1, every):
            pcr = CLOCK + number * CLOCK // rate
            head = bytes([0x47, 1, 0, 0x30, 7, 0x10]) + (pcr >> 1).to_bytes(4, "big")
            file.write(head + bytes([(pcr & 1) << 7 | 0x7E, 0]) + padding[:PACKET - 12])
            if number < count:
                file.write(between)
    subprocess.run(["ingests", "-p", str(PCR_PID), path], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return count


def unread_socket():
    unread = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    unread.bind(("127.0.0.1", 0))
    return unread, unread.getsockname()[1]


def run_flowlane(build, path, packets):
    """Processor time of the player and of the relay in microseconds a packet, and the lost packets in per cent."""
    unread, port = unread_socket()
    with unread, own_segment("forwarding"):
        relay = Command([build.flowlane, "av2rtp", "127.0.0.1", "-p", str(port), "-n", "lane-2"], "press any key", "stdout")
        time.sleep(0.5)
        playing = run_to_end([build.flowlane, "ts2av", path, "-n", "lane-1"], 60)
        time.sleep(0.5)
        relaying = relay.stop()
    sent = [re.match(r"AVTP packets received: \d+, TS packets sent: (\d+)", line) for line in relay.lines]
    forwarded = [int(match.group(1)) for match in sent if match][-1]
    return 1e6 * playing / packets, 1e6 * relaying / packets, 100 * (packets - forwarded) / packets


def run_multicat(path, packets):
    unread, port = unread_socket()
    between, entry = unread_socket()
    between.close()
    with unread:
        relay = Command(["multicat", f"@127.0.0.1:{entry}", f"127.0.0.1:{port}"])
        time.sleep(0.5)
        playing = run_to_end(["multicat", path, f"127.0.0.1:{entry}"], 60)
        time.sleep(0.5)
        relaying = relay.stop()
    return 1e6 * playing / packets, 1e6 * relaying / packets, None


def main():
    options = parser(__doc__, rounds=3)
    options.add_argument("--seconds", type=float, default=5)
    args = options.parse_args()
    for megabits in (200, 1000, 1400):
        with memory_folder() as folder:
            path = folder / "stream.ts"
            packets = write_stream(path, args.seconds, megabits)
            cases = {"flowlane": functools.partial(run_flowlane, args.build, path, packets)}
            if megabits == 200:
                cases["multicat"] = functools.partial(run_multicat, path, packets)
            results = take_turns(args.rounds, cases)
        rows = ["ts2av: CPU", "av2rtp: CPU", "lost"]
        for place in (2,) if megabits == 1400 else range(3):
            print_medians("play and forward a stream", f"{megabits} Mbit/s, {rows[place]}",
                          "%" if place == 2 else "us per packet",
                          {tool: [figures[place] for figures in rounds] for tool, rounds in results.items()},
                          goal=0 if place == 2 else None)


if __name__ == "__main__":
    main()
