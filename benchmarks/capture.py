#!/usr/bin/env python3
"""Measures capture on a veth pair beside the field's tools, with the files in memory: processor time per frame and loss
at 100000 frames/s and flat out, processor time of an idle receiver, and how soon a frame is in the file.

usage: in-network-namespace capture.py BUILD_FOLDER [--rounds N] [--frames N]

The commands take turns. Processor time: user and system time of the command alone, from the first frame to its end. The
sender's processor does the kernel's part of the reception on a veth pair, so that is not in it.
"""

import functools
import os
import socket
import subprocess
import time

from measuring import Command, LAST_BLOCK, make_link, memory_folder, numbered, parser, print_medians, print_row, \
    send_frames, take_turns

RATE = 100_000


def tools(build, folder, live=False):
    """The commands by name: command line, line and stream that tell it is ready. live: each frame is to be in the file
    at once."""
    path = folder / "captured.pcapng"
    flush = ["-U"] if live else []
    return {
        "flowlane": ([build.flowlane, "pcap", path.with_suffix(""), "-n", "flw1"], "press any key", "stdout"),
        "dumpcap -B 64": (["dumpcap", "-q", "-B", "64", "-i", "flw1", "-w", path], "File:", "stderr"),
        "tcpdump -B 65536": (["tcpdump", "-Z", "root", *flush, "-B", "65536", "-i", "flw1", "-w", path], "listening on",
                             "stderr"),
        "netsniff-ng": (["netsniff-ng", "--in", "flw1", "--out", path, "--silent", "-A", "-Q", "--ring-size", "64MiB"],
                        "Running", "stdout"),
    }


def count_in(path):
    output = subprocess.run(["capinfos", "-c", "-M", "-T", "-r", path], capture_output=True, text=True, check=True).stdout
    return int(output.split("\t")[-1])


def touch_memory(folder, octets):
    """A virtual machine may get memory from its host only when it is touched. That is not for the first command to pay."""
    path = folder / "touched"
    with path.open("wb") as file:
        for _ in range(octets >> 20):
            file.write(bytes(1 << 20))
    path.unlink()


def capture_once(folder, tool, frames, length, rate):
    """Processor seconds per million frames, and the lost frames in per cent."""
    touch_memory(folder, frames * (length + 60))
    command = Command(*tool)
    time.sleep(0.4)
    before = command.processor_time()
    send_frames(folder, frames, length, rate)
    time.sleep(LAST_BLOCK)
    seconds = command.stop() - before
    path = folder / "captured.pcapng"
    lost = frames - count_in(path)
    path.unlink()
    return 1e6 * seconds / frames, 100 * lost / frames


def measure_load(build, folder, args):
    for length in (128, 1514):
        # About a second in each case.
        for rate, frames in ((RATE, RATE), (None, args.frames if length == 128 else args.frames // 2)):
            results = take_turns(args.rounds, {
                name: functools.partial(capture_once, folder, tool, frames, length, rate)
                for name, tool in tools(build, folder).items()})
            pace = f"{length} bytes, {rate // 1000} k/s" if rate else f"{length} bytes, flat out"
            for place, (name, unit) in enumerate((("CPU", "s per million"), ("lost", "%"))):
                print_medians("capture on a veth pair", f"{pace}: {name}", unit,
                              {tool: [figures[place] for figures in rounds] for tool, rounds in results.items()},
                              goal=None if place == 0 else 0)


def idle_cost(tool, seconds=5):
    command = Command(*tool)
    time.sleep(1)
    before = command.processor_time()
    time.sleep(seconds)
    spent = command.processor_time() - before
    command.stop()
    return 100 * spent / seconds


def measure_idle(build, folder, args):
    relay = [build.flowlane, "av2rtp", "127.0.0.1", "-n", "flw1"]
    cases = {name: functools.partial(idle_cost, tool) for name, tool in tools(build, folder).items()}
    cases["av2rtp"] = functools.partial(idle_cost, (relay, "press any key", "stdout"))
    results = take_turns(1, cases)
    forwarding = results.pop("av2rtp")
    print_medians("idle", "pcap: CPU", "% of a core", results)
    print_row("idle", "av2rtp: CPU", "% of a core", forwarding[0])


def wait_for_mark(path, mark, limit):
    """How many seconds until the end of the file has the mark, None if it takes longer than the limit."""
    begin = time.monotonic()
    with path.open("rb") as file:
        while time.monotonic() < begin + limit:
            file.seek(max(0, os.fstat(file.fileno()).st_size - 4096))
            if mark in file.read():
                return time.monotonic() - begin
            time.sleep(0.0001)
    return None


def time_to_file(folder, tool, frames=5, limit=2):
    """Milliseconds, the worst of several single frames; the limit if one takes longer."""
    command = Command(*tool)
    time.sleep(0.5)
    taken = []
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        sender.bind(("flw0", 0))
        for number in range(frames):
            frame = numbered(number, 128)
            sender.send(frame)
            seconds = wait_for_mark(folder / "captured.pcapng", frame[:18], limit)
            taken.append(1000 * (limit if seconds is None else seconds))
            if seconds is None:
                break
            time.sleep(0.03 + 0.0007 * number)
    command.stop()
    (folder / "captured.pcapng").unlink()
    return max(taken)


def measure_time_to_file(build, folder, args):
    results = take_turns(args.rounds, {name: functools.partial(time_to_file, folder, tool)
                                       for name, tool in tools(build, folder, live=True).items()})
    print_medians("capture on a veth pair", "a frame until it is in the file (at most 2000 measured)", "ms", results, goal=10)


def main():
    options = parser(__doc__)
    options.add_argument("--frames", type=int, default=1_000_000, metavar="N",
                         help="of 128 bytes flat out, and half as many of 1514 bytes (default: 1000000)")
    args = options.parse_args()
    make_link()
    with memory_folder() as folder:
        for measure in (measure_load, measure_time_to_file, measure_idle):
            measure(args.build, folder, args)


if __name__ == "__main__":
    main()
