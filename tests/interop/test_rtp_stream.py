"""ts2av plays a sample on lane-1 and av2rtp forwards it from lane-2. ffmpeg receives and decodes the stream, and
tshark checks its datagrams. Runs in its own network namespace (tests/support/network-test)."""

import contextlib
import os
import pathlib
import signal
import socket
import struct
import subprocess

import pytest

import rtp
import tsfile
from lanes import LANE_1, LANE_2, SAMPLES, TIMEOUT, Running, wait_for
from tools import decode, tool, video_hashes

SAMPLE_NAMES = ["h264-cbr", "h264-vbr", "h265-cbr", "h265-vbr"]
PORT = 5004
PROBE_PORT = 5006

SESSION = f"""v=0
o=- 0 0 IN IP4 127.0.0.1
s=flowlane
c=IN IP4 127.0.0.1
t=0 0
m=video {PORT} RTP/AVP 33
"""


def is_bound(port):
    """Whether somebody receives on this UDP port, in the network of the thread that runs the case."""
    lines = pathlib.Path("/proc/thread-self/net/udp").read_text().splitlines()[1:]
    return any(line.split()[1].endswith(f":{port:04X}") for line in lines)


@contextlib.contextmanager
def forwarding(segment):
    with Running(segment.env, "av2rtp", "127.0.0.1", "-p", PORT, "-n", LANE_2) as program:
        program.read_until("press any key to stop...")
        yield program


def hashes_of(text):
    return [line.rsplit(",", 1)[1].strip() for line in text.splitlines() if not line.startswith("#")]


def receive_pictures(segment, folder, count, *arguments):
    """The hashes of at least count pictures that ffmpeg decodes while ts2av plays a file again and again."""
    session = folder / "session.sdp"
    session.write_text(SESSION)
    received = folder / "received"
    ffmpeg = subprocess.Popen(
        ["ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-protocol_whitelist", "file,udp,rtp", "-i",
         str(session), "-map", "0:v", "-fps_mode", "passthrough", "-flush_packets", "1", "-f", "framemd5",
         str(received)], stdin=subprocess.DEVNULL)
    try:
        wait_for(lambda: is_bound(PORT), "ffmpeg")
        # ffmpeg keeps the last pictures until others follow, so the file is played again.
        with forwarding(segment), Running(segment.env, "ts2av", *arguments, "-n", LANE_1, "-l"):
            wait_for(lambda: received.exists() and len(hashes_of(received.read_text())) >= count, "all pictures")
    finally:
        ffmpeg.terminate()
        ffmpeg.wait(timeout=TIMEOUT)
    return hashes_of(received.read_text())


@pytest.mark.parametrize("name", SAMPLE_NAMES)
def test_ffmpeg_receives_the_video(segment, tmp_path, name):
    sample = SAMPLES / f"{name}.ts"
    cut = tmp_path / "cut.ts"
    cut.write_bytes(b"".join(tsfile.delivered_part(sample.read_bytes())))
    # The last pictures of the cut may be incomplete.
    original = video_hashes(sample)
    complete = len(original) - 4
    assert video_hashes(cut)[:complete] == original[:complete]

    received = receive_pictures(segment, tmp_path, complete, sample)
    assert received[:complete] == original[:complete]


def pieces_of(sample):
    """A second of video each, behind the tables that a decoder needs."""
    packets = tsfile.packets((SAMPLES / sample).read_bytes())
    starts = [i for i, packet in enumerate(packets) if packet[1] & 0x1F == 1 and packet[2] == 0  # the video's PID
              and packet[3] & 0x20 and packet[4] and packet[5] & 0x40]  # random access indicator
    assert starts[0] == 3 and len(starts) == 6
    return [packets[:3] + packets[start:end] for start, end in zip(starts, starts[1:] + [len(packets)])]


def spliced():
    """20 pieces out of order. The first clock reference of some has the discontinuity indicator."""
    pieces = pieces_of("h264-vbr.ts"), pieces_of("h264-cbr.ts")
    file = []
    for number in range(20):
        piece = list(pieces[number % 2][number * 5 % 6])
        if number % 3 == 1:
            first = next(i for i, packet in enumerate(piece) if tsfile.pcr_of(packet) is not None)
            piece[first] = piece[first][:5] + bytes([piece[first][5] | 0x80]) + piece[first][6:]
        file += piece
    return b"".join(file)


