"""The playpcap command: its arguments, what it prints, which frames it sends and when, files of other tools and
hostile files."""

import concurrent.futures
import re
import signal
import struct
import subprocess
import time

import pytest

import capture
import rtp
import tsfile
from arguments import KESTATUS_INVALID_PARAMETER, VERSION_LINE, missing_arguments
from lanes import (FAKE_DEVICE_DIR, FLOWLANE, LANE_1, LANE_2, LANE_3, LANE_SEND, TIMEOUT, Running, exit_status, run,
                   run_with_fake_device, sanitized_environment, wait_for)
from pcapng import INTERFACE, NANOSECONDS, SECTION, START, block, packet
from tools import tool

RUNNING = "press any key to stop..."
COUNTS = r"(\d+) frames successfully sent, (\d+) errors occured"
DETAILS = [
    "  Invalid file:                     ",
    "  Read file failed:                 ",
    "  Send frames failed:               ",
    "  Invalid section headers:          ",
    "  Unsupported format version:       ",
    "  Invalid interface description:    ",
    "  Invalid link type:                ",
    "  Invalid enhanced packet:          ",
    "  Packet truncated:                 ",
    "  Invalid frame length:             ",
    "  Frame buffer tooo small:          ",
    "  Invalid option:                   ",
    "  Unsupported timestamp resolution: ",
    "  Invalid timestamp:                ",
]


def frame(number, length=60):
    return bytes.fromhex("ffffffffffff" "02aabbccddee" "88b5") + number.to_bytes(4, "big") + bytes(length - 18)


def file_of(count, spacing, start=START):
    """Numbered frames; spacing in nanoseconds."""
    return SECTION + INTERFACE + b"".join(packet(frame(i), start + i * spacing) for i in range(count))


def test_missing_arguments():
    result = run("playpcap", "-i", "1")
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr.splitlines() == missing_arguments("playpcap")
    assert result.returncode == exit_status(KESTATUS_INVALID_PARAMETER)


@pytest.mark.parametrize("script, lines, status", [
    ("OpenRawTxDevice=0xE0000006",
     ["Open device failed, st=0xe0000006(KESTATUS_IN_USE).",
      "'fake-1' is in use by another program. End that program, or choose another device."], 0xE0000006),
    ("GetDevicePropertyBinary=0xE0000039",
     ["StartFileReader failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "Device 'fake-1' does not tell its address: The object or data was not found."], 0xE0000039),
    ("mac_size=8",
     ["StartFileReader failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH).",
      "Device 'fake-1' does not tell its address: An unexpected length was detected."], 0xE0000061),
    # A failure to send ends the replay and is reported, but the command succeeds.
    ("SubmitRawFrame=0xE0000031",
     ["PCAPNG file reader has ended, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
      "Stop reading from PCAPNG file(s) because an unrecoverable error occurred...",
      "Device 'fake-1' did not send packet 1 of '{path}' (60 bytes): The operation cannot be executed; 1 frame that was "
      "read ahead was not sent."], 0),
])
def test_device_failures(tmp_path, script, lines, status):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2, 1000))
    result = run_with_fake_device("playpcap", path, script=script)
    assert result.stderr.splitlines()[-len(lines):] == [line.format(path=path) for line in lines]
    assert result.returncode == exit_status(status)
    if status == 0:
        assert summary(result.stdout.splitlines()) == (0, [0, 0, 1] + [0] * 11)


def summary(lines):
    """The number of frames sent, and the error counters in their order."""
    end = lines.index("Stop PCAPNG file reader...")
    rest = lines[end + 1:]
    details = [0] * len(DETAILS)
    if rest[0] == "Errors occurred!":
        assert rest[2] == "Details:"
        assert [line[:len(label)] for label, line in zip(DETAILS, rest[3:])] == DETAILS
        assert len(rest) == 3 + len(DETAILS)
        details = [int(line[len(label):]) for label, line in zip(DETAILS, rest[3:])]
        rest = rest[1:2]
    assert len(rest) == 1
    sent, errors = (int(number) for number in re.fullmatch(COUNTS, rest[0]).groups())
    assert errors == sum(details)
    return sent, details


