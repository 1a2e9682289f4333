#!/usr/bin/env python3
"""Measures on a veth pair of its own how exact in time playpcap and ts2av are with -pt, beside tcpreplay and multicat.

usage: in-network-namespace timing.py BUILD_FOLDER [STEP]... [--rounds N] [--drift-seconds N]

floor: how late this machine wakes a bare sender of 1000 frames/s.
replay: error of a frame's time since the first one, against the same time in the file.
stream: departures of the frames against the places of their last packets in the stream, whose rate is constant; away
  from the median.
drift: the line through the errors of a long replay, in the first round only; 600 s are a good measurement.
generations: a capture of a replay is replayed and captured, and so on five times; error of the last capture against the
  first file.

Commands take turns in every round. The table shows medians of the rounds. CPU: user and system time of the sender, in %
of a core over the time of the file.
"""

import functools
import os
import random
import socket
import subprocess
import time

from measuring import Command, Receiver, SECOND, centred, make_link, memory_folder, number_in, numbered, parser, \
    print_medians, print_missing, received_numbers, run_to_end, slope, spread, take_turns, write_times

FAR_ADDRESS = "198.51.100.2"
AVTP, IP = b"\x22\xf0", b"\x08\x00"
# How long the headers are before the transport stream packets of a frame, and how long a packet with its own header.
FORMATS = {AVTP: (46, 192), IP: (42, 188)}
UNITS = {"error p50": "us", "error p99": "us", "CPU": "% of a core", "drift": "ppm"}
STEPS = ("floor", "replay", "stream", "drift", "generations")


