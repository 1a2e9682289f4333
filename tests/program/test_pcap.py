"""The pcap command: its arguments, what it prints, and the files it writes, as other tools read them."""

import os
import random
import re
import resource
import shutil
import signal
import subprocess
import time

import pexpect
import pytest

import capture
from arguments import KESTATUS_INVALID_PARAMETER, VERSION_LINE, missing_arguments
from lanes import (FAKE_DEVICE_DIR, FLOWLANE, LANE_1, LANE_2, LANE_3, LANE_SEND, ON_INTERFACES, PRODUCT, TIMEOUT,
                   Running, exit_status, run, run_with_fake_device, sanitized_environment, wait_for)
from namespaces import private_mounts
from pcapng import blocks, options
from tools import tool

RUNNING = "press any key to stop..."
STOPPED = "Device 'fake-1' has stopped receiving: The operation cannot be executed."
COUNTS = r"(\d+) frames successfully written, (\d+) frames dropped"
DETAILS = [
    "  Missing frames (sequence error): ",
    "  Frame pool exhausted:            ",
    "  Write to file failed:            ",
    "  Invalid frame header size:       ",
    "  Invalid packet size:             ",
]


@pytest.mark.parametrize("args, lines", [
    ([], missing_arguments("pcap")),
    (["-maxkb", "1", "-maxmb", "1"], missing_arguments("pcap")),
    (["name", "-maxkb", "1", "-maxmb", "1"],
     ["Max pcap-ng file size is specified in kilobytes and memgabytes. Only one of them is allowed.",
      "For usage information, run flowlane help."]),
])
def test_refused_arguments(args, lines):
    result = run("pcap", *args)
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr.splitlines() == lines
    assert result.returncode == exit_status(KESTATUS_INVALID_PARAMETER)


@pytest.mark.parametrize("script, lines, status", [
    ("OpenRawRxDevice=0xE0000006",
     ["Open device failed, st=0xe0000006(KESTATUS_IN_USE).",
      "'fake-1' is in use by another program. End that program, or choose another device."], 0xE0000006),
    # The log alone is told the status.
    ("EnableRawRx=0xE0000030", ["Device 'fake-1' cannot receive: The operation is not supported."], 0xE0000030),
    ("DisableRawRx=0xE0000030,WaitForRawFrame=0xE0000031",
     ["WaitForRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).", STOPPED,
      "Device 'fake-1' does not stop receiving: The operation is not supported."], 0xE0000030),
    # A failure in the loop ends it cleanly. The device is not used again, although a key is waiting when the
    # statistics are printed.
    ("WaitForRawFrame=0xE0000031", ["WaitForRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).", STOPPED], 0),
    ("WaitForRawFrame=0,GetReceivedRawFrame=0xE0000031",
     ["GetReceivedRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
      "WriteReceivedFramesToFile failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).", STOPPED], 0),
    ("WaitForRawFrame_ms=1100,WaitForRawFrame=0xE0000031,GetReceivedRawFrame=0xE0000032",
     ["WaitForRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).", STOPPED], 0),
])
def test_device_failures(tmp_path, script, lines, status):
    key = tmp_path / "key"
    key.write_text("x")
    with key.open() as stdin:
        result = run_with_fake_device("pcap", tmp_path / "file", script=script, stdin=stdin)
    if not script.startswith("OpenRaw"):
        assert result.stderr.splitlines() == lines
    assert result.stderr.splitlines()[-len(lines):] == lines
    assert result.returncode == exit_status(status)
    assert (tmp_path / "file.pcapng").exists() == ("OpenRaw" not in script)


def test_file_that_cannot_be_created(segment, tmp_path):
    result = segment.run("pcap", tmp_path / "missing" / "file", "-n", LANE_2)
    folder = tmp_path / "missing"
    assert result.stderr.splitlines() == ["StartFileWriter failed, st=0xe0010002(KESTATUS_LINUX_ENOENT).",
                                          f"There is no folder '{folder}'. Make it with: mkdir -p {folder}"]
    assert result.returncode == exit_status(0xE0010002)


