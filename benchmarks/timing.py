#!/usr/bin/env python3
"""Measures on a veth pair of its own how exact in time playpcap and ts2av are, with and without -pt, beside tcpreplay
and multicat.

usage: in-network-namespace timing.py BUILD_FOLDER [STEP]... [--rounds N] [--drift-seconds N]

floor: how late this machine wakes a bare sender of 1000 frames/s, how long its call takes, and what the measuring
  itself adds: the time between the two ends of the link.
replay: error of a frame's time since the first one, against the same time in the file; median with its sign; min: the
  earliest frame, below zero if it came too early. centred: away from the median. drift: the line through the errors.
drift: the same over --drift-seconds, in the first round only; 600 are a good measurement, 0 leaves the step out.
top: all frames of a file have one time: frames per second between the first and the last one received.
stream: late: after the delivery time in the header of a frame's last packet, by the sender's own clock. centred: of
  the departures against the places of the last packets in the stream, whose rate is constant.
generations: a capture of a replay is replayed and captured, and so on; error against the first file.

Commands take turns in every round. The table shows medians of the rounds, but of what is lost the worst round. CPU: user
and system time of the sender, in % of a core over the time of the file.
"""

import argparse
import os
import pathlib
import random
import socket
import statistics
import subprocess
import sys
import tempfile
import time

from measuring import (Command, Receiver, centred, machine, number_in, numbered, print_table, run_to_end, slope, spread,
                       use_build, write_times)

SECOND = 10**9
FAR_ADDRESS = "198.51.100.2"
AVTP, IP = b"\x22\xf0", b"\x08\x00"
# How long the headers are before the transport stream packets of a frame, and how long a packet with its own header.
FORMATS = {AVTP: (46, 192), IP: (42, 188)}
STEPS = {
    "floor": "what the machine and the measuring add, microseconds",
    "replay": "replay, microseconds",
    "drift": "replay over a long time, microseconds",
    "top": "replay of frames that have all the same time, 512 bytes",
    "stream": "stream, microseconds",
    "generations": "replayed, captured and replayed again, microseconds",
}


