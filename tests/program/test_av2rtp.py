"""The av2rtp command: its arguments, what it prints, and the datagrams it sends, on the loopback interface."""

import os
import re
import signal
import subprocess
import time

import pytest

import rtp
import tsfile
from arguments import KESTATUS_INVALID_FORMAT, KESTATUS_INVALID_LENGTH, KESTATUS_INVALID_PARAMETER
from arguments import MAC_EXAMPLE, MAC_FORM, VERSION_LINE, mac_failure, missing_arguments, takes_16_bits
from lanes import FAKE_DEVICE_DIR, LANE_1, LANE_2, LANE_SEND, Running, exit_status, run, run_with_fake_device
from lanes import sanitized_environment, wait_for

RUNNING = "press any key to stop..."
STATISTICS = r"AVTP packets received: (\d+), TS packets sent: (\d+), UDP packets sent: (\d+)"
LANE_1_ADDRESS = "025142580001"
ID_RANGE = takes_16_bits("-u")
PORT_RANGE = takes_16_bits("-p")


def no_frame(name):
    return f"No frame has come to the device '{name}'. Check the sender, or choose another device with -n."


@pytest.mark.parametrize("args, lines, status", [
    ([], missing_arguments("av2rtp"), KESTATUS_INVALID_PARAMETER),
    # The missing argument is checked first.
    (["-m", "x", "-u", "65536", "-p", "65536"],
     missing_arguments("av2rtp") + [ID_RANGE, PORT_RANGE],
     KESTATUS_INVALID_PARAMETER),
    (["127.0.0.1", "-m", "11223344556"],
     [mac_failure("11223344556", KESTATUS_INVALID_LENGTH, "KESTATUS_INVALID_LENGTH"),
      MAC_EXAMPLE],
     KESTATUS_INVALID_LENGTH),
    # The address is checked before the numbers.
    (["127.0.0.1", "-m", "0a:1b:2c:3d:4e:5f", "-u", "65536", "-p", "65536"],
     [mac_failure("0a:1b:2c:3d:4e:5f", KESTATUS_INVALID_FORMAT, "KESTATUS_INVALID_FORMAT"),
      MAC_FORM + ": -m 0a1b2c3d4e5f", ID_RANGE, PORT_RANGE],
     KESTATUS_INVALID_FORMAT),
    # The ID is checked before the port.
    (["127.0.0.1", "-u", "65536", "-p", "65536"], ["unique ID 0x00010000 exceeds max. 0xFFFF.",
                                                       ID_RANGE, PORT_RANGE],
     KESTATUS_INVALID_PARAMETER),
    (["127.0.0.1", "-p", "65536"], ["port number 0x00010000 exceeds max. 0xFFFF.", PORT_RANGE],
     KESTATUS_INVALID_PARAMETER),
    (["127.0.0.1", "-p", "-1"],
     ["port number 0xFFFFFFFF exceeds max. 0xFFFF.", "-p -1 is read as 4294967295. " + PORT_RANGE],
     KESTATUS_INVALID_PARAMETER),
])
def test_refused_arguments(args, lines, status):
    result = run("av2rtp", *args)
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr.splitlines() == lines
    assert result.returncode == exit_status(status)


@pytest.mark.parametrize("script, lines, status", [
    ("OpenRawRxDevice=0xE0000006",
     ["Open device failed, st=0xe0000006(KESTATUS_IN_USE).",
      "'fake-1' is in use by another program. End that program, or choose another device."], 0xE0000006),
    ("GetDevicePropertyBinary=0xE0000039", ["CreateAvtpSource failed, st=0xe0000039(KESTATUS_NOT_FOUND)."],
     0xE0000039),
    ("mac_size=8", ["CreateAvtpSource failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH)."], 0xE0000061),
    ("EnableRawRx=0xE0000030", ["StartSource failed, st=0xe0000030(KESTATUS_NOT_SUPPORTED)."], 0xE0000030),
])
def test_device_failures_at_the_start(script, lines, status):
    result = run_with_fake_device("av2rtp", "127.0.0.1", "-p", "65535", script=script)
    assert result.stderr.splitlines()[-len(lines):] == lines
    assert result.returncode == exit_status(status)


def test_name_that_cannot_be_resolved(segment):
    result = segment.run("av2rtp", "a" * 64, "-d", "1")
    assert result.stderr.splitlines() == [
        "CreateRtpUdpSink failed, st=0xe0000025(KESTATUS_NO_ADDRESS).",
        f"The host '{'a' * 64}' is not known (Name or service not known). Check the name, or give the host's IP "
        "address."]
    assert result.stdout.splitlines()[-1] == f"Create RTP sink, host name='{'a' * 64}', port=5000..."
    assert result.returncode == exit_status(0xE0000025)