def test_pool_that_is_too_large(segment, tmp_path):
    result = segment.run("pcap", tmp_path / "file", "-fbs", "2792567")
    assert result.stderr.splitlines() == [
        "StartFileWriter failed, st=0xe0000041(KESTATUS_INVALID_PARAMETER).",
        "-fbs 2792567 is too much: 2792566 frame buffers of 1538 bytes fill the greatest possible memory of 4 GiB."]


class Capturing(Running):
    """A capture from lane-2."""

    def __init__(self, segment, path, *options, **more):
        super().__init__(segment.env, "pcap", path, "-n", LANE_2, *options, **more)

    def __enter__(self):
        self.read_until(RUNNING)
        return self

    def wait_until_written(self, count):
        wait_for(lambda: int(re.fullmatch(COUNTS, self.read_until("successfully written"))[1]) >= count, "frames")

    def summary(self):
        """Written and dropped frames, from the last lines."""
        end = self.lines.index("Stop PCAPNG file writer...")
        summary = self.lines[end + 1:]
        if summary[0] == "Errors occurred!":
            assert summary[2] == "Details:"
            assert [line[:len(label)] for label, line in zip(DETAILS, summary[3:])] == DETAILS
            assert len(summary) == 3 + len(DETAILS)
            self.details = [int(line[len(label):]) for label, line in zip(DETAILS, summary[3:])]
            summary = summary[1:2]
        else:
            self.details = [0] * len(DETAILS)
        assert len(summary) == 1
        written, dropped = (int(number) for number in re.fullmatch(COUNTS, summary[0]).groups())
        assert dropped == sum(self.details)
        return written, dropped


def send(segment, count, *options):
    subprocess.run([LANE_SEND, "-n", LANE_1, "-c", str(count), *options], env=segment.env, check=True,
                   stdout=subprocess.DEVNULL, timeout=TIMEOUT)


def packet_count(path):
    """The number of packets in a file, which must be valid to its end."""
    found, rest = blocks(path)
    assert rest == 0
    assert [kind for kind, _ in found[:2]] == [0x0A0D0D0A, 1]
    assert all(kind == 6 for kind, _ in found[2:])
    return len(found) - 2


def test_lines_of_a_run(segment, tmp_path):
    with Capturing(segment, tmp_path / "file", "ignored argument") as program:
        program.read_until("successfully written")
        program.read_until("successfully written")
    assert program.stderr == "'ignored argument' is ignored: pcap takes one file name.\n"
    lines = program.lines
    statistics = "0 frames successfully written, 0 frames dropped"
    assert lines[-1] == statistics
    assert re.fullmatch(r"Found \d+ Quayside device\(s\)", lines[2])
    del lines[2]
    assert [line for line in lines if line != statistics] == [
        VERSION_LINE,
        "Enumerate available devices...",
        f"Start PCAPNG file writer on device {LANE_2}(1)...",
        "Enable receiving of raw frames...",
        "Write received frames to PCAPNG file, press any key to stop...",
        "Disable receiving of raw frames...",
        "Stop PCAPNG file writer...",
    ]
    assert packet_count(tmp_path / "file.pcapng") == 0


def joined(tmp_path, paths):
    """The frames of pcap-ng files with their times, read through mergecap and editcap."""
    merged = tmp_path / "merged.pcapng"
    tool("mergecap", "-a", "-w", merged, *paths)
    converted = tmp_path / "merged.pcap"
    tool("editcap", "-F", "nsecpcap", merged, converted)
    return capture.frames(converted)