def test_ffmpeg_receives_all_pictures_of_a_spliced_file(segment, tmp_path):
    path = tmp_path / "spliced.ts"
    path.write_bytes(spliced())
    original = hashes_of(tool("ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-i", path, "-map", "0:v",
                              "-fps_mode", "passthrough", "-f", "framemd5", "-").decode())
    assert len(original) == 20 * 25
    assert receive_pictures(segment, tmp_path, len(original), path, "-rc")[:len(original)] == original


def play(segment, sample):
    """Plays a sample through both programs until all of it has been forwarded."""
    expected = len(tsfile.delivered_part(sample.read_bytes()))
    with forwarding(segment) as program:
        assert segment.run("ts2av", sample, "-n", LANE_1).returncode == 0
        program.read_until(f"TS packets sent: {expected}, ")


def capture_while(path, action):
    """Captures the loopback interface with tshark while action runs."""
    with subprocess.Popen(["tshark", "-q", "-i", "lo", "-f", f"udp port {PORT} or udp port {PROBE_PORT}", "-w",
                           str(path)], stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as tshark:
        try:
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
                def is_written(mark):
                    probe.sendto(mark, ("127.0.0.1", PROBE_PORT))
                    return path.exists() and mark in path.read_bytes()
                wait_for(lambda: is_written(b"the beginning"), "tshark")
                action()
                wait_for(lambda: is_written(b"the end"), "tshark to write all")
        finally:
            os.kill(tshark.pid, signal.SIGINT)
            tshark.communicate(timeout=TIMEOUT)
    assert tshark.returncode == 0


RTP_FIELDS = {"rtp.version": "2", "rtp.padding": "0", "rtp.ext": "0", "rtp.cc": "0", "rtp.marker": "0",
              "rtp.p_type": "33", "rtp.timestamp": "0", "rtp.ssrc": "0x0"}


def decode_rtp(path, *fields):
    return decode(path, [*RTP_FIELDS, "rtp.seq", *fields], "-d", f"udp.port=={PORT},rtp", "-Y", "rtp")


@pytest.mark.parametrize("name", SAMPLE_NAMES)
def test_tshark_decodes_the_stream(segment, tmp_path, name):
    sample = SAMPLES / f"{name}.ts"
    captured = tmp_path / "rtp.pcapng"
    with rtp.Receiver(port=PORT) as receiver:
        capture_while(captured, lambda: play(segment, sample))
    sent = receiver.datagrams

    datagrams = decode_rtp(captured, "mp2t.cc.drop", "mp2t.sync_byte", "udp.length")
    assert len(datagrams) == len(sent)
    for number, datagram in enumerate(datagrams):
        assert {field: datagram[field] for field in RTP_FIELDS} == RTP_FIELDS
        assert int(datagram["rtp.seq"]) == number
        assert int(datagram["mp2t.sync_byte"], 0) == 0x47
        assert datagram["mp2t.cc.drop"] == ""
        assert int(datagram["udp.length"]) == 8 + len(sent[number])
    assert rtp.split(sent) == tsfile.delivered_part(sample.read_bytes())


def test_tshark_would_see_a_lost_datagram(tmp_path):
    """Proves that the tests above would see a continuity error."""
    captured = tmp_path / "rtp.pcapng"
    packets = tsfile.packets((SAMPLES / "h264-cbr.ts").read_bytes())

    def send_with_a_gap():
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for number in range(100):
                if number != 50:
                    header = struct.pack(">BBHII", 0x80, 33, number, 0, 0)
                    sender.sendto(header + b"".join(packets[number * 7:number * 7 + 7]), ("127.0.0.1", PORT))

    with rtp.Receiver(port=PORT):
        capture_while(captured, send_with_a_gap)
    datagrams = decode_rtp(captured, "mp2t.cc.drop")
    assert len(datagrams) == 99
    assert any(datagram["mp2t.cc.drop"] for datagram in datagrams)
