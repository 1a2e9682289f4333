#!/usr/bin/env python3
"""Measures the commands on a veth pair of its own beside the field's tools: what they lose and what they cost at
100000 frames/s of 1390 bytes from tcpreplay, how well a replay keeps its times, and what an idle receiver costs.

usage: in-network-namespace interfaces.py BUILD_FOLDER [--rounds N] [--frames N] [--rate FRAMES_PER_SECOND]

Commands take turns in every round. CPU: user and system time of the command alone. lateness: of each frame against
its time in the file, the earliest one taken for zero; drift: of the mean lateness between the first and the last
tenth of the frames.
"""

import argparse
import contextlib
import os
import pathlib
import re
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "support" / "python"))

from pcapng import write_file


def avtp_frame(number):
    """One of a stream of seven transport stream packets in each frame (IEEE 1722, IEC 61883-4)."""
    ts = [bytes(4) + bytes([0x47, 0x01, 0x00, 0x10 | (7 * number + i) & 15]) + bytes(184) for i in range(7)]
    data = b"".join(ts)
    cip = bytes([0x3F, 0x06, 0xC4, 56 * number & 0xFF, 0xA0, 0, 0, 0])
    avtp = bytes([0x00, 0x80, number & 0xFF, 0]) + bytes.fromhex("02005e0053000000") + bytes(8) + \
        struct.pack(">H", len(data) + 8) + b"\x5f\xa0"
    return b"\xff" * 6 + bytes.fromhex("02005e005300") + b"\x22\xf0" + avtp + cip + data


class Command:
    """A program in the background with the processor time it takes."""

    def __init__(self, words, ready, stream):
        pipes = {stream: subprocess.PIPE}
        self.process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, text=True,
                                        **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **pipes})
        self.output = getattr(self.process, stream)
        self.lines = []
        for line in self.output:
            self.lines.append(line)
            if ready in line:
                return
        raise RuntimeError(f"{words[0]} has ended: {self.lines}")

    def processor_time(self):
        threads = pathlib.Path(f"/proc/{self.process.pid}/task").glob("*/schedstat")
        return sum(int(thread.read_text().split()[0]) for thread in threads) / 1e9

    def stop(self):
        """Ends it and returns the user and system time in seconds."""
        with contextlib.suppress(ProcessLookupError):
            self.process.send_signal(signal.SIGINT)
        self.lines += self.output.readlines()
        _, _, usage = os.wait4(self.process.pid, 0)
        self.process.returncode = 0
        return usage.ru_utime + usage.ru_stime


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
    source = write_file(folder / "frames.pcapng",
                        (b"\xff" * 6 + b"\x02" * 6 + b"\x88\xb5" + number.to_bytes(4, "big") + bytes(1372)
                         for number in range(part)), 1000)
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


def lateness(times, spacing):
    late = [moment - times[0] - number * spacing for number, moment in enumerate(times)]
    tenth = len(late) // 10
    drift = statistics.mean(late[-tenth:]) - statistics.mean(late[:tenth])
    late = sorted(value - min(late) for value in late)
    return late[len(late) // 2], late[len(late) * 99 // 100], late[-1], drift


def read_times(path):
    output = subprocess.run(["tshark", "-r", path, "-T", "fields", "-e", "frame.time_epoch"], capture_output=True,
                            text=True, check=True).stdout
    return [int(second) * 10**9 + int(fraction) for second, fraction in (line.split(".") for line in output.split())]


def measure_replay(flowlane, folder, args):
    count, spacing = 10000, 1_000_000
    source = write_file(folder / "replay.pcapng", (b"\xff" * 6 + b"\x02" * 6 + b"\x88\xb5" + bytes(498) for _ in range(count)),
                        spacing)
    target = folder / "seen.pcap"
    commands = {"flowlane playpcap": [flowlane, "playpcap", source.with_suffix(""), "-n", "flw0"],
                "tcpreplay": ["tcpreplay", "-q", "-i", "flw0", source]}
    rows = {name: [] for name in commands}
    for _ in range(args.rounds):
        for name, words in commands.items():
            seen = Command(["tcpdump", "-Z", "root", "--time-stamp-precision=nano", "-B", "65536", "-i", "flw1", "-w", target],
                           "listening on", "stderr")
            process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
            _, _, usage = os.wait4(process.pid, 0)
            process.returncode = 0
            time.sleep(1.5)  # tcpdump looks at a part-filled block once a second
            seen.stop()
            times = read_times(target)
            rows[name].append((count - len(times), *lateness(times, spacing), usage.ru_utime + usage.ru_stime))
    print(f"replay of {count} frames, one a millisecond; medians, in milliseconds")
    for name, of_rounds in rows.items():
        lost, p50, p99, longest, drift, cpu = (statistics.median(column) for column in zip(*of_rounds))
        print(f"  {name:22} lost {lost:.0f}; lateness p50 {p50 / 1e6:.2f}, p99 {p99 / 1e6:.2f}, max {longest / 1e6:.2f}; "
              f"drift {drift / 1e6:.3f}; CPU {cpu:.2f} s", flush=True)


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
        for measure in (measure_capture, measure_forwarding, measure_replay, measure_idle):
            measure(flowlane, pathlib.Path(folder), args)


main()