@pytest.mark.parametrize("options, suffix", [([], ""), (["-maxkb", "1000"], "_?????"), (["-maxkb", "0", "-maxmb", "5"], "_?????")])
def test_frames_are_those_that_were_sent(segment, tmp_path, options, suffix):
    reference = tmp_path / "reference.pcap"
    with segment.receiver(reference, name=LANE_3), Capturing(segment, tmp_path / "file", *options) as program:
        send(segment, 20000, "-r", "40000")
        program.wait_until_written(20000)
    assert program.summary() == (20000, 0)
    paths = sorted(tmp_path.glob(f"file{suffix}.pcapng"))
    captured, expected = joined(tmp_path, paths), capture.frames(reference)
    assert [frame for _, frame in captured] == [frame for _, frame in expected]
    if ON_INTERFACES:  # each interface has its own time of arrival
        assert max(abs(ours - theirs) for (ours, _), (theirs, _) in zip(captured, expected)) < 10**9
    else:
        assert captured == expected
    assert sum(packet_count(path) for path in paths) == 20000
    if options:
        limit = int(options[-1]) * (1000 if options[-2] == "-maxkb" else 1000000)
        assert [path.name for path in paths] == [f"file_{i + 1:05}.pcapng" for i in range(len(paths))]
        assert len(paths) > 2
        for path in paths[:-1]:
            found, _ = blocks(path)
            size = path.stat().st_size
            assert size > limit >= size - len(found[-1][1])  # the last packet takes it beyond the limit


def test_other_tools_read_the_file_without_a_warning(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    with Capturing(segment, tmp_path / "file") as program:
        send(segment, 1000)
        program.wait_until_written(1000)
    info = tool("capinfos", "-M", path).decode()
    for line in ["Number of packets:   1000", f"Name = {LANE_2}", f"Description = {PRODUCT}",
                 "Encapsulation = Ethernet (1 - ether)", "Time resolution = 0x09", "Strict time order:   True"]:
        assert line in info
    result = subprocess.run(["tshark", "-r", path, "-T", "fields", "-e", "frame.number", "-e",
                             "_ws.malformed"], capture_output=True, text=True, timeout=TIMEOUT, check=True)
    assert result.stdout.split() == [str(i + 1) for i in range(1000)]
    assert [line for line in result.stderr.splitlines() if "Running as user" not in line] == []
    address = next(data for kind, data in blocks(path)[0] if kind == 1)
    assert bytes.fromhex("060006000251425800020000") in address
    result = subprocess.run(["tcpdump", "-n", "-r", path], capture_output=True, text=True, timeout=TIMEOUT,
                            check=True)
    assert len([line for line in result.stdout.splitlines() if not line.startswith("\t")]) == 1000
    assert result.stderr.startswith("reading from file") and len(result.stderr.splitlines()) == 1


def test_limit_wraps_at_4_gib(segment, tmp_path):
    """4294968 times 1000 is 4 GiB and 704 bytes."""
    with Capturing(segment, tmp_path / "file", "-maxkb", "4294968") as program:
        send(segment, 10, "-l", "1000")
        program.wait_until_written(10)
    assert len(list(tmp_path.glob("file_*.pcapng"))) == 11


def test_small_pool_adds_up(segment, tmp_path):
    with Capturing(segment, tmp_path / "file", "-fbs", "1") as program:
        send(segment, 100000, "-l", "100")
        time.sleep(0.5)
    written, dropped = program.summary()
    assert written + dropped == 100000
    assert program.details[1] == dropped > 0  # each because no frame buffer was free
    assert packet_count(tmp_path / "file.pcapng") == written


def test_no_pool_drops_all(segment, tmp_path):
    with Capturing(segment, tmp_path / "file", "-fbs", "0") as program:
        send(segment, 1000, "-l", "100")
        wait_for(lambda: program.read_until("successfully written").endswith(", 1000 frames dropped"), "frames")
    assert program.summary() == (0, 1000)
    assert program.details == [0, 1000, 0, 0, 0]
    assert packet_count(tmp_path / "file.pcapng") == 0


def limit_file_size(size):
    """Limits the file size in a child process, as ulimit -f does. A write beyond the limit raises a signal."""
    return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


def test_file_that_cannot_get_its_headers_is_not_left_behind(tmp_path):
    result = subprocess.run([FLOWLANE, "pcap", tmp_path / "file", "-maxkb", "1"], stdin=subprocess.DEVNULL,
                            capture_output=True, text=True, timeout=TIMEOUT, check=False,
                            preexec_fn=limit_file_size(20),
                            env=sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="devices=1"))
    assert result.stderr.splitlines() == [
        "StartFileWriter failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED).",
        f"'{tmp_path}/file_00001.pcapng' cannot be written: the file has reached the largest size that is allowed (ulimit "
        "-f); -maxmb makes smaller files."]
    assert result.returncode == exit_status(0xE0000092)
    assert not list(tmp_path.glob("file*"))


