"""playpcap replays files of dumpcap and tshark: several interfaces, statistics and name resolution blocks. Runs in its
own network namespace (tests/support/network-test)."""

import os
import signal
import socket
import struct
import subprocess

import capture
from lanes import LANE_1, TIMEOUT, wait_for
from tools import tool

PORT = 5004


def block_types(path):
    data = path.read_bytes()
    offset = 0
    types = []
    while offset < len(data):
        kind, length = struct.unpack_from("<II", data, offset)
        types.append(kind)
        offset += length
    return types


def record(path, *options):
    """Records some datagrams on the loopback interface with dumpcap."""
    dumpcap = subprocess.Popen(["dumpcap", "-q", "-i", "lo", "-f", f"udp port {PORT}", *options, "-w", str(path)],
                               stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            def is_recording():
                sender.sendto(b"the beginning", ("127.0.0.1", PORT))
                return path.exists() and b"the beginning" in path.read_bytes()
            wait_for(is_recording, "dumpcap")
            for number in range(200):
                sender.sendto(number.to_bytes(4, "big") * (1 + number), ("127.0.0.1", PORT))

            def is_complete():
                sender.sendto(b"the end", ("127.0.0.1", PORT))
                return b"the end" in path.read_bytes()
            wait_for(is_complete, "dumpcap to write all")
    finally:
        os.kill(dumpcap.pid, signal.SIGINT)
        dumpcap.wait(timeout=TIMEOUT)
    assert dumpcap.returncode == 0


def frames_of(tmp_path, path):
    converted = tmp_path / "converted.pcap"
    tool("editcap", "-F", "nsecpcap", path, converted)
    return [frame for _, frame in capture.frames(converted)]


def replay(segment, tmp_path, path):
    captured = tmp_path / "replayed.pcap"
    with segment.receiver(captured):
        result = segment.run("playpcap", path, "-n", LANE_1)
    assert result.returncode == 0, result.stderr
    assert "Errors occurred!" not in result.stdout
    return [frame for _, frame in capture.frames(captured)]


def test_file_of_dumpcap(segment, tmp_path):
    path = tmp_path / "dumpcap.pcapng"
    record(path)
    types = block_types(path)
    assert types[0] == 0x0A0D0D0A and 5 in types  # with interface statistics
    frames = frames_of(tmp_path, path)
    assert len(frames) > 200
    assert replay(segment, tmp_path, path) == frames


def test_name_resolution_blocks(segment, tmp_path):
    recorded = tmp_path / "dumpcap.pcapng"
    record(recorded)
    path = tmp_path / "names.pcapng"
    hosts = tmp_path / "hosts"
    hosts.write_text("127.0.0.1 the-loopback\n")
    tool("tshark", "-2", "-P", "-N", "n", "-r", recorded, "-H", hosts, "-W", "n", "-w", path)
    assert 4 in block_types(path)
    assert replay(segment, tmp_path, path) == frames_of(tmp_path, path)


def test_what_we_recorded_goes_through_their_tools_and_back(segment, tmp_path):
    """editcap and mergecap cut, split and join a capture, and playpcap replays it."""
    recorded = tmp_path / "dumpcap.pcapng"
    record(recorded)
    parts = tmp_path / "part.pcapng"
    tool("editcap", "-c", "50", recorded, parts)
    joined = tmp_path / "joined.pcapng"
    tool("mergecap", "-a", "-w", joined, *sorted(tmp_path.glob("part_*.pcapng")))
    assert replay(segment, tmp_path, joined) == frames_of(tmp_path, recorded)