def test_lines_of_a_run(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(3, 100_000_000))
    begin = time.monotonic()
    result = segment.run("playpcap", path, "ignored argument", "-n", LANE_1)
    assert time.monotonic() - begin < 20  # a second or two, and reserve for a busy machine
    assert result.returncode == 0
    assert result.stderr == "'ignored argument' is ignored: playpcap takes one file name.\n"
    lines = result.stdout.splitlines()
    assert re.fullmatch(r"Found \d+ Quayside device\(s\)", lines[2])
    del lines[2]
    statistics = [line for line in lines if re.fullmatch(COUNTS, line)]
    assert statistics[0] == "0 frames successfully sent, 0 errors occured"
    assert statistics[-2:] == ["3 frames successfully sent, 0 errors occured"] * 2
    assert [line for line in lines[:-1] if line not in statistics] == [
        VERSION_LINE,
        "Enumerate available devices...",
        f"Start PCAPNG file reader on device {LANE_1}(0)...",
        "Send frames from PCAPNG file(s), press any key to stop...",
        "Successfully sent frames within PCAPNG file(s)...",
        "Stop PCAPNG file reader...",
    ]


@pytest.mark.parametrize("args, name", [
    (["missing"], "missing.pcapng"), (["missing.cap"], "missing.cap"), (["file", "-i", "7"], "file_00007.pcapng"),
    (["file.pcapng", "-i", "7"], "file_00007.pcapng")])
def test_file_that_does_not_exist(segment, tmp_path, args, name):
    (tmp_path / "file_00001.pcapng").write_bytes(file_of(1, 0))
    result = segment.run("playpcap", tmp_path / args[0], *args[1:])
    lines = [f"File '{tmp_path / name}' does not exist.",
             "StartFileReader failed, st=0xe0000038(KESTATUS_NOT_PRESENT)."]
    if args[1:]:
        lines.append("There is a set of files of this name, with the numbers 1. Play it with: flowlane playpcap "
                     f"{tmp_path / args[0]} -i 1")
    assert result.stderr.splitlines() == lines
    assert result.returncode == exit_status(0xE0000038)


def test_folder_instead_of_a_file(segment, tmp_path):
    folder = tmp_path / "folder.pcapng"
    folder.mkdir()
    result = segment.run("playpcap", folder)
    first, second = result.stderr.splitlines()
    assert re.fullmatch(r"StartFileReader failed, st=0x[0-9a-f]{8}\(\w+\)\.", first)
    assert second == f"'{folder}' is a folder. Give the name of a file in it."
    assert result.returncode != 0


def replay(segment, tmp_path, path, *options):
    """Replays to the end. Returns the process's result, and the frames with their times as lane-2 got them."""
    captured = tmp_path / "replayed.pcap"
    with segment.receiver(captured) as receiver:
        result = segment.run("playpcap", path, "-n", LANE_1, *options)
    assert result.returncode == 0, result.stderr
    assert receiver.summary.endswith(", 0 missing")
    return result, capture.frames(captured)


def test_order_bytes_and_spacing(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    spacing = 3_000_000
    path.write_bytes(file_of(500, spacing))
    result, frames = replay(segment, tmp_path, path)
    assert [data for _, data in frames] == [frame(i) for i in range(500)]
    assert summary(result.stdout.splitlines()) == (500, [0] * 14)
    # At least half of the frames are late by no more than a round, and what a busy machine adds.
    offsets = [when - i * spacing for i, (when, _) in enumerate(frames)]
    lateness = sorted(offset - min(offsets) for offset in offsets)
    assert lateness[len(lateness) // 2] < 100_000_000


@pytest.mark.parametrize("option", ["-pt", "--precise_timing"])
def test_precise_timing(segment, tmp_path, option):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2000, 0))
    result, frames = replay(segment, tmp_path, path, option, "-fbs", "2")
    assert (result.stderr, [data for _, data in frames]) == ("", [frame(i) for i in range(2000)])
    # Rounds of 10 ms with two frames each would take at least ten seconds.
    assert frames[-1][0] - frames[0][0] < 5_000_000_000