@pytest.mark.parametrize("size", [100000, 123457])
def test_full_disk_adds_up(segment, tmp_path, size):
    # The segment's own file is larger, but the receiver has already created it.
    with segment.receiver(tmp_path / "reference.pcap", name=LANE_3):
        with Capturing(segment, tmp_path / "file", preexec_fn=limit_file_size(size)) as program:
            send(segment, 5000, "-l", "200")
            time.sleep(0.5)
    written, dropped = program.summary()
    assert written + dropped == 5000
    assert program.details[2] == dropped
    assert packet_count(tmp_path / "file.pcapng") == written
    assert size - 300 < (tmp_path / "file.pcapng").stat().st_size <= size


def test_small_disk_adds_up(segment, tmp_path):
    """A file system of one megabyte in its own mount namespace. Its files are copied out at the end."""
    script = 'mount -t tmpfs -o size=1m none "$0" && "$@" && cp "$0"/file.pcapng "$0".copy'
    disk = tmp_path / "disk"
    disk.mkdir()
    with Capturing(segment, disk / "file", prefix=[*private_mounts(), "sh", "-c", script, disk],
                   stdin=subprocess.PIPE) as program:
        send(segment, 20000, "-l", "300", "-r", "20000")
        program.process.stdin.write("x")
        program.process.stdin.flush()
        assert program.wait_for_end() == 0
    written, dropped = program.summary()
    assert written + dropped == 20000
    assert program.details[2] == dropped
    assert packet_count(tmp_path / "disk.copy") == written
    assert (1 << 20) - 400 < (tmp_path / "disk.copy").stat().st_size <= 1 << 20


def test_frames_missed_add_up(segment, tmp_path):
    """A capture that is stopped for a while at its beginning misses some frames."""
    # The ring of an interface has room for all of them, a small frame pool does not.
    with Capturing(segment, tmp_path / "file", *(["-fbs", "1000"] if ON_INTERFACES else [])) as program:
        program.process.send_signal(signal.SIGSTOP)
        send(segment, 100000, "-l", "300")
        program.process.send_signal(signal.SIGCONT)
        send(segment, 1000, "-l", "300", "-r", "2000")  # the gap shows when other frames follow
        time.sleep(1)
    written, dropped = program.summary()
    assert written + dropped == 101000
    assert dropped > 0
    assert program.details[:2] == ([0, dropped] if ON_INTERFACES else [dropped, 0])
    found, rest = blocks(tmp_path / "file.pcapng")
    assert rest == 0
    drop_counts = [options(block).get(4, bytes(8)) for kind, block in found if kind == 6]
    assert sum(int.from_bytes(count, "little") for count in drop_counts) == dropped
    assert len(found) - 2 == written


@pytest.mark.parametrize("kind", ["key", "SIGINT", "SIGTERM"])
def test_stops_at_full_speed_with_all_that_was_received(segment, tmp_path, kind):
    flood = subprocess.Popen([LANE_SEND, "-n", LANE_1, "-c", "0", "-l", "200"], env=segment.env,
                             stdout=subprocess.PIPE)
    try:
        assert flood.stdout.readline() == b"ready\n"
        child = pexpect.spawn(FLOWLANE, ["pcap", str(tmp_path / "file"), "-n", LANE_2], env=segment.env,
                              encoding="utf-8", timeout=TIMEOUT)
        child.delaybeforesend = None
        child.expect_exact(RUNNING)
        child.expect("successfully written")
        begin = time.monotonic()
        if kind == "key":
            child.send("x")
        else:
            child.kill(getattr(signal, kind))
        child.expect_exact("Stop PCAPNG file writer...")
        assert time.monotonic() - begin < 20  # a second or two, and reserve for a busy machine
        rest = child.read()
        child.close()
    finally:
        flood.kill()
        flood.communicate()
    assert child.exitstatus == 0
    written, _ = (int(number) for number in re.search(COUNTS, rest).groups())
    assert written > 0
    assert packet_count(tmp_path / "file.pcapng") == written


