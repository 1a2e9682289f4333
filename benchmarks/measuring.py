"""What the benchmarks share: rows of the table, programs with the processor time they take, a veth pair with a sender,
capture files, and a receiver with the kernel's time stamps."""

import argparse
import contextlib
import json
import os
import pathlib
import re
import signal
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

TOP = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests" / "support" / "python"))

import pcapng

SECOND = 10**9  # of nanoseconds
ETHER_TYPE = b"\x88\xb5"
# Seconds. tcpdump looks at a part-filled block of its buffer once a second, and loses it when it is ended before.
LAST_BLOCK = 1.2


class Build:
    """The folder of a build. The helpers of the tests learn here which programs to take."""

    def __init__(self, text):
        self.folder = pathlib.Path(text).resolve()
        tools = self.folder / "tests" / "support" / "segment"
        self.flowlane = self.folder / "source_linux" / "flowlane" / "flowlane"
        self.lane_send = tools / "lane-send"
        os.environ.update(FLOWLANE_SOURCE=str(TOP), FLOWLANE_BIN=str(self.flowlane), LANE_SEND_BIN=str(self.lane_send),
                          LANE_DUMP_BIN=str(tools / "lane-dump"), FAKE_DEVICE_DIR="")


def parser(description, rounds=5):
    """The options that all parts have."""
    made = argparse.ArgumentParser(description=description, formatter_class=argparse.RawTextHelpFormatter)
    made.add_argument("build", type=Build, metavar="BUILD_FOLDER")
    made.add_argument("--rounds", type=int, default=rounds, metavar="N")
    return made


def print_row(group, name, unit, ours, peers=None, goal=None, better="lower"):
    """One row of the table as a line of JSON (table.py). ours, goal and the figures of the peers may be None."""
    print(json.dumps({"group": group, "name": name, "unit": unit, "ours": ours, "peers": peers or {}, "goal": goal,
                      "better": better}), flush=True)


def take_turns(rounds, cases):
    """The results of the cases, which are functions by name, in all rounds. In every round each has its turn."""
    results = {name: [] for name in cases}
    for done in range(rounds):
        for name, call in cases.items():
            label = name if isinstance(name, str) else ", ".join(name)
            print(f"round {done + 1} of {rounds}: {label}", file=sys.stderr, flush=True)
            results[name].append(call())
    return results


def median(values):
    values = [value for value in values if value is not None]
    return statistics.median(values) if values else None


def print_medians(group, name, unit, results, **options):
    """A row with the medians of the first result's name as ours and the others as the peers."""
    ours, *peers = ((tool, median(values)) for tool, values in results.items())
    print_row(group, name, unit, ours[1], dict(peers), **options)


def print_missing(group, name, results):
    """A row with the worst rounds, if any frame is missing."""
    if any(map(any, results.values())):
        ours, *peers = ((tool, max(values, default=None)) for tool, values in results.items())
        print_row(group, f"{name}: missing, worst round", "frames", ours[1], dict(peers), goal=0)


@contextlib.contextmanager
def memory_folder():
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        yield pathlib.Path(folder)


@contextlib.contextmanager
def own_segment(name):
    """Programs started in the block use a virtual segment of this process."""
    os.environ["QUAYSIDE2_SEGMENT"] = name = f"{name}-{os.getpid()}"
    try:
        yield
    finally:
        del os.environ["QUAYSIDE2_SEGMENT"]
        for file in pathlib.Path("/dev/shm").glob(f"quayside2-*-{name}*"):
            file.unlink()


def make_link():
    import interfaces
    interfaces.make_link()


def send_frames(folder, count, length, rate=None):
    """Sends on flw0, rate frames a second or flat out."""
    if rate:
        # trafgen would send what is due in a second at once.
        part = 20_000
        path = write_times(folder / "sent.pcapng", ((0, numbered(number, length)) for number in range(part)))
        words = ["tcpreplay", "-q", "-i", "flw0", "--preload-pcap", f"--pps={rate}", f"--loop={count // part}", path]
    else:
        words = ["trafgen", "-C", "-P", "1", "-o", "flw0", "-n", str(count),
                 f"{{ fill(0xff, 6), fill(2, 6), c16(0x88b5), fill(0x5a, {length - 14}) }}"]
    subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60, check=True)