def test_capture_of_a_replay_equals_the_capture(segment, tmp_path):
    def record(name, *player):
        path = tmp_path / name
        with Running(segment.env, "pcap", path, "-n", LANE_3) as program:
            program.read_until(RUNNING)
            subprocess.run(player, env=segment.env, check=True, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL, timeout=TIMEOUT)
            program.read_until("successfully written")
        converted = tmp_path / f"{name}.pcap"
        tool("editcap", "-F", "nsecpcap", f"{path}.pcapng", converted)
        return capture.frames(converted)

    first = record("first", LANE_SEND, "-n", LANE_1, "-c", "3000", "-r", "2000")
    second = record("second", FLOWLANE, "playpcap", tmp_path / "first", "-n", LANE_1)
    assert len(first) == 3000
    assert [data for _, data in second] == [data for _, data in first]
    shift = [after - before for (before, _), (after, _) in zip(first, second)]
    lateness = sorted(offset - min(shift) for offset in shift)
    assert lateness[len(lateness) // 2] < 100_000_000


def test_file_set_and_source_address(segment, tmp_path):
    for number in (1, 2, 3):
        (tmp_path / f"set_{number:05}.pcapng").write_bytes(
            SECTION + INTERFACE + packet(frame(number), number * 1_000_000))
    result, frames = replay(segment, tmp_path, tmp_path / "set", "-i", "2", "-flsm")
    assert [int.from_bytes(data[14:18], "big") for _, data in frames] == [2, 3]
    assert {data[6:12].hex() for _, data in frames} == {"025142580001"}
    assert summary(result.stdout.splitlines())[0] == 2


def test_loop_until_asked_to_end(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2, 1_000_000))
    captured = tmp_path / "replayed.pcap"
    with segment.receiver(captured), Running(segment.env, "playpcap", path, "-n", LANE_1, "-l") as program:
        wait_for(lambda: int(re.fullmatch(COUNTS, program.read_until("successfully sent"))[1]) >= 10, "passes")
    assert "Successfully sent" not in "".join(program.lines)
    frames = capture.frames(captured)
    assert [data for _, data in frames] == [frame(i % 2) for i in range(len(frames))]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_stops_when_asked(segment, tmp_path, number):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(1000, 1_000_000_000))
    with Running(segment.env, "playpcap", path) as program:
        program.read_until("successfully sent")
        program.process.send_signal(number)
        program.read_until("Stop PCAPNG file reader...")
        assert program.process.wait(timeout=60) == 0


def stop(program, kind):
    if kind == "key":
        program.process.stdin.write("x")
        program.process.stdin.flush()
    else:
        program.process.send_signal(getattr(signal, kind))


def test_key_ends_it(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(1000, 1_000_000_000))
    with Running(segment.env, "playpcap", path, stdin=subprocess.PIPE) as program:
        program.read_until("successfully sent")
        stop(program, "key")
        program.read_until("Stop PCAPNG file reader...")
        assert program.process.wait(timeout=TIMEOUT) == 0


def add_gap(file, count):
    """Adds blocks of another type, 64 MiB each, which take no room on the disk."""
    length = 64 << 20
    for _ in range(count):
        begin = file.seek(0, 2)
        file.write(struct.pack("<II", 5, length))
        file.truncate(begin + length)


@pytest.mark.parametrize("kind", ["key", "SIGINT", "SIGTERM"])
@pytest.mark.parametrize("replayable", [False, True], ids=["no packet", "a packet in each pass"])
def test_stops_while_a_long_file_is_looked_through(segment, tmp_path, kind, replayable):
    """Reading takes long: 100 GB without a packet, or one pass per frame of the pool."""
    path = tmp_path / "file.pcapng"
    with path.open("wb") as file:
        file.write(file_of(1 if replayable else 0, 0))
        add_gap(file, 1600)
    options = ["-l"] if replayable else []
    with Running(segment.env, "playpcap", path, "-n", LANE_1, *options, stdin=subprocess.PIPE) as program:
        program.read_until("Start PCAPNG file reader")
        time.sleep(0.3)
        stop(program, kind)
        program.read_until("Stop PCAPNG file reader...")
        assert program.process.wait(timeout=TIMEOUT) == 0
        program.lines += program.process.stdout.read().splitlines()
        assert program.process.stderr.read() == ""
    sent, details = summary(program.lines)
    assert sent <= 1 and details == [0] * 14


def test_late_signal_does_not_cut_the_end_short(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2, 0))
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="CloseDevice_ms=1500")
    with Running(env, "playpcap", path) as program:
        program.read_until("Stop PCAPNG file reader...")
        program.read_until("successfully sent")
        time.sleep(0.3)
        program.process.terminate()  # while the device is being closed
        assert program.process.wait(timeout=TIMEOUT) == 0


