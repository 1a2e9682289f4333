"""What av2rtp says about a host that it cannot send to and a stream that does not come as it should, and its exit
code with -es."""

import errno
import re

import pytest

import rtp
import tsfile
from lanes import (FAKE_DEVICE_DIR, LANE_1, LANE_2, Running, exit_status, run_with_fake_device, sanitized_environment,
                   wait_for)
from pcapng import INTERFACE, SECTION, START, packet

RUNNING = "press any key to stop..."
KESTATUS_NO_RESOURCES = 0xE0000021
KESTATUS_INVALID_DATA = 0xE0000057


@pytest.mark.parametrize("host, line", [
    ("127.0.0.1:5004", "The host stands alone, the port behind -p: flowlane av2rtp 127.0.0.1 -p 5004"),
    ("[::1]:5004", "The host stands alone, the port behind -p: flowlane av2rtp ::1 -p 5004"),
    ("rtp://127.0.0.1:5004", "The host stands alone, the port behind -p: flowlane av2rtp 127.0.0.1 -p 5004"),
    ("udp://@239.1.2.3:1234", "The host stands alone, the port behind -p: flowlane av2rtp 239.1.2.3 -p 1234"),
    ("[::1]", "The host stands alone: flowlane av2rtp ::1"),
])
def test_host_with_more(host, line):
    result = run_with_fake_device("av2rtp", host)
    assert result.stderr.splitlines() == ["CreateRtpUdpSink failed, st=0xe0000025(KESTATUS_NO_ADDRESS).", line]


def test_broadcast_address():
    result = run_with_fake_device("av2rtp", "127.255.255.255")
    assert result.stderr.splitlines() == [
        "CreateRtpUdpSink failed, st=0xe001000d(KESTATUS_LINUX_EACCES).",
        "Sending to 127.255.255.255 is not possible: Permission denied. Is it a broadcast address? av2rtp sends to "
        "one host or to a multicast group."]
    assert result.returncode == errno.EACCES


@pytest.mark.parametrize("args, line", [
    (["127.0.0.1", "5004"], "'5004' is ignored. The port is given with: -p 5004"),
    (["127.0.0.1", "fake-2"], "'fake-2' is ignored. A device is chosen with: -n fake-2. The device used is 'fake-1'."),
    (["127.0.0.1", "-p", "5k"], "-p 5k is read as 5."),
    (["127.0.0.1", "-m", ""], "The address behind -m is empty. Every sender is accepted."),
    (["127.0.0.1", "-l"], "-l is not used by av2rtp."),
])
def test_words_and_options(args, line):
    result = run_with_fake_device("av2rtp", *args, script="mac_size=5")
    assert result.stderr.splitlines() == [line, "CreateAvtpSource failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH)."]


def test_device_in_place_of_the_host(segment):
    result = segment.run("av2rtp", LANE_2)
    lines = result.stderr.splitlines()
    assert lines[0] == f"'{LANE_2}' is taken as the host. To use the device of this name give a host and: -n {LANE_2}"
    assert lines[1] == "CreateRtpUdpSink failed, st=0xe0000025(KESTATUS_NO_ADDRESS)."
    assert lines[2].startswith((f"The host '{LANE_2}' is not known (",
                                f"The name server gives no answer for the host '{LANE_2}' ("))


# --- What came of the stream -------------------------------------------------------------------------------


def frame(number, packets=1, excess=0, ether_type="22f0", block_count=None):
    """A broadcast frame of a stream: the numbers of its packets are the frame's. excess: how much the stream data
    length is too large."""
    data = b"".join(bytes(4) + tsfile.packet(number) for _ in range(packets))
    blocks = 8 * number if block_count is None else block_count
    return (b"\xff" * 6 + bytes.fromhex("02aabbccddee" + ether_type) + bytes([0, 0x80, number % 256, 0])
            + bytes.fromhex("02aabbccddee0000") + bytes(8) + (8 + len(data) + excess).to_bytes(2, "big") + bytes(2)
            + bytes([0x3F, 6, 0xC4, blocks % 256, 0xA0, 0, 0, 0]) + data)


def receive(segment, tmp_path, frames, *options, receiver=None):
    """Sends frames to av2rtp and stops it when it has taken the last, which is a good one with number 200. Returns
    the lines of standard error and the exit code."""
    path = tmp_path / "frames.pcapng"
    frames = [*frames, frame(200)]
    path.write_bytes(SECTION + INTERFACE + b"".join(packet(data, START + i) for i, data in enumerate(frames)))
    with rtp.Receiver() as own:
        port = (receiver or own).port
        with Running(segment.env, "av2rtp", "127.0.0.1", "-p", port, "-n", LANE_2, *options) as program:
            program.read_until(RUNNING)
            played = segment.run("playpcap", path, "-n", LANE_1)
            assert played.returncode == 0, played.stderr
            wait_for(lambda: own.datagrams and own.datagrams[-1].endswith(tsfile.packet(200)), "the last frame")
            code = program.stop()
    return program.stderr.splitlines(), code