def numbered(number, length):
    return b"\xff" * 6 + b"\x02" * 6 + ETHER_TYPE + number.to_bytes(4, "big") + bytes(length - 18)


def number_in(frame):
    """The number of such a frame, None for any other."""
    return int.from_bytes(frame[14:18], "big") if frame[12:14] == ETHER_TYPE else None


def write_times(path, frames):
    """Writes a pcap-ng file. frames: pairs of a time in nanoseconds since the beginning, and a frame."""
    with path.open("wb") as file:
        file.write(pcapng.SECTION + pcapng.INTERFACE)
        for when, frame in frames:
            file.write(pcapng.packet(frame, pcapng.START + when))
    return path


class Command:
    """A program in the background with the processor time it takes. Its line with the text ready in the stream, if given,
    is waited for."""

    def __init__(self, words, ready=None, stream=None):
        pipes = {stream: subprocess.PIPE} if stream else {}
        self.process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, text=True,
                                        **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **pipes})
        self.output = getattr(self.process, stream) if stream else None
        self.lines = []
        if not stream:
            return
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
        if self.output:
            self.lines += self.output.readlines()
        _, _, usage = os.wait4(self.process.pid, 0)
        self.process.returncode = 0
        return usage.ru_utime + usage.ru_stime


def run_to_end(words, limit):
    """Runs a program, which may take limit seconds, and returns its user and system time in seconds."""
    process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    watchdog = threading.Timer(limit, process.kill)
    watchdog.start()
    try:
        _, status, usage = os.wait4(process.pid, 0)
    finally:
        watchdog.cancel()
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode:
        raise RuntimeError(f"{' '.join(map(str, words))}: ended with {process.returncode}")
    return usage.ru_utime + usage.ru_stime


class Receiver:
    """tcpdump at an end of the link, in the block. The kernel stamps a frame while the sender's system call hands it
    over, so the stamps do not depend on when tcpdump runs. Afterwards frames() gives what came."""

    def __init__(self, folder, length=64):
        self.path = folder / "received.pcap"
        self.offset = real_time_minus_monotonic()
        self.command = Command(["tcpdump", "-Z", "root", "-Q", "in", "--time-stamp-precision=nano", "-s", length,
                                "-B", "131072", "-i", "flw1", "-w", self.path], "listening on", "stderr")

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        time.sleep(0 if kind else LAST_BLOCK)
        self.command.stop()
        dropped = [re.match(r"(\d+) packets? dropped by kernel", line) for line in self.command.lines]
        if lost := sum(int(match.group(1)) for match in dropped if match):
            print(f"the receiver has lost {lost} frames, which the table calls missing", file=sys.stderr)
        moved = real_time_minus_monotonic() - self.offset
        if abs(moved) > 10_000:
            raise RuntimeError(f"somebody has set the clock, by {moved} ns")

    def frames(self):
        """(time in nanoseconds, beginning of the frame) for each frame."""
        data = self.path.read_bytes()
        self.path.unlink()
        found = []
        offset = 24
        while offset < len(data):
            seconds, fraction, captured = struct.unpack_from("<III", data, offset)
            offset += 16 + captured
            found.append((seconds * 10**9 + fraction, data[offset - captured:offset]))
        return found


def received_numbers(receiver):
    """(time, number) of the numbered frames."""
    return [(when, number) for when, number in ((when, number_in(frame)) for when, frame in receiver.frames())
            if number is not None]


def real_time_minus_monotonic():
    """In nanoseconds. The best of many readings, exact to half the time it took."""
    def reading():
        before = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        real = time.clock_gettime_ns(time.CLOCK_REALTIME)
        after = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        return after - before, real - (before + after) // 2
    return min(reading() for _ in range(1000))[1]


def slope(xs, ys):
    """Of the straight line with the least squares."""
    x_mean, y_mean = statistics.fmean(xs), statistics.fmean(ys)
    return sum((x - x_mean) * (y - y_mean) for x, y in zip(xs, ys)) / sum((x - x_mean)**2 for x in xs)


def spread(values):
    """50 and 99 of 100 values are at most so large, and the largest one; of nanoseconds, in microseconds."""
    ordered = sorted(values)
    return [value / 1000 for value in (ordered[len(ordered) // 2], ordered[len(ordered) * 99 // 100], ordered[-1])]


def centred(values):
    """How far each value is from the median."""
    middle = statistics.median(values)
    return [abs(value - middle) for value in values]
