#!/usr/bin/env python3
"""Measures how fast playpcap replays beside tcpreplay, on a veth pair, and how fast it reads a file beside capinfos, with
a device that does nothing.

usage: in-network-namespace replay.py BUILD_FOLDER [--rounds N] [--frames N]

All frames have the same time. The rate is of what reaches the far end, between the first frame and the last one. Reading
is measured in processor time, because playpcap waits before the first frame and looks once a second for the end.
"""

import functools
import os
import random

from measuring import Receiver, SECOND, make_link, median, memory_folder, numbered, parser, print_medians, \
    print_missing, received_numbers, run_to_end, take_turns, write_times

REPLAY = "512 bytes, all at the same time"


def replay_rate(folder, words, count):
    """Frames/s, and the missing ones of count frames."""
    with Receiver(folder) as receiver:
        run_to_end(words, 60)
    times = [when for when, _ in received_numbers(receiver)]
    if len(times) < 2:
        raise RuntimeError(f"{words[0]}: no frames have come")
    return (len(times) - 1) / (times[-1] - times[0]) * SECOND, count - len(times)


def measure_replay(build, folder, args):
    path = write_times(folder / "replay.pcapng", ((0, numbered(number, 512)) for number in range(args.frames)))
    playpcap = [build.flowlane, "playpcap", path.with_suffix(""), "-n", "flw0"]
    tcpreplay = ["-q", "-i", "flw0", path]
    commands = {"flowlane": playpcap, "tcpreplay -t": ["tcpreplay", "-t", *tcpreplay],
                "tcpreplay -t -K": ["tcpreplay", "-t", "-K", *tcpreplay], "precise": [*playpcap, "-pt"]}
    results = take_turns(args.rounds, {name: functools.partial(replay_rate, folder, words, args.frames)
                                       for name, words in commands.items()})
    peers = [name for name in results if name.startswith("tcpreplay")]
    for own, name in (("flowlane", REPLAY), ("precise", f"{REPLAY}, -pt")):
        rates, missing = ({"flowlane" if tool == own else tool: [pair[place] for pair in results[tool]]
                           for tool in (own, *peers)} for place in range(2))
        print_medians("replay", name, "frames/s", rates, better="higher")
        print_missing("replay", name, missing)
    path.unlink()


def measure_reading(build, folder, args):
    chance = random.Random(1)
    path = write_times(folder / "read.pcapng",
                       ((0, numbered(number, chance.randrange(60, 1515))) for number in range(args.frames)))
    # The device library that discards all.
    playpcap = ["env", f"LD_LIBRARY_PATH={build.folder / 'benchmarks' / 'null_device'}", build.flowlane, "playpcap",
                path.with_suffix(""), "-d", "0", "-pt"]
    results = take_turns(args.rounds, {"flowlane": functools.partial(run_to_end, playpcap, 60),
                                       "capinfos -c": functools.partial(run_to_end, ["capinfos", "-c", path], 60)})
    print_medians("replay", f"read a file of {os.stat(path).st_size / 1e6:.0f} MB, {args.frames} frames", "s of CPU", results,
                  goal=median(results["capinfos -c"]))


def main():
    options = parser(__doc__)
    options.add_argument("--frames", type=int, default=500_000)
    args = options.parse_args()
    make_link()
    with memory_folder() as folder:
        measure_replay(args.build, folder, args)
        measure_reading(args.build, folder, args)


if __name__ == "__main__":
    main()
