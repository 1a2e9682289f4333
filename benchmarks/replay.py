#!/usr/bin/env python3
"""Measures how well playpcap keeps the times of a file: replays a made-up recording on a segment of its own and
looks at the times at which the frames were sent.

usage: replay.py BUILD_FOLDER [--seconds N] [--rate FRAMES_PER_SECOND]

lateness: of each frame against its time in the file; the smallest one is taken for zero, since the two clocks have
different origins. drift: of the mean lateness, between the first and the last tenth of the frames.
"""

import argparse
import os
import pathlib
import sys
import tempfile

top = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(top / "tests" / "support" / "python"))


def numbered(number):
    return b"\xff" * 6 + b"\x02" * 6 + b"\x88\xb5" + number.to_bytes(4, "big") + bytes(82)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--rate", type=int, default=1000)
    args = parser.parse_args()

    tools = args.build / "tests" / "support" / "segment"
    os.environ.update(
        FLOWLANE_SOURCE=str(top), FLOWLANE_BIN=str(args.build / "source_linux" / "flowlane" / "flowlane"),
        LANE_DUMP_BIN=str(tools / "lane-dump"), LANE_SEND_BIN=str(tools / "lane-send"), FAKE_DEVICE_DIR="")
    import capture
    import lanes
    import pcapng
    lanes.TIMEOUT = args.seconds + 120

    spacing = 1_000_000_000 // args.rate
    count = int(args.seconds * args.rate)
    segment = lanes.Segment(f"replay-{os.getpid()}")
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "file.pcapng"
        pcapng.write_file(path, map(numbered, range(count)), spacing)
        captured = pathlib.Path(folder) / "frames.pcap"
        try:
            with segment.receiver(captured) as receiver:
                result = segment.run("playpcap", path)
            assert result.returncode == 0, result.stderr
        finally:
            segment.remove()
        frames = capture.frames(captured)
    assert [int.from_bytes(data[14:18], "big") for _, data in frames] == list(range(count))

    late = [when - number * spacing for number, (when, _) in enumerate(frames)]
    earliest = min(late)
    late = [(value - earliest) / 1e6 for value in late]
    tenth = max(1, count // 10)
    drift = sum(late[-tenth:]) / tenth - sum(late[:tenth]) / tenth
    late.sort()
    print(f"{receiver.summary}; {count} frames, {args.seconds:g} s")
    print(f"lateness p50 {late[count // 2]:.2f} ms, p99 {late[count * 99 // 100]:.2f} ms, max {late[-1]:.2f} ms; "
          f"drift {drift:+.3f} ms")


main()
