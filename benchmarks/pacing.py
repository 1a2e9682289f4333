#!/usr/bin/env python3
"""Measures how well ts2av keeps a stream's rate: plays a made-up stream of constant rate on a segment of its
own and looks at the times at which the frames were sent.

usage: pacing.py BUILD_FOLDER [--seconds N] [--rate PACKETS_PER_SECOND]

mean rate: of the packets, between the first and the last frame, against the stream's own.
lateness: of each frame's last packet, against its delivery time (which stands in the source packet header);
the smallest one is taken for zero, since the two clocks have different origins.
The last batch does not count: when its packets fill its frames exactly, it is not flushed before the device is
closed, up to a second later.
"""

import argparse
import os
import pathlib
import sys
import tempfile

top = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(top / "tests" / "support" / "python"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--rate", type=int, default=6650)
    args = parser.parse_args()

    os.environ.update(
        FLOWLANE_SOURCE=str(top),
        FLOWLANE_BIN=str(args.build / "source_linux" / "flowlane" / "flowlane"),
        LANE_DUMP_BIN=str(args.build / "tests" / "support" / "segment" / "lane-dump"),
        LANE_SEND_BIN="", FAKE_DEVICE_DIR="")
    import capture
    import lanes
    import tsfile

    segment = lanes.Segment(f"pacing-{os.getpid()}")
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "stream.ts"
        # A clock reference every 20 ms or so.
        path.write_bytes(tsfile.stream(args.seconds, args.rate, pcr_every=max(1, args.rate // 50)))
        captured = pathlib.Path(folder) / "frames.pcap"
        try:
            with segment.receiver(captured) as receiver:
                result = segment.run("ts2av", path)
            assert result.returncode == 0, result.stderr
        finally:
            segment.remove()
        frames = [(time, capture.AvtpFrame(frame)) for time, frame in capture.frames(captured)]
    capture.check_sequence([frame for _, frame in frames])

    frames = [frame for frame in frames if frame[0] != frames[-1][0]]

    packets = sum(len(frame.source_packets) for _, frame in frames)
    first, last = frames[0], frames[-1]
    span = (last[0] - first[0]) / 1e9
    # The packets of the first frame came at its time, so they do not count.
    rate = (packets - len(first[1].source_packets)) / span
    late = []
    due = None
    for time, frame in frames:
        stamp = int.from_bytes(frame.source_packets[-1][:4], "big")
        due = stamp if due is None else due + ((stamp - due + 2**31) % 2**32 - 2**31)
        late.append(time - due)
    late = sorted((value - min(late)) / 1e6 for value in late)
    print(f"{receiver.summary}; {packets} packets in {span:.3f} s")
    print(f"mean rate {rate:.1f} packets/s, the stream's {args.rate}: {100 * (rate / args.rate - 1):+.4f} %")
    print(f"lateness p50 {late[len(late) // 2]:.2f} ms, p99 {late[len(late) * 99 // 100]:.2f} ms, "
          f"max {late[-1]:.2f} ms")


main()
