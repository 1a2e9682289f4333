#!/usr/bin/env python3
"""Measures up to which rate pcap captures without loss on the virtual segment: frames of 128 bytes, the file in memory.

usage: segment.py BUILD_FOLDER [--rounds N] [--seconds N] [--rates FRAMES_PER_SECOND ...]

A round goes through the rates until frames are lost or the sender cannot keep the rate.
"""

import re
import subprocess
import sys
import time

from measuring import Command, median, memory_folder, own_segment, parser, print_row


def capture_at(build, folder, rate, seconds):
    """The rate that the sender reached, and the lost frames."""
    path = folder / "captured"
    sent = int(rate * seconds)
    command = Command([build.flowlane, "pcap", path, "-n", "lane-2"], "press any key", "stdout")
    begin = time.monotonic()
    subprocess.run([build.lane_send, "-n", "lane-1", "-l", "128", "-b", "64", "-r", str(rate), "-c", str(sent)],
                   check=True, stdout=subprocess.DEVNULL)
    reached = sent / (time.monotonic() - begin)
    time.sleep(0.2)
    command.stop()
    path.with_suffix(".pcapng").unlink()
    written = [re.match(r"(\d+) frames successfully written", line) for line in command.lines]
    return reached, sent - [int(match.group(1)) for match in written if match][-1]


def highest_rate(build, folder, rates, seconds):
    best = 0
    for rate in rates:
        reached, lost = capture_at(build, folder, rate, seconds)
        print(f"  {rate} frames/s: {reached:.0f} sent, {lost} lost", file=sys.stderr)
        if lost:
            break
        best = max(best, reached)
        if reached < 0.9 * rate:
            break
    return best


def main():
    options = parser(__doc__, rounds=3)
    options.add_argument("--seconds", type=float, default=2)
    options.add_argument("--rates", type=int, nargs="+", default=list(range(500_000, 4_000_001, 250_000)))
    args = options.parse_args()
    with memory_folder() as folder, own_segment("capture"):
        rates = [highest_rate(args.build, folder, args.rates, args.seconds) for _ in range(args.rounds)]
    print_row("capture on the virtual segment", "128 bytes: highest rate without loss", "frames/s", median(rates),
              goal=2_000_000, better="higher")


if __name__ == "__main__":
    main()
