"""The ts2av command: its arguments, what it prints, and the frames it sends."""

import re
import signal
import subprocess
import time

import pytest

import capture
import tsfile
from arguments import KESTATUS_INVALID_FORMAT, KESTATUS_INVALID_LENGTH, KESTATUS_INVALID_PARAMETER
from arguments import MAC_EXAMPLE, MAC_FORM, VERSION_LINE, mac_failure, missing_arguments, takes_16_bits
from lanes import (FAKE_DEVICE_DIR, LANE_1, LANE_2, LANE_3, LANE_4, SAMPLES, Running, exit_status, run,
                   run_with_fake_device, sanitized_environment, wait_for)

LANE_1_ADDRESS = "025142580001"
LAST_LINES = ["Stop TS file source...", "Stop AVTP sink..."]


@pytest.mark.parametrize("args, lines, status", [
    ([], missing_arguments("ts2av"), KESTATUS_INVALID_PARAMETER),
    # The missing argument is checked first.
    (["-m", "x", "-u", "65536", "-vtci", "65536"],
     missing_arguments("ts2av") + [takes_16_bits("-u"), takes_16_bits("-vtci")], KESTATUS_INVALID_PARAMETER),
    (["f", "-m", "11223344556"],
     [mac_failure("11223344556", KESTATUS_INVALID_LENGTH, "KESTATUS_INVALID_LENGTH"), MAC_EXAMPLE],
     KESTATUS_INVALID_LENGTH),
    (["f", "-m", "0a:1b:2c:3d:4e:5f"],
     [mac_failure("0a:1b:2c:3d:4e:5f", KESTATUS_INVALID_FORMAT, "KESTATUS_INVALID_FORMAT"),
      MAC_FORM + ": -m 0a1b2c3d4e5f"],
     KESTATUS_INVALID_FORMAT),
    (["f", "-m", "0x1122334455"],
     [mac_failure("0x1122334455", KESTATUS_INVALID_FORMAT, "KESTATUS_INVALID_FORMAT"), MAC_EXAMPLE],
     KESTATUS_INVALID_FORMAT),
    # The address is checked before the numbers.
    (["f", "-m", "zz2233445566", "-u", "65536", "-vtci", "65536"],
     [mac_failure("zz2233445566", KESTATUS_INVALID_FORMAT, "KESTATUS_INVALID_FORMAT"), MAC_EXAMPLE,
      takes_16_bits("-u"), takes_16_bits("-vtci")],
     KESTATUS_INVALID_FORMAT),
    (["f", "-u", "65536"], ["unique ID 0x00010000 exceeds max. 0xFFFF.", takes_16_bits("-u")],
     KESTATUS_INVALID_PARAMETER),
    (["f", "-u", "-1"],
     ["unique ID 0xFFFFFFFF exceeds max. 0xFFFF.", "-u -1 is read as 4294967295. " + takes_16_bits("-u")],
     KESTATUS_INVALID_PARAMETER),
    # The ID is checked before the tag.
    (["f", "-u", "0x10000", "-vtci", "0xfff"],
     ["unique ID 0x00010000 exceeds max. 0xFFFF.", takes_16_bits("-u")],
     KESTATUS_INVALID_PARAMETER),
    (["f", "-vtci", "65536"], ["VLAN TCI value 0x00010000 exceeds max. 0xFFFF.", takes_16_bits("-vtci")],
     KESTATUS_INVALID_PARAMETER),
    (["f", "-vtci", "0x10FFF"], ["VLAN TCI value 0x00010FFF exceeds max. 0xFFFF.", takes_16_bits("-vtci")],
     KESTATUS_INVALID_PARAMETER),
    (["f", "-vtci", "0xfff"], ["VLAN ID 0x00000FFF in specified VLAN TCI value  exceeds max. 0xFFE."],
     KESTATUS_INVALID_PARAMETER),
    (["f", "-vtci", "0xffff"], ["VLAN ID 0x00000FFF in specified VLAN TCI value  exceeds max. 0xFFE."],
     KESTATUS_INVALID_PARAMETER),
])
def test_refused_arguments(args, lines, status):
    result = run("ts2av", *args)
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr.splitlines() == lines
    assert result.returncode == exit_status(status)


