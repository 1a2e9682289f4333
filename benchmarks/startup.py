#!/usr/bin/env python3
"""Measures how long the program takes to start, and the memory of each command while it has little to do, beside the
field's tools.

usage: in-network-namespace startup.py BUILD_FOLDER [--rounds N]
"""

import functools
import pathlib
import subprocess
import time

from measuring import Command, SECOND, make_link, memory_folder, numbered, parser, print_medians, print_row, take_turns, \
    write_times


def start_up(words):
    """Milliseconds until the first line, and until the end."""
    begin = time.monotonic()
    with subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        process.stdout.readline()
        first = time.monotonic() - begin
        process.stdout.read()
        process.wait(timeout=10)
    return 1000 * first, 1000 * (time.monotonic() - begin)


def measure_start(build, rounds):
    tools = {"flowlane": [build.flowlane], "dumpcap": ["dumpcap"], "tcpdump": ["tcpdump"], "tcpreplay": ["tcpreplay"],
             "netsniff-ng": ["netsniff-ng"]}
    results = take_turns(rounds, {name: functools.partial(start_up, [*words, "--help"]) for name, words in tools.items()})
    for place, name in enumerate(("first line", "end")):
        print_medians("start and memory", f"--help: {name}", "ms",
                      {tool: [figures[place] for figures in of_tool] for tool, of_tool in results.items()})


def resident(words):
    """MB of memory that are resident after a second."""
    command = Command(words)
    time.sleep(1)
    status = pathlib.Path(f"/proc/{command.process.pid}/status").read_text()
    command.stop()
    return int(status.partition("VmRSS:")[2].split()[0]) / 1000


def measure_memory(build, folder):
    from tsfile import stream
    # Both take longer to play than the measurement.
    recording = write_times(folder / "slow.pcapng", [(second * SECOND, numbered(second, 128)) for second in range(10)])
    film = folder / "slow.ts"
    film.write_bytes(stream(10, 1000))
    subprocess.run(["ingests", "-p", "256", film], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    captured = folder / "captured.pcapng"
    flowlane, capture = build.flowlane, ["-i", "flw1", "-w", captured]
    for command, words, peers in (
            ("pcap", [captured.with_suffix(""), "-n", "flw1"],
             {"dumpcap -B 64": ["dumpcap", "-q", "-B", "64", *capture],
              "tcpdump -B 65536": ["tcpdump", "-Z", "root", "-B", "65536", *capture],
              "netsniff-ng": ["netsniff-ng", "--in", "flw1", "--out", captured, "--silent", "--ring-size", "64MiB"]}),
            ("playpcap", [recording.with_suffix(""), "-n", "flw0"], {"tcpreplay": ["tcpreplay", "-i", "flw0", recording]}),
            ("ts2av", [film, "-n", "flw0"], {"multicat": ["multicat", film, "127.0.0.1:5006"]}),
            ("av2rtp", ["127.0.0.1", "-n", "flw1"], {"multicat": ["multicat", "@127.0.0.1:5008", "127.0.0.1:5010"]})):
        print_row("start and memory", f"{command}: resident memory", "MB", resident([flowlane, command, *words]),
                  {name: resident(peer) for name, peer in peers.items()})


def main():
    args = parser(__doc__, rounds=50).parse_args()
    make_link()
    measure_start(args.build, args.rounds)
    with memory_folder() as folder:
        measure_memory(args.build, folder)


if __name__ == "__main__":
    main()