def test_lost_frames_are_told(tmp_path):
    """Frames lost since the start are reported when their number has changed. This library adds some at each call."""
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(4, 700_000_000))
    result = run_with_fake_device("playpcap", path, script="lost_frames=5")
    told = "Frames not sent because the link was down or busy: "
    lines = result.stderr.splitlines()
    assert all(line.startswith(told) for line in lines)
    numbers = [int(line[len(told):]) for line in lines]
    # One call per second, and one at the end. A number that no report showed is in the next one.
    assert numbers and numbers == sorted(set(numbers)) and numbers[0] % 5 == 0
    assert len(numbers) <= numbers[-1] // 5
    assert 2 <= numbers[-1] // 5 <= 20
    assert result.returncode == 0
    path.write_bytes(file_of(1, 0))
    assert run_with_fake_device("playpcap", path, script="devices=1").stderr == ""


# --- Files of other tools -----------------------------------------------------------------------------

def write_pcap(path, frames, magic=0xA1B23C4D):
    """A classic capture file for the tools to convert."""
    unit = 1_000_000_000 if magic == 0xA1B23C4D else 1_000_000
    data = struct.pack("<IHHiIII", magic, 2, 4, 0, 0, 65535, 1)
    for when, content in frames:
        data += struct.pack("<IIII", when // 10**9, when % 10**9 * unit // 10**9, len(content), len(content))
        data += content
    path.write_bytes(data)


@pytest.mark.parametrize("magic", [0xA1B23C4D, 0xA1B2C3D4], ids=["nanoseconds", "microseconds"])
@pytest.mark.parametrize("editcap", [
    ["-F", "pcapng"],
    ["-F", "pcapng", "--capture-comment", "a comment for the whole section"],
    ["-F", "pcapng", "-a", "1:a comment", "-a", "3:another comment of another length"],
    ["-F", "pcapng", "--inject-secrets", "tls,{secrets}"],
], ids=["plain", "section comment", "packet comments", "secrets"])
def test_files_of_editcap(segment, tmp_path, magic, editcap):
    secrets = tmp_path / "secrets"
    secrets.write_text(f"CLIENT_RANDOM {'ab' * 32} {'cd' * 48}\n")
    start = 1_700_000_000_000_000_000
    sent = [(start + i * 5_000_000, frame(i, 60 + i)) for i in range(40)]
    classic = tmp_path / "classic.pcap"
    write_pcap(classic, sent, magic)
    path = tmp_path / "file.pcapng"
    tool("editcap", *(word.format(secrets=secrets) for word in editcap), classic, path)
    result, frames = replay(segment, tmp_path, path)
    assert [data for _, data in frames] == [data for _, data in sent]
    assert summary(result.stdout.splitlines()) == (40, [0] * 14)
    span = frames[-1][0] - frames[0][0]
    assert 39 * 5_000_000 - 150_000_000 < span < 39 * 5_000_000 + 1_000_000_000


def test_merged_file_with_several_interfaces(segment, tmp_path):
    start = 1_700_000_000_000_000_000
    parts = []
    for part in range(3):
        parts.append(tmp_path / f"part{part}.pcap")
        write_pcap(parts[-1], [(start + (3 * i + part) * 1_000_000, frame(3 * i + part)) for i in range(20)])
    path = tmp_path / "file.pcapng"
    tool("mergecap", "-w", path, *parts)
    _, frames = replay(segment, tmp_path, path)
    assert [data for _, data in frames] == [frame(i) for i in range(60)]


def test_sections_one_after_the_other(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    # Sections of version 2.0 and of the other byte order are left out.
    version_2 = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 2, 0, -1))
    other_order = block(0x0A0D0D0A, struct.pack("<IHHq", 0x4D3C2B1A, 1, 0, -1))
    path.write_bytes(b"".join([
        SECTION, INTERFACE, packet(frame(1), 10), block(5, bytes(12)), block(4, bytes(4)),
        version_2, INTERFACE, packet(frame(2), 20),
        other_order, INTERFACE, packet(frame(3), 30),
        SECTION, block(0x80001111, bytes(40)), INTERFACE, packet(frame(4), 40)]))
    result, frames = replay(segment, tmp_path, path)
    assert [data for _, data in frames] == [frame(1), frame(4)]
    assert summary(result.stdout.splitlines()) == (2, [0, 0, 0, 1, 1] + [0] * 9)


# --- Hostile files -------------------------------------------------------------------------------

def fake_replay(path):
    """Replays on a device that takes everything."""
    return run_with_fake_device("playpcap", path, "-fbs", "10", script="devices=1")


@pytest.mark.parametrize("difference", [
    9_300_000_000_000_000,  # microseconds: beyond the clock's range in nanoseconds, and negative after a wrap
    2**64 - 1])