@pytest.mark.parametrize("options, destination, tci, unique_id", [
    ([], "ff" * 6, None, 0),
    (["-m", "0a1B2c3D4e5F"], "0a1b2c3d4e5f", None, 0),
    (["-m", "91e0f0000e80"], "91e0f0000e80", None, 0),
    (["-m", "91e0f0000e80-and-more"], "91e0f0000e80", None, 0),
    (["-u", "65535"], "ff" * 6, None, 65535),
    (["-u", "0x1234", "-vtci", "0x6002"], "ff" * 6, 0x6002, 0x1234),
    (["-u", "010"], "ff" * 6, None, 10),
    (["-vtci", "0x0ffe"], "ff" * 6, 0x0FFE, 0),
    (["-vtci", "0xe000"], "ff" * 6, 0xE000, 0),
    (["-vtci", "0"], "ff" * 6, None, 0),
])
def test_frames(segment, short_file, tmp_path, options, destination, tci, unique_id):
    captured = tmp_path / "frames.pcap"
    with segment.receiver(captured) as receiver:
        result = segment.run("ts2av", short_file, "-n", LANE_1, *options)
    assert result.returncode == 0, result.stderr
    note = "-m 91e0f0000e80-and-more is read as 91e0f0000e80.\n"
    assert result.stderr == (note if "91e0f0000e80-and-more" in options else "")

    sent = [capture.AvtpFrame(frame) for _, frame in capture.frames(captured)]
    assert receiver.summary == f"{len(sent)} frames, 0 missing"
    assert {frame.destination for frame in sent} == {destination}
    assert {frame.source for frame in sent} == {LANE_1_ADDRESS}
    assert {frame.tci for frame in sent} == {tci}
    assert {frame.stream_id for frame in sent} == {f"{LANE_1_ADDRESS}{unique_id:04x}"}
    assert sent[0].sequence == 0 and sent[0].dbc == 0
    capture.check_sequence(sent)
    assert all(1 <= len(frame.source_packets) <= 7 for frame in sent)
    ts_packets = [packet[4:] for frame in sent for packet in frame.source_packets]
    assert ts_packets == tsfile.delivered_part(short_file.read_bytes())


def test_lines_of_a_run(segment, short_file):
    result = segment.run("ts2av", short_file, "ignored argument", "-n", LANE_1)
    assert result.stderr == "'ignored argument' is ignored: ts2av takes one file name.\n"
    lines = result.stdout.splitlines()
    assert re.fullmatch(r"Found \d+ Quayside device\(s\)", lines[2])
    del lines[2]
    statistics = [line for line in lines if line.startswith("TS packets sent: ")]
    assert [line for line in lines if line not in statistics] == [
        VERSION_LINE,
        "Enumerate available devices...",
        "Create AVTP sink...",
        f"Create TS file source for file '{short_file}'...",
        f"Start AVTP sink on device {LANE_1}(0)...",
        "Start TS file source...",
        f"Send content of file '{short_file}' as AVTP compliant stream, press any key to stop...",
        "Successfully sent content of TS file...",
        "Stop TS file source...",
        "Stop AVTP sink...",
    ]
    # They are all between the start and the end: the first before the first packet, the last with all packets.
    first = lines.index(statistics[0])
    assert lines[first:first + len(statistics)] == statistics
    assert lines[first + len(statistics)] == "Successfully sent content of TS file..."
    assert statistics[0] == "TS packets sent: 0, AVTP packets sent: 0, AVTP packets discarded: 0"
    count = len(tsfile.delivered_part(short_file.read_bytes()))
    last = re.fullmatch(r"TS packets sent: (\d+), AVTP packets sent: (\d+), AVTP packets discarded: 0",
                        statistics[-1])
    # The line is printed a moment before the check for the end. At most one round is sent in between.
    assert count - 20 <= int(last[1]) <= count
    assert int(last[1]) / 7 <= int(last[2]) <= count


@pytest.mark.parametrize("sample", ["h264-cbr", "h264-vbr", "h265-cbr", "h265-vbr"])
def test_samples_arrive_whole(segment, tmp_path, sample):
    path = SAMPLES / f"{sample}.ts"
    captured = tmp_path / "frames.pcap"
    with segment.receiver(captured) as receiver:
        result = segment.run("ts2av", path, "-d", "0")
    assert result.returncode == 0, result.stderr
    sent = [capture.AvtpFrame(frame) for _, frame in capture.frames(captured)]
    capture.check_sequence(sent)
    assert receiver.summary.endswith(" frames, 0 missing")
    ts_packets = [packet[4:] for frame in sent for packet in frame.source_packets]
    assert ts_packets == tsfile.delivered_part(path.read_bytes())


