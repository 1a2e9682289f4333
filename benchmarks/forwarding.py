#!/usr/bin/env python3
"""Measures what it costs to play a stream and forward it as RTP over UDP: ts2av and av2rtp on a segment of
their own, and multicat twice over loopback, which plays the same file and relays it the same way. A third
process receives and counts.

usage: forwarding.py BUILD_FOLDER [--seconds N] [--rate MBIT_PER_SECOND] [--rounds N]
"""

import argparse
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

PACKET = 188
PCR_PID = 0x100
CLOCK = 90000

COUNT_DATAGRAMS = """
import signal, socket, sys
receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
receiver.setsockopt(socket.SOL_SOCKET, 33, 1 << 24)  # SO_RCVBUFFORCE
receiver.bind(("127.0.0.1", 0))
ended = False
def end(*_):
    global ended
    ended = True
signal.signal(signal.SIGTERM, end)
receiver.settimeout(0.2)
print(receiver.getsockname()[1], flush=True)
buffer = bytearray(65536)
count = octets = gaps = 0
expected = None
while not ended:
    try:
        size = receiver.recv_into(buffer)
    except TimeoutError:
        continue
    sequence = buffer[2] << 8 | buffer[3]
    if expected is not None and sequence != expected:
        gaps += (sequence - expected) & 0xFFFF
    expected = (sequence + 1) & 0xFFFF
    count += 1
    octets += size - 12
print(count, octets // 188, gaps, flush=True)
"""


def write_stream(path, seconds, rate):
    """A constant-rate stream of rate packets a second with a clock reference every 20 ms."""
    every = max(1, rate // 50)
    padding = bytes(range(PACKET - 4))
    with path.open("wb") as file:
        for number in range(int(seconds * rate) // every * every + 1):
            if number % every:
                file.write(b"\x47\x01\x00" + bytes([0x10 | number & 0xF]) + padding)
                continue
            pcr = CLOCK + number * CLOCK // rate
            head = bytes([0x47, 1, 0, 0x30 | number & 0xF, 7, 0x10]) + (pcr >> 1).to_bytes(4, "big")
            file.write(head + bytes([(pcr & 1) << 7 | 0x7E, 0]) + padding[:PACKET - 12])


class Measured:
    """A process whose processor time is known when it has ended."""

    def __init__(self, *command, **options):
        self.process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, **options)

    def wait(self):
        _, status, usage = os.wait4(self.process.pid, 0)
        self.process.returncode = os.waitstatus_to_exitcode(status)
        return usage.ru_utime + usage.ru_stime

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        return self.wait()


class Counter:
    def __init__(self):
        self.process = subprocess.Popen([sys.executable, "-c", COUNT_DATAGRAMS], stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def stop(self):
        """Datagrams, packets, missing sequence numbers."""
        time.sleep(0.5)
        self.process.terminate()
        return [int(word) for word in self.process.communicate()[0].split()]


def run_flowlane(build, path):
    environment = {**os.environ, "QUAYSIDE2_SEGMENT": f"forwarding-{os.getpid()}"}
    flowlane = build / "source_linux" / "flowlane" / "flowlane"
    counter = Counter()
    quiet = {"env": environment, "stdout": subprocess.DEVNULL}
    relay = Measured(flowlane, "av2rtp", "127.0.0.1", "-p", counter.port, "-n", "lane-2", **quiet)
    time.sleep(1)
    sender_time = Measured(flowlane, "ts2av", path, "-n", "lane-1", **quiet).wait()
    time.sleep(0.5)
    relay_time = relay.stop()
    for file in pathlib.Path("/dev/shm").glob(f"quayside2-*-forwarding-{os.getpid()}*"):
        file.unlink()
    return sender_time, relay_time, counter.stop()


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def run_multicat(path):
    counter = Counter()
    port = free_port()
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    relay = Measured("multicat", f"@127.0.0.1:{port}", f"127.0.0.1:{counter.port}", **quiet)
    time.sleep(1)
    sender_time = Measured("multicat", path, f"127.0.0.1:{port}", **quiet).wait()
    time.sleep(0.5)
    return sender_time, relay.stop(), counter.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--rate", type=float, default=200)
    parser.add_argument("--rounds", type=int, default=3)
    args = parser.parse_args()
    rate = int(args.rate * 1e6 / 8 / PACKET)
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "stream.ts"
        write_stream(path, args.seconds, rate)
        packets = path.stat().st_size // PACKET
        subprocess.run(["ingests", "-p", str(PCR_PID), str(path)], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        runs = {"flowlane": lambda: run_flowlane(args.build, path), "multicat": lambda: run_multicat(path)}
        print(f"{packets} packets at {rate} a second, {args.seconds:g} s, {args.rounds} rounds; "
              "processor time in % of a core")
        results = {name: [] for name in runs}
        for _ in range(args.rounds):
            for name, run in runs.items():
                results[name].append(run())
    for name, rounds in results.items():
        sender = statistics.median(r[0] for r in rounds) / args.seconds * 100
        relay = statistics.median(r[1] for r in rounds) / args.seconds * 100
        counts = "; ".join(f"{r[2][1]} packets in {r[2][0]} datagrams, {r[2][2]} missing" for r in rounds)
        print(f"{name}: plays with {sender:.1f} %, forwards with {relay:.1f} %\n  received: {counts}")


main()