class Bench:
    def __init__(self, flowlane, folder, drift_seconds):
        self.flowlane = flowlane
        self.folder = folder
        self.drift_seconds = drift_seconds

    def cases(self, step):
        """Of each measurement of a step: its name, a function that returns figures by row, and the arguments."""
        return getattr(self, step)()

    def playpcap(self, path, *options):
        return [self.flowlane, "playpcap", path.with_suffix(""), *options, "-n", "flw0"]

    def players(self, path, *options_of_tcpreplay):
        """Commands that play a file, by name."""
        tcpreplay = {" ".join(("tcpreplay", *options)): ["tcpreplay", "-q", *options, "-i", "flw0", path]
                     for options in options_of_tcpreplay}
        return {"playpcap": self.playpcap(path), "playpcap -pt": self.playpcap(path, "-pt"), **tcpreplay}

    def floor(self):
        yield "", measure_floor, self.folder

    def replay(self):
        shapes = {"1000/s": every(SECOND // 1000, 5000, 512), "gaps 20 us to 2 ms": mixed_gaps(5 * SECOND),
                  "20000/s": every(SECOND // 20000, 40000, 512)}
        for number, (shape, frames) in enumerate(shapes.items()):
            path = write_times(self.folder / f"replay{number}.pcapng", frames)
            times = [when for when, _ in frames]
            for name, words in self.players(path, [], ["-K", "--timer=nano"]).items():
                yield f"{shape}  {name}", measure_replay, self.folder, words, times

    def drift(self):
        frames = every(SECOND // 1000, 1000 * self.drift_seconds, 128)
        path = write_times(self.folder / "drift.pcapng", frames)
        times = [when for when, _ in frames]
        yield f"1000/s  playpcap -pt, {self.drift_seconds} s", measure_replay, self.folder, self.playpcap(path, "-pt"), times

    def top(self):
        count = 500_000
        path = write_times(self.folder / "top.pcapng", ((0, numbered(number, 512)) for number in range(count)))
        for name, words in self.players(path, ["-t"], ["-t", "-K"]).items():
            yield name, measure_top, self.folder, words, count

    def stream(self):
        for megabits in (5, 60):
            stream = Stream(self.folder / f"stream{megabits}.ts", seconds=10, rate=megabits * 10**6 // 8 // 188)
            for name, words in {"ts2av": [self.flowlane, "ts2av", stream.path, "-n", "flw0"],
                                "ts2av -pt": [self.flowlane, "ts2av", stream.path, "-pt", "-n", "flw0"],
                                "multicat": ["multicat", "-U", stream.path, f"{FAR_ADDRESS}:5004"]}.items():
                yield f"{megabits} Mbit/s  {name}", measure_stream, self.folder, words, stream

    def generations(self):
        frames = mixed_gaps(2 * SECOND)[:2000]
        path = write_times(self.folder / "generation0.pcapng", frames)
        yield "playpcap -pt", measure_generations, self, path, [when for when, _ in frames]


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


def send_from_time_to_time(count, spacing):
    """Sends numbered frames, and returns when each was due and the time just before it was sent, by the monotonic clock."""
    start = time.monotonic_ns() + 10 * spacing
    due = [start + number * spacing for number in range(count)]
    woken = []
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        sender.bind(("flw0", 0))
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
        try:
            for number, when in enumerate(due):
                frame = numbered(number, 512)
                time.sleep(max(0, when - time.monotonic_ns()) / SECOND)
                woken.append(time.monotonic_ns())
                sender.send(frame)
        finally:
            os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
    return due, woken


def measure_floor(folder):
    with Receiver(folder) as far, Receiver(folder, interface="flw0", direction="out") as near:
        due, woken = send_from_time_to_time(5000, SECOND // 1000)
    reached = {number: when - far.offset for when, number in received_numbers(far)}
    left = {number: when - near.offset for when, number in received_numbers(near)}
    late = {"wake-up of a bare real-time sender": [after - before for before, after in zip(due, woken)],
            "its call until the near end": [when - woken[number] for number, when in left.items()],
            "near end to far end": [reached[number] - when for number, when in left.items() if number in reached]}
    return {row: dict(zip(("p50", "p99", "max", "min", "missing"),
                          [*spread(values), min(values) / 1000, len(due) - len(values)]))
            for row, values in late.items()}


def received_numbers(receiver):
    """(time, number) of the numbered frames."""
    return [(when, number) for when, number in ((when, number_in(frame)) for when, frame in receiver.frames())
            if number is not None]


def errors_of(received, times):
    """Of each frame's time since the first one, in nanoseconds, against the same difference in the file."""
    if not received:
        raise RuntimeError("no frame has come")
    start, first = received[0]
    return [(when - start) - (times[number] - times[first]) for when, number in received]


def error_figures(received, times):
    errors = errors_of(received, times)
    p50, p99, longest = spread(map(abs, errors))
    _, centred_99, _ = spread(centred(errors))
    return {"p50": p50, "p99": p99, "max": longest, "min": min(errors) / 1000, "median": statistics.median(errors) / 1000,
            "centred p99": centred_99,
            "drift ppm": 1e6 * slope([times[number] for _, number in received], errors),
            "missing": len(times) - len(received)}


def measure_replay(folder, words, times):
    with Receiver(folder) as receiver:
        cpu = run_to_end(words, times[-1] / SECOND + 30)
    figures = error_figures(received_numbers(receiver), times)
    return {"": {**figures, "tcpdump lost": receiver.dropped, "CPU %": 100 * cpu / (times[-1] / SECOND)}}


def measure_top(folder, words, count):
    with Receiver(folder) as receiver:
        run_to_end(words, 60)
    times = [when for when, _ in received_numbers(receiver)]
    if len(times) < 2:
        raise RuntimeError("no frames have come")
    rate = (len(times) - 1) / (times[-1] - times[0]) * SECOND
    return {"": {"frames/s": rate, "missing": count - len(times), "tcpdump lost": receiver.dropped}}


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
    late, places, errors, packets = [], [], [], 0
    for when, frame in receiver.frames():
        ether_type = frame[12:14]
        if ether_type not in FORMATS:
            continue
        headers, size = FORMATS[ether_type]
        last = stream.number(frame[-188:])
        first = last - (len(frame) - headers) // size + 1
        packets += max(0, min(last + 1, stream.count) - first)
        if last >= stream.count:
            continue
        places.append(last * SECOND // stream.rate)
        errors.append(when - places[-1])
        if ether_type == AVTP:
            stamp = int.from_bytes(frame[-192:-188], "big")
            late.append((when - receiver.offset - stamp + 2**31) % 2**32 - 2**31)
    if not errors:
        raise RuntimeError("no packet has come")
    figures = [*(spread(late) if late else [None] * 3), min(late) / 1000 if late else None, *spread(centred(errors)),
               1e6 * slope(places, errors), stream.count - packets, receiver.dropped, 100 * cpu / stream.seconds]
    return {"": dict(zip(("late p50", "late p99", "late max", "late min", "centred p50", "centred p99", "centred max",
                          "drift ppm", "missing", "tcpdump lost", "CPU %"), figures))}


def measure_generations(bench, path, times):
    import interfaces
    rows = {}
    for generation in range(1, 6):
        captured = bench.folder / f"generation{generation}.pcapng"
        capture = Command([bench.flowlane, "pcap", captured.with_suffix(""), "-n", "flw1"], "press any key", "stdout")
        time.sleep(0.5)
        run_to_end(bench.playpcap(path, "-pt"), times[-1] / SECOND + 30)
        time.sleep(0.5)
        capture.stop()
        path = captured
        received = [(when, number_in(frame)) for when, frame in interfaces.capture_frames(path)]
        rows[f", generation {generation}"] = error_figures(received, times)
    return rows


def make_link():
    import interfaces
    interfaces.make_link()
    # The far end has no address, or the kernel would not send over the link. So nobody there answers who has it.
    interfaces.ip("address add 198.51.100.1/24 dev flw0")
    interfaces.ip(f"neighbour add {FAR_ADDRESS} lladdr 02:00:5e:00:53:01 dev flw0")


def measure(bench, steps, rounds):
    """The figures of all rounds by step and row."""
    cases = [(step, *case) for step in steps for case in bench.cases(step)]
    results = {step: {} for step in steps}
    for done in range(rounds):
        for step, name, call, *arguments in cases:
            if step == "drift" and done:
                continue
            print(f"round {done + 1}: {step}: {name}", file=sys.stderr, flush=True)
            for row, figures in call(*arguments).items():
                results[step].setdefault(name + row, []).append(figures)
    return results


def combine(figure, values):
    if None in values:
        return None
    return max(values) if figure in ("missing", "tcpdump lost") else statistics.median(values)


def report(results):
    for step, by_row in results.items():
        rows = {name: {figure: combine(figure, [figures[figure] for figures in of_rounds]) for figure in of_rounds[0]}
                for name, of_rounds in by_row.items()}
        if step == "top":
            best = max(row["frames/s"] for name, row in rows.items() if name.startswith("tcpreplay"))
            for row in rows.values():
                row["to the fastest tcpreplay"] = row["frames/s"] / best
        print_table(STEPS[step], rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("steps", nargs="*", metavar="STEP", help=f"of {', '.join(STEPS)}; default: all")
    parser.add_argument("--rounds", type=int, default=5, metavar="N")
    parser.add_argument("--drift-seconds", type=int, default=0, metavar="N")
    args = parser.parse_args()
    if unknown := set(args.steps) - set(STEPS):
        parser.error(f"unknown step: {' '.join(unknown)}")
    if "drift" in args.steps and not args.drift_seconds:
        parser.error("drift needs --drift-seconds")
    flowlane = use_build(args.build)
    make_link()
    steps = [step for step in STEPS if step in (args.steps or STEPS) and (step != "drift" or args.drift_seconds)]
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        results = measure(Bench(flowlane, pathlib.Path(folder), args.drift_seconds), steps, args.rounds)
    print(f"{machine()}; medians of {args.rounds} rounds")
    report(results)


main()