@pytest.mark.parametrize("option", ["-pt", "--precise_timing"])
def test_precise_timing_fills_all_frames_but_the_last(segment, tmp_path, option):
    path = tmp_path / "stream.ts"
    path.write_bytes(tsfile.stream(1, 3000, pcr_every=60))
    captured = tmp_path / "frames.pcap"
    with segment.receiver(captured):
        result = segment.run("ts2av", path, option)
    assert (result.returncode, result.stderr) == (0, "")
    sent = [capture.AvtpFrame(frame).source_packets for _, frame in capture.frames(captured)]
    ts_packets = [packet[4:] for packets in sent for packet in packets]
    assert ts_packets == tsfile.delivered_part(path.read_bytes())
    assert {len(packets) for packets in sent[:-1]} == {7}


def test_every_other_lane_receives(segment, short_file, tmp_path):
    files = {name: tmp_path / f"{name}.pcap" for name in (LANE_2, LANE_3, LANE_4)}
    with segment.receiver(files[LANE_2], name=LANE_2), segment.receiver(files[LANE_3], name=LANE_3), \
            segment.receiver(files[LANE_4], name=LANE_4):
        assert segment.run("ts2av", short_file, "-n", LANE_1).returncode == 0
    received = [[frame for _, frame in capture.frames(path)] for path in files.values()]
    assert received[0] and received[0] == received[1] == received[2]


NO_ADDRESS = "Device 'fake-1' does not tell its address: {}. Use another device."


@pytest.mark.parametrize("script, lines, status", [
    ("GetDevicePropertyBinary=0xE0000039",
     ["CreateAvtpSink failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      NO_ADDRESS.format("The object or data was not found")], 0xE0000039),
    ("mac_size=8",
     ["CreateAvtpSink failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH).",
      NO_ADDRESS.format("An unexpected length was detected")], 0xE0000061),
])
def test_device_failures_at_the_start(short_file, script, lines, status):
    result = run_with_fake_device("ts2av", short_file, script=script)
    assert result.stderr.splitlines() == lines
    assert result.returncode == exit_status(status)


def test_frames_without_resources_are_discarded_and_counted(short_file):
    result = run_with_fake_device("ts2av", short_file,
                                  script="CheckSubmitRawFrame=0xE0000021,WaitForTxResources=0")
    assert result.returncode == 0
    statistics = [line for line in result.stdout.splitlines() if line.startswith("TS packets sent: ")]
    match = re.fullmatch(r"TS packets sent: (\d+), AVTP packets sent: 0, AVTP packets discarded: (\d+)",
                         statistics[-1])
    assert int(match[1]) >= 980
    assert int(match[2]) >= int(match[1]) // 7
    count = re.fullmatch(r"Device 'fake-1' had no room for AVTP packets (\d+) times and discarded them. Use a faster link or "
                         r"a stream with a lower rate.\n", result.stderr)[1]
    assert int(count) >= int(match[2])


CANNOT_SEND = "Device 'fake-1' cannot send: The operation cannot be executed. Check the device and start again."


@pytest.mark.parametrize("script", ["SendRawFrames=0xE0000031", "SubmitRawFrame=0xE0000031",
                                    "CheckSubmitRawFrame=0xE0000031"])
def test_why_a_stream_has_ended(short_file, script):
    """The reason is printed once. At the end of the file the command ends too, and reports no success."""
    line = f"TS file source has ended, st=0xe0000031(KESTATUS_NOT_POSSIBLE).\n{CANNOT_SEND}\n"
    result = run_with_fake_device("ts2av", short_file, script=script)
    assert (result.returncode, result.stderr) == (0, line)
    assert "Successfully" not in result.stdout
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script)
    with Running(env, "ts2av", short_file, "-l") as program:
        program.read_until("press any key")
        for _ in range(3):
            program.read_until("TS packets sent: ")
    assert program.stderr == line


def fake_environment(script, **changes):
    return sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script, **changes)