class Bench:
    """cases(step): of each measurement of a step, the row's name, the tool's name, and a function that returns figures."""

    def __init__(self, flowlane, folder, drift_seconds):
        self.flowlane = flowlane
        self.folder = folder
        self.drift_seconds = drift_seconds

    def cases(self, step):
        return getattr(self, step)()

    def playpcap(self, path):
        return [self.flowlane, "playpcap", path.with_suffix(""), "-pt", "-n", "flw0"]

    def floor(self):
        yield "wake-up of a sender, 1000/s", "bare sender", measure_floor

    def replay(self):
        shapes = {"1000/s": every(SECOND // 1000, 3000, 512), "gaps 20 us to 2 ms": mixed_gaps(3 * SECOND),
                  "20000/s": every(SECOND // 20000, 40000, 512)}
        for number, (shape, frames) in enumerate(shapes.items()):
            path = write_times(self.folder / f"replay{number}.pcapng", frames)
            times = [when for when, _ in frames]
            for name, words in {"flowlane": self.playpcap(path),
                                "tcpreplay": ["tcpreplay", "-q", "-i", "flw0", path],
                                "tcpreplay -K nano": ["tcpreplay", "-q", "-K", "--timer=nano", "-i", "flw0", path]}.items():
                yield f"replay, {shape}", name, functools.partial(measure_replay, self.folder, words, times)

    def stream(self):
        for megabits in (5, 60):
            stream = Stream(self.folder / f"stream{megabits}.ts", seconds=3, rate=megabits * 10**6 // 8 // 188)
            for name, words in {"flowlane": [self.flowlane, "ts2av", stream.path, "-pt", "-n", "flw0"],
                                "multicat": ["multicat", "-U", stream.path, f"{FAR_ADDRESS}:5004"]}.items():
                yield f"ts2av, {megabits} Mbit/s", name, functools.partial(measure_stream, self.folder, words, stream)

    def drift(self):
        frames = every(SECOND // 1000, 1000 * self.drift_seconds, 128)
        path = write_times(self.folder / "drift.pcapng", frames)
        times = [when for when, _ in frames]
        yield (f"replay of {self.drift_seconds} s", "flowlane",
               functools.partial(measure_drift, self.folder, self.playpcap(path), times))

    def generations(self):
        frames = mixed_gaps(2 * SECOND)
        path = write_times(self.folder / "generation0.pcapng", frames)
        yield ("replayed and captured five times", "flowlane",
               functools.partial(measure_generations, self, path, [when for when, _ in frames]))


def every(spacing, count, length):
    return [(number * spacing, numbered(number, length)) for number in range(count)]


def mixed_gaps(duration):
    """Whole microseconds, since not every tool reads finer times."""
    chance = random.Random(1)
    frames = []
    when = 0
    while when < duration:
        frames.append((when, numbered(len(frames), chance.randrange(64, 1515))))
        when += 1000 * chance.randrange(20, 2001)
    return frames


def measure_floor(count=3000, spacing=SECOND // 1000):
    """How late a bare sender with real-time priority wakes up."""
    start = time.monotonic_ns() + 10 * spacing
    late = []
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        sender.bind(("flw0", 0))
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
        try:
            for number in range(count):
                due = start + number * spacing
                frame = numbered(number, 512)
                time.sleep(max(0, due - time.monotonic_ns()) / SECOND)
                late.append(time.monotonic_ns() - due)
                sender.send(frame)
        finally:
            os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
    return error_figures(late)


def error_figures(errors):
    p50, p99, _ = spread(map(abs, errors))
    return {"error p50": p50, "error p99": p99}


def errors_of(received, times):
    """Of each frame's time since the first one, in nanoseconds, against the same difference in the file."""
    if not received:
        raise RuntimeError("no frame has come")
    start, first = received[0]
    return [(when - start) - (times[number] - times[first]) for when, number in received]


def replay(folder, words, times):
    """The errors of the frames that have come, their times in the file, and the processor time in per cent."""
    with Receiver(folder) as receiver:
        cpu = run_to_end(words, times[-1] / SECOND + 30)
    received = received_numbers(receiver)
    return errors_of(received, times), [times[number] for _, number in received], 100 * cpu / (times[-1] / SECOND)


def measure_replay(folder, words, times):
    errors, came, cpu = replay(folder, words, times)
    return {**error_figures(errors), "CPU": cpu, "missing": len(times) - len(came)}


def measure_drift(folder, words, times):
    errors, came, _ = replay(folder, words, times)
    return {"drift": abs(1e6 * slope(came, errors))}


class Stream:
    """A transport stream file of constant rate, in packets a second."""

    def __init__(self, path, seconds, rate):
        import tsfile
        self.path = path
        self.seconds = seconds
        self.rate = rate
        path.write_bytes(tsfile.stream(seconds, rate, pcr_every=rate // 50))
        # The last 20 ms do not count: the senders end them differently.
        self.count = seconds * rate - rate // 50
        subprocess.run(["ingests", "-p", "256", path], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def number(self, packet):
        at = 12 if packet[3] & 0x20 else 4
        return int.from_bytes(packet[at:at + 4], "big")


def measure_stream(folder, words, stream):
    with Receiver(folder, length=2000) as receiver:
        cpu = run_to_end(words, stream.seconds + 30)
    errors, packets = [], 0
    for when, frame in receiver.frames():
        ether_type = frame[12:14]
        if ether_type not in FORMATS:
            continue
        headers, size = FORMATS[ether_type]
        last = stream.number(frame[-188:])
        first = last - (len(frame) - headers) // size + 1
        packets += max(0, min(last + 1, stream.count) - first)
        if last < stream.count:
            errors.append(when - last * SECOND // stream.rate)
    if not errors:
        raise RuntimeError("no packet has come")
    return {**error_figures(centred(errors)), "CPU": 100 * cpu / stream.seconds, "missing": stream.count - packets}


def measure_generations(bench, path, times):
    import interfaces
    for generation in range(1, 6):
        captured = bench.folder / f"generation{generation}.pcapng"
        capture = Command([bench.flowlane, "pcap", captured.with_suffix(""), "-n", "flw1"], "press any key", "stdout")
        time.sleep(0.5)
        run_to_end(bench.playpcap(path), times[-1] / SECOND + 30)
        time.sleep(0.5)
        capture.stop()
        path = captured
    received = [(when, number_in(frame)) for when, frame in interfaces.capture_frames(path)]
    return {**error_figures(errors_of(received, times)), "missing": len(times) - len(received)}


def add_address():
    import interfaces
    # The far end has no address, or the kernel would not send over the link. So nobody there answers who has it.
    interfaces.ip("address add 198.51.100.1/24 dev flw0")
    interfaces.ip(f"neighbour add {FAR_ADDRESS} lladdr 02:00:5e:00:53:01 dev flw0")


def measure(bench, step, rounds):
    cases = {(row, tool): call for row, tool, call in bench.cases(step)}
    results = take_turns(1 if step in ("drift", "generations") else rounds, cases)
    for row in dict.fromkeys(row for row, _ in cases):
        by_tool = {tool: rounds for (of_row, tool), rounds in results.items() if of_row == row}
        by_tool.setdefault("flowlane", [])
        for figure in next(filter(None, by_tool.values()))[0]:
            figures = {tool: [figures[figure] for figures in by_tool[tool]]
                       for tool in sorted(by_tool, key="flowlane".__ne__)}
            if figure == "missing":
                print_missing("exact timing (-pt)", row, figures)
            else:
                print_medians("exact timing (-pt)", f"{row}: {figure}", UNITS[figure], figures)


def main():
    options = parser(__doc__)
    options.add_argument("steps", nargs="*", metavar="STEP", help=f"of {', '.join(STEPS)}; default: all")
    options.add_argument("--drift-seconds", type=int, default=30, metavar="N")
    args = options.parse_args()
    if unknown := set(args.steps) - set(STEPS):
        options.error(f"unknown step: {' '.join(unknown)}")
    make_link()
    add_address()
    with memory_folder() as folder:
        for step in args.steps or STEPS:
            measure(Bench(args.build.flowlane, folder, args.drift_seconds), step, args.rounds)


if __name__ == "__main__":
    main()
