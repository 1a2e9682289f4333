"""A veth pair, flw0 and flw1, in the network namespace of the test, and the tools that capture and replay on it."""

import contextlib
import pathlib
import re
import struct
import subprocess
import time

import capture
from lanes import TIMEOUT, bounded, wait_for_carriers
from tools import tool

# The line that a command prints when it runs.
RUNNING = "press any key to stop..."


def ip(*words):
    subprocess.run(["ip", *" ".join(words).split()], check=True, timeout=TIMEOUT)


def make_link():
    ip("link add flw0 address 02:00:5e:00:53:00 type veth peer name flw1 address 02:00:5e:00:53:01")
    ip("link set flw0 up")
    ip("link set flw1 up")
    wait_for_carriers()


def wait_until(read, is_good, what):
    """Reads again and again until the value is good, and returns it."""
    deadline = time.monotonic() + TIMEOUT
    while not is_good(seen := read()):
        assert time.monotonic() < deadline, f"waited in vain for {what}, saw last: {seen}"
        time.sleep(0.01)
    return seen


# tcpdump changes its user and groups. That is not possible in a user namespace, when the test does not run as root.
DUMPING = ["tcpdump", "-Z", "root", "-Q", "in", "--time-stamp-precision=nano", "-U", "-B", "65536"] \
    if pathlib.Path("/proc/self/setgroups").read_text() == "allow\n" else ["dumpcap", "-P", "-B", "64"]


class Dumping:
    """Runs tcpdump on an interface. The end of the block waits until it has written count frames, which may be set in
    the block: when tcpdump is ended, it loses what it received in the last second and did not write."""

    def __init__(self, path, interface, count=None):
        self.path = path
        self.count = count
        self.process = subprocess.Popen(
            [*DUMPING, "-i", interface, "-w", path], stderr=subprocess.PIPE, text=True)
        seen = []
        with bounded(self.process):
            while not seen or not re.match("tcpdump: listening on|File:", seen[-1]):
                seen.append(self.process.stderr.readline())
                assert seen[-1], f"{DUMPING[0]} does not listen: {seen}"

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                wait_until(lambda: len(self.frames()), lambda seen: seen >= self.count,
                           f"{self.count} frames in {self.path}")
        finally:
            self.process.terminate()
            self.process.communicate(timeout=TIMEOUT)

    def frames(self):
        """(time, frame) of each whole frame in the file so far."""
        with contextlib.suppress(struct.error):
            return capture.frames(self.path)
        return []


def capture_frames(path):
    """(time, frame) of each frame in a pcap-ng file, read through editcap."""
    converted = path.with_suffix(".pcap")
    tool("editcap", "-F", "nsecpcap", path, converted)
    return capture.frames(converted)


def write_pcap(path, frames, spacing=1_000_000):
    """A capture file for tcpreplay; spacing in nanoseconds."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHIIII", 0xA1B23C4D, 2, 4, 0, 0, 65535, 1))
        for i, frame in enumerate(frames):
            moment = 1_700_000_000 * 10**9 + i * spacing
            file.write(struct.pack("<IIII", moment // 10**9, moment % 10**9, len(frame), len(frame)) + frame)
    return path


def numbered(number, length=60, tags=""):
    frame = bytes.fromhex("02005e005301" "02005e005300" + tags + "88b5") + number.to_bytes(4, "big")
    return frame + bytes((number + i) & 0xFF for i in range(length - len(frame)))


def play_with_tcpreplay(path, *options):
    tool("tcpreplay", "-q", "-i", "flw0", *options, path)