def test_statistics_once_a_second(segment, tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=300, rate=50))
    with Running(segment.env, "ts2av", path) as program:
        program.read_until("TS packets sent: ")
        begin = time.monotonic()
        for _ in range(4):
            program.read_until("TS packets sent: ")
        assert 3.9 < time.monotonic() - begin < 11


def test_device_library_is_called_by_one_thread_at_a_time(short_file):
    """Also when the library answers oddly for unknown properties."""
    result = run_with_fake_device("ts2av", short_file, script="any_property=1,overlaps=1,SendRawFrames_ms=300")
    assert (result.returncode, result.stderr) == (0, "")
    assert "Successfully sent content of TS file..." in result.stdout


def write_one_batch(path, count):
    """Writes a file from which count packets are sent, all at the same moment."""
    path.write_bytes(b"".join(tsfile.packet(i, pcr=1000 if i in (0, count) else None) for i in range(count + 1)))
    return path


def stands_still(path):
    """What is said about such a file."""
    return (f"The clock of '{path}' stands still: its packets are sent without pacing. "
            f"Repair it with: ffmpeg -i '{path}' -c copy -f mpegts '{path.name}'")


@pytest.fixture
def full_frame_file(tmp_path):
    """A file that makes one full frame, which ends its batch."""
    return write_one_batch(tmp_path / "full.ts", 7)


def test_what_was_submitted_is_sent(full_frame_file, tmp_path):
    frames = tmp_path / "frames"
    result = run_with_fake_device("ts2av", full_frame_file, script="holds=1", FAKE_QBX_FRAMES=frames)
    assert (result.returncode, result.stderr) == (0, stands_still(full_frame_file) + "\n")
    assert frames.stat().st_size == 4 + 1390


def test_last_frames_that_cannot_be_sent(full_frame_file):
    result = run_with_fake_device("ts2av", full_frame_file, script="SendRawFrames=0xE0000031")
    assert result.stderr.splitlines() == ["SendRawFrames failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).", CANNOT_SEND,
                                          stands_still(full_frame_file)]
    assert result.stdout.splitlines()[-2:] == LAST_LINES
    assert result.returncode == 0


def test_failure_that_comes_with_the_stop(tmp_path):
    """The first send fails when the command is already ending."""
    path = write_one_batch(tmp_path / "batch.ts", 10)  # a full frame and a part-filled one, which is sent at once
    frames = tmp_path / "frames"
    env = fake_environment("SendRawFrames=0xE0000031,SendRawFrames_ms=2500", FAKE_QBX_FRAMES=frames)
    with Running(env, "ts2av", path) as program:
        wait_for(frames.exists, "the first frame")
        program.stop()
    assert program.stderr.splitlines() == ["TS file source has ended, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
                                           CANNOT_SEND]
    assert program.lines[-2:] == LAST_LINES
    assert program.process.returncode == 0


@pytest.mark.parametrize("command, last_line", [("ts2av", "Stop AVTP sink..."), ("av2rtp", "Stop RTP sink...")])
def test_stop_during_the_start(short_file, command, last_line):
    env = fake_environment("OpenRawTxDevice_ms=1500,OpenRawRxDevice_ms=1500,WaitForRawFrame=0,WaitForRawFrame_ms=10")
    argument = {"ts2av": short_file, "av2rtp": "127.0.0.1"}[command]
    with Running(env, command, argument) as program:
        program.read_until("Found ")
        program.stop()
    assert (program.process.returncode, program.stderr) == (0, "")
    assert program.lines[-1] == last_line


@pytest.mark.parametrize("command, last_line", [("ts2av", "Stop AVTP sink..."), ("av2rtp", "Stop RTP sink...")])
def test_late_signal_does_not_cut_the_closing_short(short_file, command, last_line):
    env = fake_environment("CloseDevice_ms=1500,WaitForRawFrame=0,WaitForRawFrame_ms=10")
    argument = {"ts2av": short_file, "av2rtp": "127.0.0.1"}[command]
    with Running(env, command, argument, stdin=subprocess.PIPE) as program:
        program.read_until("press any key")
        if command == "av2rtp":  # it does not end by itself
            program.process.stdin.write("x")
            program.process.stdin.flush()
        program.read_until(last_line)
        time.sleep(0.3)  # it is closing the device now
        program.process.send_signal(signal.SIGINT)
        assert program.wait_for_end() == 0
