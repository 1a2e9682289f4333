#!/usr/bin/env python3
"""Runs the benchmarks of single parts: the ts2av pipeline, texts and log lines beside the fmt library, and the virtual
segment between two processes.

usage: micro.py BUILD_FOLDER [--rounds N]
"""

import json
import subprocess

from measuring import median, parser, print_row

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def run_benchmark(program, rounds):
    """The medians by name, in nanoseconds of processor time for an item, or for a turn that does not count items."""
    words = [program, "--benchmark_format=json", f"--benchmark_repetitions={rounds}"]
    output = subprocess.run(words, capture_output=True, text=True, timeout=600, check=True).stdout
    figures = {}
    for entry in json.loads(output)["benchmarks"]:
        if entry["run_type"] == "iteration":
            items = entry.get("items_per_second")
            figures.setdefault(entry["run_name"], []).append(
                1e9 / items if items else entry["cpu_time"] * NANOSECONDS[entry["time_unit"]])
    return {name: median(of_rounds) for name, of_rounds in figures.items()}


def main():
    args = parser(__doc__, rounds=3).parse_args()
    programs = args.build.folder / "benchmarks"
    if (programs / "pipeline_bench").exists():
        for name, figure in run_benchmark(programs / "pipeline_bench", args.rounds).items():
            print_row("ts2av without a device", name, "ns per packet", figure)
    if (programs / "text_bench").exists():
        figures = run_benchmark(programs / "text_bench", args.rounds)
        for name, figure in figures.items():
            # CASE/Ours, CASE/OursBuffer, and the same with Fmt.
            case, slash, variant = name.rpartition("/")
            if not variant.startswith("Fmt"):
                peer = figures.get(f"{case}/{variant.replace('Ours', 'Fmt')}") if slash else None
                label = f"{case}, into a buffer" if variant == "OursBuffer" else case or name
                print_row("texts", label, "ns", figure, {"fmt": peer} if peer else None)
    subprocess.run([programs / "segment_bench", str(args.rounds)], timeout=600, check=True)


if __name__ == "__main__":
    main()