def test_late_signal_does_not_cut_the_end_short(tmp_path):
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="WaitForRawFrame_ms=100,CloseDevice_ms=1500")
    with Running(env, "pcap", tmp_path / "file", stdin=subprocess.PIPE) as program:
        program.process.stdin.write("x")
        program.process.stdin.flush()
        program.read_until("Stop PCAPNG file writer...")
        program.read_until("successfully written")
        time.sleep(0.3)
        program.process.terminate()  # while the device is being closed
        assert program.process.wait(timeout=TIMEOUT) == 0


def test_what_came_before_the_key_is_in_the_file(segment, tmp_path):
    with Capturing(segment, tmp_path / "file", stdin=subprocess.PIPE) as program:
        program.read_until("successfully written")
        send(segment, 15000, "-l", "100")  # no more than the frame pool holds
        program.process.stdin.write("x")
        program.process.stdin.flush()
        program.read_until("Stop PCAPNG file writer...")
        program.stop()
    assert program.summary() == (15000, 0)


def test_killed_at_any_moment(segment, tmp_path):
    """The file is readable up to its last whole block, and has its headers from the start."""
    chance = random.Random(20)
    flood = subprocess.Popen([LANE_SEND, "-n", LANE_1, "-c", "0", "-r", "20000"], env=segment.env,
                             stdout=subprocess.PIPE)
    try:
        assert flood.stdout.readline() == b"ready\n"
        seen = set()
        for number in range(50):
            path = tmp_path / f"file{number}"
            options = ["-maxkb", "500"] if number % 2 else []
            with Capturing(segment, path, *options) as program:
                time.sleep(chance.uniform(0, 0.3))
                os.kill(program.process.pid, signal.SIGKILL)
                program.process.wait()
                program.process.communicate()
            files = sorted(tmp_path.glob(f"file{number}*.pcapng"))
            if number % 2 and len(files) > 1 and files[-1].stat().st_size == 0:
                files.pop().unlink()  # killed between creating a file of a set and writing its headers
            for file in files:
                found, rest = blocks(file)
                assert [kind for kind, _ in found[:2]] == [0x0A0D0D0A, 1]
                seen.add(min(len(found), 3))
                if number % 10 == 0:
                    result = subprocess.run(["tshark", "-r", file, "-T", "fields", "-e", "frame.number"],
                                            capture_output=True, text=True, timeout=TIMEOUT, check=False)
                    assert len(result.stdout.split()) == len(found) - 2
                    assert rest or result.returncode == 0
                file.unlink()
        assert 3 in seen  # files with packets were among them
    finally:
        flood.kill()
        flood.communicate()


def test_next_file_that_cannot_be_created(segment, tmp_path):
    folder = tmp_path / "folder"
    folder.mkdir()
    with Capturing(segment, folder / "file", "-maxkb", "100") as program:
        send(segment, 50, "-l", "1000")
        program.wait_until_written(50)
        kept = os.open(folder / "file_00001.pcapng", os.O_RDONLY)
        shutil.rmtree(folder)
        send(segment, 1000, "-l", "1000", "-r", "5000")
        program.process.wait(timeout=TIMEOUT)
        program.lines += program.process.stdout.read().splitlines()
    assert program.process.stderr.read().splitlines() == [
        "PCAPNG file writer has ended, st=0xe0010002(KESTATUS_LINUX_ENOENT).",
        "WriteRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
        "WriteReceivedFramesToFile failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
        f"The capture has ended, because the next file '{folder}/file_00002.pcapng' cannot be written: its folder does "
        "not exist.",
    ]
    assert program.process.returncode == 0
    written, _ = program.summary()
    assert os.fstat(kept).st_size > 100000
    assert written * 1036 <= os.fstat(kept).st_size + 1036
    os.close(kept)
