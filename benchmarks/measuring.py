"""What the benchmarks on network interfaces share: programs with the processor time they take, capture files, a receiver
with the kernel's time stamps, and tables."""

import contextlib
import os
import pathlib
import re
import signal
import statistics
import struct
import subprocess
import sys
import threading
import time

TOP = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests" / "support" / "python"))

import pcapng

ETHER_TYPE = b"\x88\xb5"


def use_build(build):
    """Tells the helpers of the tests which programs to take, and returns the path of the program."""
    tools = build.resolve() / "tests" / "support" / "segment"
    flowlane = build.resolve() / "source_linux" / "flowlane" / "flowlane"
    os.environ.update(FLOWLANE_SOURCE=str(TOP), FLOWLANE_BIN=str(flowlane), LANE_DUMP_BIN=str(tools / "lane-dump"),
                      LANE_SEND_BIN=str(tools / "lane-send"), FAKE_DEVICE_DIR="")
    return flowlane


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
    """A program in the background with the processor time it takes. Its line with the text ready is waited for."""

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
    over, so the stamps do not depend on when tcpdump runs. Afterwards frames() gives what came, and offset how far the
    clock of the stamps is ahead of the monotonic one, in nanoseconds."""

    # tcpdump looks at a part-filled block of its buffer once a second, and loses it when it is ended before.
    LAST_BLOCK = 2

    def __init__(self, folder, length=64, interface="flw1", direction="in"):
        self.path = folder / f"received-{interface}.pcap"
        self.dropped = None
        self.offset = real_time_minus_monotonic()
        self.command = Command(["tcpdump", "-Z", "root", "-Q", direction, "--time-stamp-precision=nano", "-s", length,
                                "-B", "131072", "-i", interface, "-w", self.path], "listening on", "stderr")

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        time.sleep(0 if kind else self.LAST_BLOCK)
        self.command.stop()
        dropped = [re.match(r"(\d+) packets? dropped by kernel", line) for line in self.command.lines]
        self.dropped = sum(int(match.group(1)) for match in dropped if match)
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


def machine():
    return f"Linux {os.uname().release.split('-')[0]}, {os.cpu_count()} cores"


def rounded(value):
    if value is None:
        return "-"
    return f"{value:.0f}" if abs(value) >= 100 or value == 0 else f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def print_table(title, rows):
    """rows: by name, the figures by their names, which are the same in all rows."""
    cells = [["", *next(iter(rows.values()))], *([name, *map(rounded, row.values())] for name, row in rows.items())]
    widths = [max(map(len, column)) for column in zip(*cells)]
    print(f"\n{title}")
    for name, *figures in cells:
        print("  ".join([name.ljust(widths[0]), *(text.rjust(width) for text, width in zip(figures, widths[1:]))]))