def test_times_beyond_the_clock_are_never_due(tmp_path, difference):
    path = tmp_path / "file.pcapng"
    microseconds = block(1, struct.pack("<HHI", 1, 0, 0))
    path.write_bytes(SECTION + microseconds + packet(frame(1), 0) + packet(frame(2), difference))
    sent = tmp_path / "sent"
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="devices=1", FAKE_QBX_FRAMES=sent)
    with Running(env, "playpcap", path, "-l") as program:
        program.read_until("1 frames successfully sent, 0 errors occured")
        program.read_until("successfully sent")
    assert program.lines[-1] == "1 frames successfully sent, 0 errors occured"
    assert sent.read_bytes() == struct.pack("=I", 60) + frame(1)


@pytest.mark.parametrize("size", [100_000, 1_000_000])
@pytest.mark.parametrize("place", range(3), ids=["section", "interface", "packet"])
def test_options_that_overlap_are_harmless(tmp_path, size, place):
    """Each option has the longest value and lies inside the one before. The file takes little memory."""
    options = [b"", NANOSECONDS[:8], b""]
    options[place] += struct.pack("<HH", 2, 0xFFFF) * (size // 4)
    data = frame(1)
    path = tmp_path / "file.pcapng"
    path.write_bytes(block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1) + options[0]) +
                     block(1, struct.pack("<HHI", 1, 0, 0) + options[1]) +
                     block(6, struct.pack("<IIIII", 0, 0, 0, len(data), len(data)) + data + options[2]))
    result = fake_replay(path)
    assert result.returncode == 0 and result.stderr == ""
    assert summary(result.stdout.splitlines()) == (1, [0] * 14)


def damaged_files():
    valid = file_of(2, 0)
    lengths = [4, len(SECTION) + 4, len(SECTION) + len(INTERFACE) + 4,
               len(SECTION) + len(INTERFACE) + 20, len(SECTION) + len(INTERFACE) + 24]
    for place in lengths:
        value = struct.unpack_from("<I", valid, place)[0]
        for other in {0, 4, 7, 8, 0x7FFFFFFF, 0xFFFFFFFF, *(value + d for d in (-4, -3, -1, 1, 3, 4))}:
            yield f"{place}={other:#x}", valid[:place] + struct.pack("<I", other) + valid[place + 4:]
    for end in range(0, len(valid), 7):
        yield f"cut{end}", valid[:end]


def test_damaged_files_end_with_a_status(tmp_path):
    def replay(name, data):
        path = tmp_path / f"{name}.pcapng"
        path.write_bytes(data)
        return name, fake_replay(path)

    seen = set()
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        results = list(pool.map(lambda damaged: replay(*damaged), damaged_files()))
    for name, result in results:
        assert result.returncode >= 0, f"{name}: killed by a signal"
        assert "Out of memory" not in result.stderr
        lines = result.stdout.splitlines()
        if "Stop PCAPNG file reader..." in lines:
            sent, details = summary(lines)
            seen.add("ran")
            assert sent <= 2
            # Everything was sent, or a counter gives the reason.
            assert sent == 2 or sum(details) > 0 or name.startswith("cut"), name
        else:
            seen.add("refused")
            failed, explained = result.stderr.splitlines()
            assert re.fullmatch(r"StartFileReader failed, st=0x[0-9a-f]{8}\(\w+\)\.", failed)
            assert explained.startswith((f"'{tmp_path / name}.pcapng' ", "None of the ")), explained
    assert seen == {"ran", "refused"}


# --- The whole path -----------------------------------------------------------------------------

def test_recorded_stream_is_forwarded(segment, tmp_path):
    """pcap captures the stream of ts2av from lane-3. av2rtp forwards its replay from lane-2."""
    stream = tmp_path / "stream.ts"
    stream.write_bytes(tsfile.stream(seconds=2, rate=500))
    expected = tsfile.delivered_part(stream.read_bytes())
    with Running(segment.env, "pcap", tmp_path / "recorded", "-n", LANE_3) as program:
        program.read_until(RUNNING)
        assert segment.run("ts2av", stream, "-n", LANE_1).returncode == 0
        program.read_until("successfully written")
        time.sleep(0.2)
    with rtp.Receiver() as receiver:
        with Running(segment.env, "av2rtp", "127.0.0.1", "-p", receiver.port, "-n", LANE_2) as program:
            program.read_until(RUNNING)
            assert segment.run("playpcap", tmp_path / "recorded", "-n", LANE_1).returncode == 0
            program.read_until(f"TS packets sent: {len(expected)}, ")
    assert rtp.split(receiver.datagrams) == expected
