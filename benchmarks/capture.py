#!/usr/bin/env python3
"""Measures up to which rate pcap captures without loss: a generator sends frames on a segment, and the files go to
a folder in memory. One line a rate: what was sent, what the summary says, and the processor time.

usage: capture.py BUILD_FOLDER [--seconds N] [--length BYTES] [--rates FRAMES_PER_SECOND ...]
"""

import argparse
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time


def capture(build, folder, rate, seconds, length):
    environment = {**os.environ, "QUAYSIDE2_SEGMENT": f"capture-{os.getpid()}"}
    path = pathlib.Path(folder) / f"rate{rate}"
    program = subprocess.Popen([build / "source_linux" / "flowlane" / "flowlane", "pcap", path, "-n", "lane-2"],
                               env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    while "press any key" not in program.stdout.readline():
        pass
    begin = time.monotonic()
    sent = int(rate * seconds)
    subprocess.run([build / "tests" / "support" / "segment" / "lane-send", "-n", "lane-1", "-l", str(length), "-r",
                    str(rate), "-c", str(sent)], env=environment, check=True, stdout=subprocess.DEVNULL)
    took = time.monotonic() - begin
    time.sleep(0.2)
    program.send_signal(signal.SIGTERM)
    lines = program.stdout.read().splitlines()
    _, _, usage = os.wait4(program.pid, 0)
    summary = lines[lines.index("Stop PCAPNG file writer...") + 1:]
    written, dropped = next(map(int, match.groups()) for match in
                            (re.match(r"(\d+) frames successfully written, (\d+)", line) for line in summary)
                            if match)
    size = path.with_suffix(".pcapng").stat().st_size
    path.with_suffix(".pcapng").unlink()
    print(f"{rate} a second: {sent} sent in {took:.2f} s, {written} written, {dropped} dropped, "
          f"{size / 1e6 / took:.0f} MB/s; {100 * (usage.ru_utime + usage.ru_stime) / took:.0f} % of a core, "
          f"{usage.ru_nvcsw} voluntary and {usage.ru_nivcsw} involuntary switches", flush=True)
    if dropped:
        print("  " + "; ".join(line.strip() for line in summary[3:] if not line.endswith(" 0")))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--length", type=int, default=128)
    parser.add_argument("--rates", type=int, nargs="+", default=[100000, 300000, 500000, 700000, 1000000])
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        for rate in args.rates:
            capture(args.build, folder, rate, args.seconds, args.length)
    for file in pathlib.Path("/dev/shm").glob(f"quayside2-*-capture-{os.getpid()}*"):
        file.unlink()


main()