def test_lines_of_a_run(segment):
    port = rtp.closed_port()
    with Running(segment.env, "av2rtp", "localhost", "ignored argument", "-n", LANE_2, "-p", port) as program:
        for _ in range(3):
            program.read_until("AVTP packets received: ")
    assert program.stderr.splitlines() == ["'ignored argument' is ignored: av2rtp takes one host.", no_frame(LANE_2)]
    lines = [line for line in program.lines if not line.startswith("AVTP packets received: ")]
    assert re.fullmatch(r"Found \d+ Quayside device\(s\)", lines[2])
    del lines[2]
    assert re.fullmatch(r"Host name 'localhost' resolved to address (127\.0\.0\.1|::1)", lines[3])
    del lines[3]
    assert lines == [
        VERSION_LINE,
        "Enumerate available devices...",
        f"Create RTP sink, host name='localhost', port={port}...",
        "Create AVTP source...",
        "Start RTP sink...",
        f"Start AVTP source on device {LANE_2}(1)...",
        "Receive AVTP compliant stream, press any key to stop...",
        "Stop AVTP source...",
        "Stop RTP sink...",
    ]
    # Once per second, also when nothing is received.
    statistics = [line for line in program.lines if line.startswith("AVTP packets received: ")]
    assert set(statistics) == {"AVTP packets received: 0, TS packets sent: 0, UDP packets sent: 0"}
    first = program.lines.index(statistics[0])
    assert program.lines[first:first + len(statistics)] == statistics
    assert "press any key" in program.lines[first - 1]


def forward(segment, path, receiver, *options, host="127.0.0.1", send_options=(), expected=0):
    """Plays a file on lane-1 while av2rtp forwards from lane-2. Returns the statistics when the expected number
    of TS packets has been forwarded, or after a time limit, and the lines of standard error."""
    with Running(segment.env, "av2rtp", host, "-p", receiver.port, "-n", LANE_2, *options) as program:
        program.read_until(RUNNING)
        sent = segment.run("ts2av", path, "-n", LANE_1, *send_options)
        assert sent.returncode == 0, sent.stderr
        for _ in range(10 if expected else 4):
            line = program.read_until("AVTP packets received: ")
            counts = [int(number) for number in re.fullmatch(STATISTICS, line).groups()]
            if expected and counts[1] >= expected:
                break
    return counts, program.stderr.splitlines()


@pytest.mark.parametrize("host, address", [
    ("127.0.0.1", "127.0.0.1"), ("::1", "::1"), ("0:0:0::1", "::1"), ("127.1", "127.0.0.1")])
def test_forwards_every_packet(segment, short_file, host, address):
    expected = tsfile.delivered_part(short_file.read_bytes())
    with rtp.Receiver(address) as receiver:
        (avtp_count, ts_count, udp_count), errors = forward(segment, short_file, receiver, host=host,
                                                            expected=len(expected))
    assert errors == []
    assert rtp.split(receiver.datagrams) == expected
    assert ts_count == len(expected)
    assert udp_count == len(receiver.datagrams)
    assert avtp_count == udp_count  # the packets of a frame leave at once


ALL_IGNORED = r"No stream for this receiver has come to the device '{}'. Of (\d+) frames: (\d+) {}."


@pytest.mark.parametrize("options, send_options, reason", [
    ([], ["-u", "7"], None),
    (["-m", LANE_1_ADDRESS], [], None),
    (["-m", "025142580002"], [], "not from the sender of -m"),
    (["-m", "FFFFFFFFFFFF"], [], None),
    (["-u", "0x1234"], ["-u", "0x1234"], None),
    (["-u", "0x1234"], ["-u", "0x1235"], "without the ID of -u"),
    (["-u", "0"], ["-u", "0"], None),
    (["-u", "0"], ["-u", "1"], "without the ID of -u"),  # 0 is an ordinary ID
    ([], ["-vtci", "0x6002"], None),
    ([], ["-m", "025142580002"], None),  # lane-2's own address
    ([], ["-m", "025142580003"], "for another receiver"),
    ([], ["-m", "91e0f0000e80"], "for another receiver"),  # a multicast address
])
def test_filters(segment, tmp_path, options, send_options, reason):
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=0.2, rate=200))
    expected = tsfile.delivered_part(path.read_bytes())
    with rtp.Receiver() as receiver:
        counts, errors = forward(segment, path, receiver, *options, send_options=send_options,
                                 expected=0 if reason else len(expected))
    if not reason:
        assert errors == []
        assert rtp.split(receiver.datagrams) == expected
    else:
        assert receiver.datagrams == []
        assert counts == [0, 0, 0]
        assert len(errors) == 1
        match = re.fullmatch(ALL_IGNORED.format(LANE_2, reason), errors[0])
        assert match, errors
        assert match[1] == match[2]


