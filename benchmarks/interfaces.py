#!/usr/bin/env python3
"""Measures the commands on a veth pair of its own beside the field's tools: what they lose and what they cost at
100000 frames/s of 1390 bytes from tcpreplay, and what an idle receiver costs.

usage: in-network-namespace interfaces.py BUILD_FOLDER [--rounds N] [--frames N] [--rate FRAMES_PER_SECOND]

Commands take turns in every round. CPU: user and system time of the command alone.
"""

import argparse
import pathlib
import re
import socket
import statistics
import struct
import subprocess
import tempfile
import time

from measuring import Command, numbered
from pcapng import write_file


def avtp_frame(number):
    """One of a stream of seven transport stream packets in each frame (IEEE 1722, IEC 61883-4)."""
    ts = [bytes(4) + bytes([0x47, 0x01, 0x00, 0x10 | (7 * number + i) & 15]) + bytes(184) for i in range(7)]
    data = b"".join(ts)
    cip = bytes([0x3F, 0x06, 0xC4, 56 * number & 0xFF, 0xA0, 0, 0, 0])
    avtp = bytes([0x00, 0x80, number & 0xFF, 0]) + bytes.fromhex("02005e0053000000") + bytes(8) + \
        struct.pack(">H", len(data) + 8) + b"\x5f\xa0"
    return b"\xff" * 6 + bytes.fromhex("02005e005300") + b"\x22\xf0" + avtp + cip + data


def tcpreplay(path, count, rate, frames):
    subprocess.run(["tcpreplay", "-q", "-i", "flw0", "--preload-pcap", f"--pps={rate}", f"--loop={count // frames}", path],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def report(name, rows, unit):
    """rows: (lost, sent, CPU seconds) of each round."""
    costs = [1e6 * cpu / sent for _, sent, cpu in rows]
    print(f"  {name:22} lost {' '.join(str(lost) for lost, _, _ in rows)} of {rows[0][1]} {unit}; "
          f"CPU {statistics.median(costs):.2f} s per million ({min(costs):.2f} to {max(costs):.2f})", flush=True)


def count_in(path):
    output = subprocess.run(["capinfos", "-c", "-M", "-T", "-r", path], capture_output=True, text=True, check=True).stdout
    return int(output.split("\t")[-1])


def measure_capture(flowlane, folder, args):
    part = 20000
    source = write_file(folder / "frames.pcapng", (numbered(number, 1390) for number in range(part)), 1000)
    target = folder / "captured.pcapng"
    commands = {
        "flowlane pcap": ([flowlane, "pcap", target.with_suffix(""), "-n", "flw1"], "press any key", "stdout"),
        "dumpcap -B 64": (["dumpcap", "-q", "-B", "64", "-i", "flw1", "-w", target], "File:", "stderr"),
        "tcpdump -B 65536": (["tcpdump", "-Z", "root", "-B", "65536", "-i", "flw1", "-w", target], "listening on", "stderr"),
    }
    rows = {name: [] for name in commands}
    for _ in range(args.rounds):
        for name, (words, ready, stream) in commands.items():
            command = Command(words, ready, stream)
            time.sleep(0.5)
            tcpreplay(source, args.frames, args.rate, part)
            time.sleep(0.5)
            cpu = command.stop()
            rows[name].append((args.frames - count_in(target), args.frames, cpu))
            target.unlink()
    print(f"capture of {args.rate} frames/s of 1390 bytes into a file in memory")
    for name, of_rounds in rows.items():
        report(name, of_rounds, "frames")


def measure_forwarding(flowlane, folder, args):
    part = 25600  # a whole turn of the sequence numbers
    source = write_file(folder / "stream.pcapng", map(avtp_frame, range(part)), 1000)
    unread = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    unread.bind(("127.0.0.1", 5004))
    rows = []
    for _ in range(args.rounds):
        receiver = Command([flowlane, "av2rtp", "127.0.0.1", "-p", "5004", "-n", "flw1"], "press any key", "stdout")
        sent = args.frames // part * part
        tcpreplay(source, args.frames, args.rate, part)
        time.sleep(1.5)
        cpu = receiver.stop()
        received, forwarded = next(map(int, match.groups()) for match in
                                   (re.match(r"AVTP packets received: (\d+), TS packets sent: (\d+)", line)
                                    for line in reversed(receiver.lines)) if match)
        rows.append((sent - received, sent, cpu))
        # The first packet of a stream only tells where it begins.
        assert abs(7 * received - forwarded) <= 7 * (1 + sent - received), (received, forwarded)
    print(f"forwarding of {args.rate} frames/s of 1390 bytes as RTP to a socket that nobody reads")
    unread.close()
    report("flowlane av2rtp", rows, "frames")


def measure_idle(flowlane, folder, args):
    print("idle for ten seconds")
    for words in (["pcap", folder / "idle"], ["av2rtp", "127.0.0.1"]):
        command = Command([flowlane, *words, "-n", "flw1"], "press any key", "stdout")
        time.sleep(1)
        before = command.processor_time()
        time.sleep(10)
        spent = command.processor_time() - before
        command.stop()
        print(f"  flowlane {words[0]:13} {10 * spent:.4f} % of a core", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--frames", type=int, default=1_000_000)
    parser.add_argument("--rate", type=int, default=100_000)
    args = parser.parse_args()
    for words in ("link add flw0 type veth peer name flw1", "link set flw0 up", "link set flw1 up"):
        subprocess.run(["ip", *words.split()], check=True)
    flowlane = args.build.resolve() / "source_linux" / "flowlane" / "flowlane"
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        for measure in (measure_capture, measure_forwarding, measure_idle):
            measure(flowlane, pathlib.Path(folder), args)


main()
