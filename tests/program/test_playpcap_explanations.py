"""What the playpcap command says about files and devices that it cannot replay with, and what -es makes of it. The
commands that it names are run, and their files replayed."""

import bz2
import gzip
import lzma
import os
import pathlib
import shlex
import struct
import subprocess
import tempfile

import pytest

from lanes import (FAKE_DEVICE_DIR, FLOWLANE, TIMEOUT, Running, exit_status, run_with_fake_device,
                   sanitized_environment)
from pcapng import INTERFACE, SECTION, START, block, packet

INVALID_FILE = "StartFileReader failed, st=0xe0000055(KESTATUS_INVALID_FILE)."
NOT_PRESENT = "StartFileReader failed, st=0xe0000038(KESTATUS_NOT_PRESENT)."
STOPPED = "Stop reading from PCAPNG file(s) because an unrecoverable error occurred..."
FRAME = bytes.fromhex("ffffffffffff" "02aabbccddee" "88b5") + bytes(46)

NO_FRAME_SENT = 4
INVALID_DATA = 87


def packets(count, start=START, spacing=1000):
    return b"".join(packet(FRAME, start + number * spacing) for number in range(count))


def file_of(count, start=START):
    return SECTION + INTERFACE + packets(count, start)


def cut_packet(timestamp=START):
    """A packet of which 40 bytes were captured."""
    return block(6, struct.pack("<IIIII", 0, timestamp >> 32, timestamp & 0xFFFFFFFF, 40, 60) + FRAME[:40])


def interface(link_type=1, resolution=9):
    return block(1, struct.pack("<HHI", link_type, 0, 0) + struct.pack("<HHB3x", 9, 1, resolution) + bytes(4))


def playpcap(path, *options, script="devices=1"):
    result = run_with_fake_device("playpcap", path, *options, script=script)
    return result.returncode, result.stderr.splitlines()


def failed_start(path, *options):
    """The lines behind the first. The start fails because of the file."""
    status, (first, *rest) = playpcap(path, *options)
    assert (first, status) == (INVALID_FILE, exit_status(0xE0000055))
    return rest