def test_receiver_that_goes_and_comes_back(segment, tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=300, rate=200))
    port = rtp.closed_port()
    with Running(segment.env, "av2rtp", "127.0.0.1", "-p", port, "-n", LANE_2) as program, \
            Running(segment.env, "ts2av", path, "-n", LANE_1):
        # A warning, so on standard error.
        failures = rf"UDP packets that could not be sent to 127\.0\.0\.1:{port}: \d+ tried again, \d+ given up " \
                   r"\(Connection refused: nobody listens there\)\n$"
        lines = iter(program.process.stderr.readline, "")
        assert re.match(failures, next(lines))
        assert re.match(failures, next(lines))
        with rtp.Receiver(port=port) as receiver:
            wait_for(lambda: len(receiver.datagrams) > 50, "datagrams")
        first = int.from_bytes(receiver.datagrams[0][2:4], "big")
        packets = rtp.split(receiver.datagrams, first)
        numbers = [int.from_bytes(packet[4:8], "big") for packet in packets
                   if tsfile.pcr_of(packet) is None]
        assert numbers == sorted(numbers)
        assert re.match(failures, next(lines))  # the receiver is gone again
        program.process.stderr.close()
        program.process.stderr = None


def test_dead_device_is_told_and_ends_nothing():
    """The worker has ended. The statistics go on until the user ends the command."""
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="WaitForRawFrame=0xE0000031")
    with Running(env, "av2rtp", "127.0.0.1") as program:
        for _ in range(3):
            program.read_until("AVTP packets received: 0, TS packets sent: 0, UDP packets sent: 0")
    assert program.lines[-1] == "Stop RTP sink..."
    assert program.stderr == "AVTP source has ended, st=0xe0000031(KESTATUS_NOT_POSSIBLE).\n"


def test_key_ends_it_while_it_waits(segment):
    with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2, stdin=subprocess.PIPE) as program:
        program.read_until("AVTP packets received: 0")
        program.process.stdin.write("x")
        program.process.stdin.flush()
        program.read_until("Stop RTP sink...")
        assert program.process.wait(timeout=60) == 0


def test_stops_while_frames_arrive_at_full_speed(segment):
    flood = subprocess.Popen([LANE_SEND, "-n", LANE_1, "-c", "0", "-l", "1390"], env=segment.env,
                             stdout=subprocess.PIPE)
    try:
        assert flood.stdout.readline() == b"ready\n"
        with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2) as program:
            program.read_until("AVTP packets received: ")
            program.read_until("AVTP packets received: ")
            begin = time.monotonic()
            program.stop()
            # The statistics come once per second. The rest is reserve for a busy machine.
            assert time.monotonic() - begin < 10
            assert program.lines[-1] == "Stop RTP sink..."
            assert program.process.returncode == 0
    finally:
        flood.kill()
        flood.communicate()


def test_sender_that_starts_again(segment, short_file):
    """The new stream begins with other counters. That is one jump, and it loses no packet."""
    expected = tsfile.delivered_part(short_file.read_bytes())
    with rtp.Receiver() as receiver:
        with Running(segment.env, "av2rtp", "127.0.0.1", "-p", receiver.port, "-n", LANE_2) as program:
            program.read_until(RUNNING)
            for _ in range(2):
                assert segment.run("ts2av", short_file, "-n", LANE_1).returncode == 0
            program.read_until("AVTP packets received: ")
            program.read_until("AVTP packets received: ")
    assert rtp.split(receiver.datagrams) == expected * 2


def test_killed_receiver_frees_its_lane(segment):
    with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2) as program:
        program.read_until(RUNNING)
        os.kill(program.process.pid, signal.SIGKILL)
        program.process.wait()
    with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2) as program:
        program.read_until(RUNNING)


def test_statistics_once_a_second(segment):
    with Running(segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2) as program:
        program.read_until("AVTP packets received: ")
        begin = time.monotonic()
        for _ in range(4):
            program.read_until("AVTP packets received: ")
        assert 3.9 < time.monotonic() - begin < 11


def test_device_library_is_called_by_one_thread_at_a_time():
    """Also when the library answers oddly for unknown properties."""
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR,
                                FAKE_QBX="any_property=1,overlaps=1,WaitForRawFrame=0,WaitForRawFrame_ms=300")
    with Running(env, "av2rtp", "127.0.0.1") as program:
        for _ in range(4):
            program.read_until("AVTP packets received: ")
    assert program.stderr.splitlines() == [no_frame("fake-1")]