def gaps(count):
    return (f"The received stream has {count}: frames were lost on the way, the sender has started again, or "
            "streams are mixed (choose one with -m or -u).")


@pytest.mark.parametrize("options", [[], ["-es"]])
def test_good_stream(segment, tmp_path, options):
    assert receive(segment, tmp_path, [frame(198), frame(199)], *options) == ([], 0)


@pytest.mark.parametrize("frames, line, status", [
    ([frame(198)], gaps("1 gap"), KESTATUS_NO_RESOURCES),
    ([frame(1), frame(5)], gaps("2 gaps"), KESTATUS_NO_RESOURCES),
    # A jump of the blocks alone.
    ([frame(199, block_count=0)], gaps("1 gap"), KESTATUS_NO_RESOURCES),
    ([frame(199, excess=1)], "1 damaged frame was left out of the stream.", KESTATUS_INVALID_DATA),
    ([frame(198, excess=1), frame(199, excess=1)], "2 damaged frames were left out of the stream.",
     KESTATUS_INVALID_DATA),
])
@pytest.mark.parametrize("option", [None, "-es", "--error_status"])
def test_gaps_and_damage(segment, tmp_path, frames, line, status, option):
    options = [option] if option else []
    assert receive(segment, tmp_path, frames, *options) == ([line], exit_status(status) if option else 0)


def test_the_gravest_is_the_exit_code(segment, tmp_path):
    lines, code = receive(segment, tmp_path, [frame(1), frame(199, excess=1)], "-es")
    assert lines == [gaps("1 gap"), "1 damaged frame was left out of the stream."]
    assert code == exit_status(KESTATUS_NO_RESOURCES)


def run_until_stopped(env, *args):
    """The lines of standard error and the exit code of a run with two lines of statistics."""
    with Running(env, "av2rtp", *args) as program:
        program.read_until(RUNNING)
        program.read_until("AVTP packets received: ")
        program.read_until("AVTP packets received: ")
        code = program.stop()
    return program.stderr.splitlines(), code


def test_no_frame_at_all(segment):
    assert run_until_stopped(segment.env, "127.0.0.1", "-n", LANE_2, "-es") == (
        [f"No frame has come to the device '{LANE_2}'. Check the sender, or choose another device with -n."], 0)


def test_other_traffic_only(segment, tmp_path):
    path = tmp_path / "frames.pcapng"
    others = [frame(1, ether_type="0800"), frame(2, ether_type="86dd"), frame(3)]
    path.write_bytes(SECTION + INTERFACE + b"".join(packet(data, START) for data in others))
    with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2, "-m", "025142580003") as program:
        program.read_until(RUNNING)
        assert segment.run("playpcap", path, "-n", LANE_1).returncode == 0
        # The next lines of statistics come when the frames have been taken.
        for _ in range(3):
            program.read_until("AVTP packets received: ")
    assert program.stderr.splitlines() == [
        f"No stream for this receiver has come to the device '{LANE_2}'. Of 3 frames: 3 not from the sender of -m."]


def test_dead_device_is_the_exit_code():
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="WaitForRawFrame=0xE0000031")
    assert run_until_stopped(env, "127.0.0.1", "-es") == (
        ["AVTP source has ended, st=0xe0000031(KESTATUS_NOT_POSSIBLE)."], exit_status(0xE0000031))


@pytest.mark.parametrize("address, receiver", [("127.0.0.1", "127.0.0.1"), ("::1", "[::1]")])
@pytest.mark.parametrize("options, code", [([], 0), (["-es"], errno.ECONNREFUSED)])
def test_nobody_listens(segment, short_file, address, receiver, options, code):
    port = rtp.closed_port(address)
    with Running(segment.env, "av2rtp", address, "-p", port, "-n", LANE_2, *options) as program:
        program.read_until(RUNNING)
        assert segment.run("ts2av", short_file, "-n", LANE_1).returncode == 0
        for _ in range(3):
            program.read_until("AVTP packets received: ")
        assert program.stop() == code
    lines = program.stderr.splitlines()
    assert lines
    for line in lines:
        assert re.fullmatch(rf"UDP packets that could not be sent to {re.escape(receiver)}:{port}: \d+ tried again, "
                            r"\d+ given up \(Connection refused: nobody listens there\)", line), line