def run_named_command(line):
    """Runs the command that a line ends with, as the user would type it."""
    command = line[line.index(": ") + 2:]
    subprocess.run(command, shell=True, check=True, timeout=TIMEOUT, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def assert_replays(path, *options):
    assert playpcap(path, *options, "-es") == (0, [])


# --- Files that cannot be opened ------------------------------------------------------------------


def test_missing_file_needs_no_second_line(tmp_path):
    path = tmp_path / "file"
    assert playpcap(path) == (exit_status(0xE0000038), [f"File '{path}.pcapng' does not exist.", NOT_PRESENT])


@pytest.mark.parametrize("options", [[], ["-i", "1"]])
def test_set_that_begins_with_another_number(tmp_path, options):
    for number in (3, 4, 6):
        (tmp_path / f"set_{number:05}.pcapng").write_bytes(file_of(1))
    (tmp_path / "set_00001.pcap").write_bytes(b"")
    path = tmp_path / "set"
    _, lines = playpcap(path, *options)
    assert lines[1:] == [NOT_PRESENT, "There is a set of files of this name, with the numbers 3-4, 6. Play it with: "
                                      f"flowlane playpcap {path} -i 3"]
    (tmp_path / "set_00006.pcapng").unlink()
    assert_replays(*shlex.split(lines[-1])[-3:])


def test_single_file_that_is_played_as_a_set(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(1))
    for name in (path, path.with_suffix("")):
        assert playpcap(name, "-i", "1")[1][1:] == [
            NOT_PRESENT, f"'{path}' is a single file. Leave out -i to play it."]


def test_classic_file_whose_extension_was_left_out(tmp_path):
    (tmp_path / "file.pcap").write_bytes(b"")
    stem = tmp_path / "file"
    assert playpcap(stem)[1][1:] == [
        NOT_PRESENT, f"There is '{stem}.pcap'. playpcap replays pcap-ng files. Convert it with: editcap -F pcapng "
                     f"{stem}.pcap {stem}.pcapng"]


def test_empty_file(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(b"")
    assert playpcap(path) == (exit_status(0xE0000024), ["StartFileReader failed, st=0xe0000024(KESTATUS_NO_DATA).",
                                                        f"'{path}' is empty: there is nothing to send."])


def test_file_that_only_root_may_read():
    """Root may read it. An ordinary user is told."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        path = pathlib.Path(folder, "file.pcapng")
        path.write_bytes(file_of(1))
        path.chmod(0)
        ordinary = {}
        if os.geteuid() == 0:
            assert_replays(path)
            ordinary = {"user": 65534, "group": 65534, "extra_groups": []}
        result = subprocess.run([FLOWLANE, "playpcap", path], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                timeout=TIMEOUT, check=False, **ordinary,
                                env=sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="devices=1"))
        first, second = result.stderr.splitlines()
        assert first == "StartFileReader failed, st=0xe001000d(KESTATUS_LINUX_EACCES)."
        assert second.startswith(f"You are not allowed to read '{path}'. ")


def test_device_instead_of_a_file(tmp_path):
    path = tmp_path / "file.pcapng"
    path.symlink_to("/dev/zero")
    _, lines = playpcap(path)
    assert lines[0].startswith("StartFileReader failed, st=0x")
    assert lines[1:] == [f"'{path}' is a pipe or a device. playpcap replays only regular files."]


@pytest.mark.parametrize("number, line", [
    (0, "playpcap needs frame buffers. Leave out -fbs 0, or give a larger number."),
    (2821924, "-fbs 2821924 is too much: 2821923 frame buffers of 1522 bytes fill the greatest possible memory of 4 "
              "GiB."),
])
def test_number_of_frame_buffers_that_is_not_valid(tmp_path, number, line):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(1))
    assert playpcap(path, "-fbs", number) == (
        exit_status(0xE0000041), ["StartFileReader failed, st=0xe0000041(KESTATUS_INVALID_PARAMETER).", line])


# --- Files of another kind ------------------------------------------------------------------------


@pytest.mark.parametrize("name, new_name", [
    ("record.pcap", "record.pcapng"), ("record.pcapng", "record-new.pcapng"), ("my record's.cap", "my record's.pcapng")])
@pytest.mark.parametrize("magic", [0xA1B2C3D4, 0xA1B23C4D], ids=["micro", "nano"])
@pytest.mark.parametrize("order", "<>")
def test_classic_pcap(tmp_path, monkeypatch, order, magic, name, new_name):
    monkeypatch.chdir(tmp_path)
    pathlib.Path(name).write_bytes(struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 65535, 1) +
                                   struct.pack(order + "IIII", 1, 0, 60, 60) + FRAME)
    line, = failed_start(name)
    assert line == (f"'{name}' is a classic pcap file. Convert it with: editcap -F pcapng {shlex.quote(name)} "
                    f"{shlex.quote(new_name)}".replace("'\"'\"'", "'\\''"))
    run_named_command(line)
    assert_replays(new_name)
    line, = failed_start(name)  # the new file is not replaced
    assert line.rstrip("'").endswith(new_name.replace(".pcapng", "-2.pcapng").replace("'", "'\\''"))


def big_endian_file(count):
    def big(kind, body):
        length = 12 + len(body)
        return struct.pack(">II", kind, length) + body + struct.pack(">I", length)
    return big(0x0A0D0D0A, struct.pack(">IHHq", 0x1A2B3C4D, 1, 0, -1)) + big(1, struct.pack(">HHI", 1, 0, 0)) + b"".join(
        big(6, struct.pack(">IIIII", 0, 0, number, 60, 60) + FRAME) for number in range(count))


def test_other_byte_order(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(big_endian_file(3))
    line, = failed_start(path)
    new = tmp_path / "file-new.pcapng"
    assert line == (f"'{path}' is a pcap-ng file in the other byte order. Convert it with: editcap -F pcapng {path} "
                    f"{new}")
    run_named_command(line)
    assert_replays(new)


def with_tool(name):
    return lambda data: subprocess.run([name, "-c"], input=data, capture_output=True, check=True, timeout=TIMEOUT).stdout


@pytest.mark.parametrize("unpacker, extension, pack", [
    ("gzip", ".gz", gzip.compress), ("bzip2", ".bz2", bz2.compress), ("xz", ".xz", lzma.compress),
    ("zstd", ".zst", with_tool("zstd")), ("lz4", ".lz4", with_tool("lz4"))])
@pytest.mark.parametrize("name", ["file.pcapng", "a file"])
def test_compressed_file(tmp_path, monkeypatch, unpacker, extension, pack, name):
    monkeypatch.chdir(tmp_path)
    path = name + extension
    pathlib.Path(path).write_bytes(pack(file_of(2)))
    line, = failed_start(path)
    assert line == (f"'{path}' is compressed with {unpacker}. Unpack it with: {unpacker} -dc < {shlex.quote(path)} > "
                    f"{shlex.quote(name)}")
    run_named_command(line)
    pathlib.Path(name).rename("unpacked.pcapng")
    assert_replays("unpacked.pcapng")


@pytest.mark.parametrize("content", [b"This is a text, and no capture.\n", b"x", bytes(100), b"\x47" + bytes(187)])
def test_file_that_is_no_capture(tmp_path, content):
    path = tmp_path / "notes.txt"
    path.write_bytes(content)
    assert failed_start(path) == [f"'{path}' is not a capture file. playpcap replays pcap-ng files."]


# --- Files of which nothing can be sent -----------------------------------------------------------


def test_file_without_packets(tmp_path):
    path = tmp_path / "file_00001.pcapng"
    path.write_bytes(file_of(0))
    assert failed_start(path) == [f"'{path}' has no packets."]
    assert failed_start(tmp_path / "file", "-i", "1") == [f"The set up to '{path}' has no packets."]


def test_file_whose_packets_cannot_be_sent(tmp_path):
    path = tmp_path / "file.pcapng"
    long = bytes(1523)
    path.write_bytes(b"".join([
        SECTION, interface(link_type=113), packets(5), INTERFACE, cut_packet(), cut_packet(), packet(long, START),
        block(3, struct.pack("<I", 60) + FRAME)]))
    assert failed_start(path) == [
        f"None of the 9 packets in '{path}' can be sent: 2 cut short by the snap length of the capture, 1 longer than "
        "1522 bytes, 5 not from an Ethernet interface, 1 without a time. Capture whole packets, for example with: "
        "tcpdump -s 0"]


@pytest.mark.parametrize("content, reason, command", [
    (SECTION + interface(resolution=3) + packets(3, START // 10**6, 1), "3 with times in neither micro- nor nanoseconds",
     "editcap -F nsecpcap {} - | editcap -F pcapng - {}"),
    (SECTION + INTERFACE + b"".join(block(2, struct.pack("<HHIIII", 0, 0, 0, number, 60, 60) + FRAME)
                                    for number in range(3)),
     "3 in blocks of an obsolete type", "editcap -F pcapng {} {}"),
], ids=["unit", "obsolete"])
def test_packets_that_a_conversion_makes_replayable(tmp_path, content, reason, command):
    path, new = tmp_path / "file.pcapng", tmp_path / "file-new.pcapng"
    path.write_bytes(content)
    line, = failed_start(path)
    command = command.format(path, new)
    assert line == f"None of the 3 packets in '{path}' can be sent: {reason}. Convert the file with: {command}"
    subprocess.run(command, shell=True, check=True, timeout=TIMEOUT)
    assert_replays(new)


# --- Replays that end before their end ------------------------------------------------------------


def test_time_that_goes_back(tmp_path):
    path, new = tmp_path / "file.pcapng", tmp_path / "file-new.pcapng"
    path.write_bytes(SECTION + INTERFACE + packets(150) + packets(50, START - 10**9))
    status, lines = playpcap(path)
    assert status == 0
    assert lines == [STOPPED,
                     f"The time goes back at packet 151 of '{path}', from 2023-11-14 22:13:20.000149000 to 2023-11-14 "
                     "22:13:19.000000000 UTC; 150 frames that were read ahead were not sent. Sort the packets with: "
                     f"reordercap {path} {new}"]
    assert playpcap(path, "-es")[0] == NO_FRAME_SENT
    subprocess.run(["reordercap", path, new], check=True, timeout=TIMEOUT, stdout=subprocess.DEVNULL)
    assert_replays(new)


def test_time_that_goes_back_when_all_before_is_sent(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(SECTION + INTERFACE + packets(3) + packets(1, START - 10**9))
    status, lines = playpcap(path, "-fbs", "1", "-es")
    assert status == INVALID_DATA
    assert "UTC. Sort" in lines[-1]


def test_unit_of_time_that_changes(tmp_path):
    path, new = tmp_path / "file.pcapng", tmp_path / "file-new.pcapng"
    path.write_bytes(SECTION + INTERFACE + packets(2) + interface(resolution=6) +
                     block(6, struct.pack("<IIIII", 1, START // 1000 >> 32, START // 1000 + 50 & 0xFFFFFFFF, 60, 60) + FRAME))
    command = f"editcap -F nsecpcap {path} - | editcap -F pcapng - {new}"
    assert playpcap(path) == (0, [STOPPED, f"The unit of time changes at packet 3 of '{path}'; 2 frames that were read "
                                           f"ahead were not sent. Give all packets one unit with: {command}"])
    subprocess.run(command, shell=True, check=True, timeout=TIMEOUT)
    assert_replays(new)


def test_file_of_an_earlier_capture_in_a_set(tmp_path):
    (tmp_path / "set_00001.pcapng").write_bytes(file_of(2))
    (tmp_path / "set_00002.pcapng").write_bytes(file_of(2, START - 10**9))
    status, lines = playpcap(tmp_path / "set", "-i", "1")
    assert status == 0
    assert lines == [STOPPED,
                     f"'{tmp_path}/set_00002.pcapng' belongs to an earlier capture: its packet 1 is earlier than the last "
                     "one of 'set_00001.pcapng'; 2 frames that were read ahead were not sent. Move it to another folder."]


@pytest.mark.parametrize("damage, what", [
    (lambda data: data[:-4], "ends in the middle of the block"),
    (lambda data: data[:-92] + struct.pack("<II", 6, 3) + data[-84:], "is damaged")], ids=["cut", "damaged"])
@pytest.mark.parametrize("while_running", [False, True])
def test_file_that_is_not_whole(tmp_path, damage, what, while_running):
    path, new = tmp_path / "file.pcapng", tmp_path / "file-new.pcapng"
    assert len(packets(1)) == 92
    path.write_bytes(damage(file_of(4)))
    line = (f"'{path}' {what} behind packet 3. Keep the packets before it with: editcap -F pcapng {path} {new}")
    if while_running:
        status, lines = playpcap(path, "-fbs", "1")
        assert status == 0
        assert lines == ["PCAPNG file reader has ended, st=0xe0000055(KESTATUS_INVALID_FILE).", STOPPED, line]
        assert playpcap(path, "-fbs", "1", "-es")[0] == exit_status(0xE0000055)
    else:
        assert failed_start(path) == [line]
    subprocess.run(["editcap", "-F", "pcapng", path, new], check=False, timeout=TIMEOUT, stderr=subprocess.DEVNULL)
    assert_replays(new)


def test_file_that_ends_before_its_first_packet(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(1)[:-4])
    assert failed_start(path) == [f"'{path}' ends before its first packet. Nothing of it can be sent."]


@pytest.mark.parametrize("content, reason", [(b"", "it is empty"), (None, "Is a directory")], ids=["empty", "folder"])
def test_next_file_that_cannot_be_read(tmp_path, content, reason):
    (tmp_path / "set_00001.pcapng").write_bytes(file_of(3))
    path = tmp_path / "set_00002.pcapng"
    if content is None:
        path.mkdir()
    else:
        path.write_bytes(content)
    status, lines = playpcap(tmp_path / "set", "-i", "1", "-fbs", "1")
    assert status == 0
    assert lines[1] == STOPPED
    if content is None:
        assert lines[2:] == [f"'{path}' is a folder. Give the name of a file in it."]
    else:
        assert lines[2:] == [f"'{path}', the next file of the set, cannot be read: {reason}."]


def test_next_file_of_another_kind(tmp_path):
    (tmp_path / "set_00001.pcapng").write_bytes(file_of(3))
    path = tmp_path / "set_00002.pcapng"
    path.write_bytes(gzip.compress(file_of(1)))
    assert failed_start(tmp_path / "set", "-i", "1") == [
        f"'{path}' is compressed with gzip. Unpack it with: gzip -dc < {path} > {tmp_path}/set_00002-new.pcapng"]


def test_frame_that_the_device_refuses(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(3))
    status, lines = playpcap(path, "-es", script="CheckSubmitRawFrame=0xE0000042")
    assert status == exit_status(0xE0000042)
    assert lines[1:] == [STOPPED,
                         f"Device 'fake-1' cannot send packet 1 of '{path}', because its 60 bytes are more than the device "
                         "takes; 2 frames that were read ahead were not sent. Raise the MTU of the interface."]


# --- Replays that leave packets out ---------------------------------------------------------------


def test_packets_that_are_left_out(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2) + cut_packet(START + 5000) + packet(bytes(2000), START + 6000))
    line = ("2 of 4 packets were left out: 1 cut short by the snap length of the capture, 1 longer than 1522 bytes. Capture "
            "whole packets, for example with: tcpdump -s 0")
    assert playpcap(path) == (0, [line])
    assert playpcap(path, "-es") == (INVALID_DATA, [line])


def test_what_the_summary_tells_is_not_told_again(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(2) + packet(bytes(13), START + 6000))
    assert playpcap(path) == (0, [])
    assert playpcap(path, "-es") == (INVALID_DATA, [])


def test_good_replays_have_the_exit_code_0(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(3))
    assert_replays(path)
    path.write_bytes(SECTION + INTERFACE + packets(100, spacing=10**9))
    env = sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX="devices=1")
    with Running(env, "playpcap", path, "-es") as program:
        program.read_until("successfully sent")
        assert program.stop() == 0
        assert program.stderr == ""


def test_frames_that_the_link_lost_are_in_the_exit_code(tmp_path):
    path = tmp_path / "file.pcapng"
    path.write_bytes(file_of(3))
    assert playpcap(path, "-es", script="lost_frames=5")[0] == NO_FRAME_SENT
