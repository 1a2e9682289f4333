"""The lines of ts2av that say what is wrong with its file or its device, and the exit code that -es makes of it."""

import os
import pty
import re
import subprocess
import threading

import pexpect
import pytest

import tsfile
from lanes import FAKE_DEVICE_DIR, FLOWLANE, TIMEOUT, Running, sanitized_environment

NO_FRAME_SENT = 0x04
INVALID_FILE = 0x55
INVALID_DATA = 0x57
READ_FILE_FAILED = 0x91
SECOND = tsfile.CLOCK


@pytest.fixture
def folder(tmp_path, monkeypatch):
    """The current folder, which the commands in the lines refer to."""
    monkeypatch.chdir(tmp_path)
    return tmp_path


def environment(script="", **changes):
    return sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script, **changes)


def ts2av(*args, script="", **options):
    return subprocess.run([FLOWLANE, "ts2av", *map(str, args)], env=environment(script), text=True,
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=TIMEOUT, check=False, **options)


def check(args, lines, status, script=""):
    """The lines are there with and without -es, which only changes the exit code."""
    for options, code in ((), 0), (("-es",), status):
        result = ts2av(*args, *options, script=script)
        assert result.stderr.splitlines() == lines
        assert result.returncode == code
        assert result.stdout.splitlines()[-1] == "Stop AVTP sink..."


def repair(name, output):
    return f"Repair it with: ffmpeg -i '{name}' -c copy -f mpegts '{output}'"


def rebase(name):
    return f"Play it with: flowlane ts2av -rc '{name}'"


def convert(name, output):
    return f"Convert it with: ffmpeg -i '{name}' -c copy -f mpegts '{output}'"


def stream_with_pcrs(pcrs, count, pid=lambda number: 0x100):
    """count packets; pcrs: number -> PCR."""
    return b"".join(tsfile.packet(i, pcrs.get(i), pid(i)) for i in range(count))


def test_good_file_prints_nothing(folder):
    # Packets before the first clock reference and behind the last one are not sent. That is no fault.
    data = tsfile.packet(0) + tsfile.stream(seconds=0.5, rate=200) + tsfile.packet(0) + b"\x47"
    (folder / "good.ts").write_bytes(data)
    check(["good.ts"], [], 0)


def test_missing_file_of_which_an_extension_is_missing(folder):
    (folder / "a.ts").write_bytes(b"x")
    result = ts2av("a")
    assert result.stderr.splitlines() == ["CreateTSFileSource failed, st=0xe0010002(KESTATUS_LINUX_ENOENT).",
                                          "There is no file 'a'. Did you mean 'a.ts'?"]
    assert result.returncode == 2


@pytest.mark.parametrize("name, error, line", [
    ("", "02(KESTATUS_LINUX_ENOENT)", "The name of the file is empty. Give the name of a file."),
    ("no/a.ts", "02(KESTATUS_LINUX_ENOENT)", "There is no folder 'no'. Check the path of the file."),
    ("file/a.ts", "14(KESTATUS_LINUX_ENOTDIR)",
     "A part of the path 'file/a.ts' is a file, not a folder. Check the path."),
    ("x" * 300, "24(unknown)", "'..." + "x" * 140 + "' cannot be read: File name too long."),
])
def test_paths_that_lead_nowhere(folder, name, error, line):
    (folder / "file").touch()
    lines = ts2av(name).stderr.splitlines()
    assert lines == [f"CreateTSFileSource failed, st=0xe00100{error}.", line]


def test_file_that_cannot_be_read_from_its_start(folder):
    result = ts2av("/proc/self/mem")
    assert result.stderr.splitlines() == ["StartSource failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED).",
                                          "'/proc/self/mem' cannot be read: Input/output error."]
    assert result.returncode == READ_FILE_FAILED


@pytest.mark.parametrize("name, head, line", [
    ("m.mp4", b"\0\0\0\x20ftypisom", "'m.mp4' is an MP4 file, no transport stream. " + convert("m.mp4", "m.ts")),
    ("it's.mp4", b"\0\0\0\x20ftypisom", r"'it's.mp4' is an MP4 file, no transport stream. Convert it with: "
                                      r"ffmpeg -i 'it'\''s.mp4' -c copy -f mpegts 'it'\''s.ts'"),
    ("m.mkv", b"\x1a\x45\xdf\xa3", "'m.mkv' is a Matroska file, no transport stream. " + convert("m.mkv", "m.ts")),
    ("m.avi", b"RIFF\0\0\0\0AVI LIST", "'m.avi' is an AVI file, no transport stream. " + convert("m.avi", "m.ts")),
    ("m.mpg", b"\0\0\x01\xba", "'m.mpg' is an MPEG program stream, no transport stream. " + convert("m.mpg", "m.ts")),
    ("m.ts", b"\0\0\0\x20ftypisom", "'m.ts' is an MP4 file, no transport stream. " + convert("m.ts", "m-2.ts")),
    ("m.pcapng", b"\x0a\x0d\x0d\x0a",
     "'m.pcapng' is a pcap-ng file, no transport stream. Send it with: flowlane playpcap 'm.pcapng'"),
    ("m.pcap", b"\xd4\xc3\xb2\xa1", "'m.pcap' is a classic pcap file, no transport stream. Convert it for flowlane "
                                    "playpcap with: editcap -F pcapng 'm.pcap' 'm.pcapng'"),
    ("m.txt", b"text\n", "'m.txt' is no transport stream: its packets do not begin with the sync byte 0x47. "
                         "Give the name of a .ts file."),
])
def test_file_of_another_kind(folder, name, head, line):
    (folder / name).write_bytes(head + b"-" * 5000)
    check([name], [line], INVALID_FILE)


def test_file_of_the_system(folder):
    line = ("'/etc/passwd' is no transport stream: its packets do not begin with the sync byte 0x47. "
            "Give the name of a .ts file.")
    check(["/etc/passwd"], [line], INVALID_FILE)


@pytest.mark.parametrize("before, after, kind", [
    (4, 0, "192 bytes with time codes (M2TS)"), (0, 16, "204 bytes with error correction")])
def test_packets_of_another_size(folder, before, after, kind):
    packets = tsfile.packets(tsfile.stream(seconds=0.5, rate=200))
    (folder / "a.ts").write_bytes(b"".join(bytes(before) + packet + bytes(after) for packet in packets))
    check(["a.ts"], [f"'a.ts' has packets of {kind} instead of 188. " + convert("a.ts", "a-2.ts")], INVALID_FILE)


@pytest.mark.parametrize("name, words, output", [
    ("a.ts", "'a.ts' > 'a-2.ts'", "a-2.ts"),
    ("it's mine.ts", r"'it'\''s mine.ts' > 'it'\''s mine-2.ts'", "it's mine-2.ts"),
    ("./-c.ts", "'./-c.ts' > './-c-2.ts'", "-c-2.ts"),
])
def test_command_that_cuts_what_is_before_the_packets(folder, name, words, output):
    (folder / name).write_bytes(b"hello" + tsfile.stream(seconds=0.5, rate=200))
    command = f"tail -c +6 {words}"
    check([name], [f"The packets of '{name}' begin at byte 5. Cut what is before them: {command}"], INVALID_FILE)
    subprocess.run(command, shell=True, check=True, timeout=TIMEOUT)
    assert (folder / output).read_bytes() == tsfile.stream(seconds=0.5, rate=200)


@pytest.mark.parametrize("loop", [False, True])
def test_file_without_clock_references_in_a_loop_too(folder, loop):
    (folder / "a.ts").write_bytes(tsfile.packet(0) * 3)
    line = "'a.ts' has no clock reference (PCR), but two are needed to time its packets. " + repair("a.ts", "a-2.ts")
    if not loop:
        check(["a.ts"], [line], INVALID_FILE)
        return
    with Running(environment(), "ts2av", "a.ts", "-l", "-es") as program:
        program.read_until("TS packets sent: ")
        program.process.terminate()
        assert program.wait_for_end() == INVALID_FILE
    assert program.stderr == line + "\n"


@pytest.mark.parametrize("data, line, status", [
    (b"", "No packet of a transport stream (188 bytes) came from 'pipe': there was nothing to send.", INVALID_FILE),
    (bytes(1880), "'pipe' is no transport stream: its packets do not begin with the sync byte 0x47.", INVALID_FILE),
    (tsfile.stream(seconds=0.5, rate=200)[:188 * 50] + bytes(188 * 2) + tsfile.packet(0, pcr=2 * SECOND - 1),
     "Left out of 'pipe': 2 packets without the sync byte 0x47, first at byte 9400.", INVALID_DATA),
])
def test_pipe(folder, data, line, status):
    """Nothing is read again, and no command for a file is offered."""
    os.mkfifo("pipe")
    writer = threading.Thread(target=lambda: (folder / "pipe").write_bytes(data), daemon=True)
    writer.start()
    result = ts2av("pipe", "-es")
    writer.join(TIMEOUT)
    assert result.stderr.splitlines() == [line]
    assert result.returncode == status


NO_LOOP = "'{}' is a pipe, which cannot be read again from its start. Leave out the option -l."


def test_loop_of_a_pipe_that_has_ended(folder):
    reader, writer = os.pipe()
    os.write(writer, tsfile.stream(seconds=0.5, rate=200))
    os.close(writer)
    path = f"/dev/fd/{reader}"
    result = ts2av(path, "-l", pass_fds=(reader,))
    os.close(reader)
    assert result.stderr.splitlines() == ["StartSource failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED).",
                                          NO_LOOP.format(path)]
    assert result.returncode == READ_FILE_FAILED


def write_in_two_parts(data, may_go_on):
    with open("pipe", "wb", buffering=0) as pipe:
        pipe.write(data[:188 * 20])
        may_go_on.wait(TIMEOUT)
        pipe.write(data[188 * 20:])


@pytest.mark.parametrize("options, status", [((), 0), (("-es",), READ_FILE_FAILED)])
def test_loop_of_a_pipe_that_ends_later(folder, options, status):
    os.mkfifo("pipe")
    may_go_on = threading.Event()
    data = tsfile.stream(seconds=0.5, rate=200)
    threading.Thread(target=write_in_two_parts, args=(data, may_go_on), daemon=True).start()
    with Running(environment(), "ts2av", "pipe", "-l", *options) as program:
        program.read_until("press any key")
        may_go_on.set()
        assert program.read_error() == "TS file source has ended, st=0xe0000091(KESTATUS_READ_FILE_FAILED)."
        program.process.terminate()
        assert program.wait_for_end() == status
    assert program.stderr == NO_LOOP.format("pipe") + "\n"


def test_reading_that_fails_while_the_file_is_sent(folder):
    path = folder / "a.ts"
    path.write_bytes(tsfile.stream(seconds=0.5, rate=200))
    for options, status in ((), 0), (("-es",), READ_FILE_FAILED):
        with Running(environment(f"breaks_reading={path}"), "ts2av", "a.ts", "-l", *options) as program:
            assert program.read_error() == "TS file source has ended, st=0xe0000091(KESTATUS_READ_FILE_FAILED)."
            assert program.read_error() == ("'a.ts' cannot be read any further: Input/output error. "
                                            "Copy the file to another place and try again.")
            program.process.terminate()
            assert program.wait_for_end() == status
        assert program.stderr == ""


def test_packets_without_sync_byte(folder):
    packets = tsfile.packets(tsfile.stream(seconds=0.5, rate=200))
    packets[33] = bytes(188)
    (folder / "a.ts").write_bytes(b"".join(packets))
    check(["a.ts"], ["Left out of 'a.ts': 1 packet without the sync byte 0x47, first at byte 6204. "
                     + repair("a.ts", "a-2.ts")], INVALID_DATA)


def test_totals_of_a_loop_that_the_user_ends(folder):
    packets = tsfile.packets(tsfile.stream(seconds=0.5, rate=200))
    packets[33] = bytes(188)
    (folder / "a.ts").write_bytes(b"".join(packets))
    with Running(environment(), "ts2av", "a.ts", "-l", "-es") as program:
        for _ in range(2):
            program.read_until("TS packets sent: ")
        program.process.terminate()
        assert program.wait_for_end() == INVALID_DATA
    [line] = program.stderr.splitlines()
    count = re.fullmatch(r"Left out of 'a.ts': (\d+) packets without the sync byte 0x47, first at byte 6204. "
                         + re.escape(repair("a.ts", "a-2.ts")), line)[1]
    assert int(count) > 50  # 10000 packets are read ahead: 100 passes


def test_lost_alignment(folder):
    """Most packets are at wrong places, but the file begins well."""
    data = tsfile.stream(seconds=0.5, rate=1000)
    (folder / "a.ts").write_bytes(data[:188 * 100] + b"lost" + data[188 * 100:])
    result = ts2av("a.ts", "-es")
    assert re.fullmatch(r"Left out of 'a.ts': \d+ packets without the sync byte 0x47, first at byte 188\d\d. "
                        + re.escape(repair("a.ts", "a-2.ts")) + "\n", result.stderr)
    assert result.returncode == INVALID_DATA


def test_clock_that_steps_forward(folder):
    pcrs = {i: i * 900 + (2 * SECOND if i >= 50 else 0) for i in range(0, 101, 10)}
    (folder / "a.ts").write_bytes(stream_with_pcrs(pcrs, 101))
    check(["a.ts"], ["Left out of 'a.ts': 10 packets where its clock steps forward by a second or more, first at "
                     "packet 51. " + rebase("a.ts")], INVALID_DATA)


def test_clock_that_goes_back(folder):
    pcrs = {i: SECOND + i * 900 - (SECOND if i >= 50 else 0) for i in range(0, 101, 10)}
    (folder / "a.ts").write_bytes(stream_with_pcrs(pcrs, 101))
    check(["a.ts"], ["The clock of 'a.ts' goes back at packet 51: from there packets are sent without pacing. "
                     + rebase("a.ts")], INVALID_DATA)


def test_clocks_of_several_programs(folder):
    """The second is 2 s ahead of the first."""
    pcrs = {i: SECOND + i * 900 + (2 * SECOND if i == 50 else 0) for i in range(0, 101, 10)}
    (folder / "a.ts").write_bytes(stream_with_pcrs(pcrs, 101, lambda number: 0x200 if number == 50 else 0x100))
    check(["a.ts"], ["Left out of 'a.ts': 10 packets where its clock steps forward by a second or more (it has clocks "
                     "of several programs), first at packet 51. " + rebase("a.ts"),
                     "The clock of 'a.ts' goes back at packet 61 (it has clocks of several programs): from there "
                     "packets are sent without pacing. " + rebase("a.ts")], INVALID_DATA)


@pytest.mark.parametrize("step, words", [(2 * SECOND, "+2.100 s"), (-SECOND // 2, "-0.400 s")])
def test_clock_that_is_rebased(folder, step, words):
    """A jump is no fault then."""
    pcrs = {i: SECOND + i * 900 + (step if i >= 50 else 0) for i in range(0, 101, 10)}
    (folder / "a.ts").write_bytes(stream_with_pcrs(pcrs, 105))
    check(["a.ts", "-rc"], [f"The clock of 'a.ts' jumps by {words} at packet 51. Its pacing goes on from there."], 0)


def test_clocks_of_several_programs_of_which_one_is_followed(folder):
    pcrs = {i: SECOND + i * 900 + (2 * SECOND if i == 50 else 0) for i in range(0, 101, 10)}
    (folder / "a.ts").write_bytes(stream_with_pcrs(pcrs, 101, lambda number: 0x200 if number == 50 else 0x100))
    check(["a.ts", "-rc"], [], 0)


def test_jumps_that_come_together_and_no_pacing(folder):
    (folder / "a.ts").write_bytes(stream_with_pcrs({0: 0, 10: 2 * SECOND, 20: 0, 30: SECOND}, 40))
    check(["a.ts", "-rc"], ["The clock of 'a.ts' jumps 3 times, the last time by +1.000 s at packet 31. Its pacing "
                            "goes on from there.",
                            "The clock of 'a.ts' jumps at each clock reference (PCR): its packets are sent without "
                            "pacing. " + repair("a.ts", "a-2.ts")], INVALID_DATA)


def test_one_clock_reference_is_not_enough_to_rebase(folder):
    (folder / "a.ts").write_bytes(stream_with_pcrs({5: 0}, 40))
    check(["a.ts", "-rc"], ["'a.ts' has only one clock reference (PCR), but two are needed to time its packets. "
                            + repair("a.ts", "a-2.ts")], INVALID_FILE)


def test_clock_that_stands_still(folder):
    (folder / "a.ts").write_bytes(stream_with_pcrs({0: 900, 10: 900, 20: 900}, 21))
    check(["a.ts"], ["The clock of 'a.ts' stands still: its packets are sent without pacing. "
                     + repair("a.ts", "a-2.ts")], INVALID_DATA)


def test_many_packets_without_a_clock_reference(folder):
    (folder / "a.ts").write_bytes(stream_with_pcrs({0: 0, 10: 900, 10020: 1800, 10030: 2700}, 10031))
    check(["a.ts"], ["Left out of 'a.ts': 9999 packets, because 10000 in a row have no clock reference (PCR), first "
                     "near packet 10010. " + repair("a.ts", "a-2.ts")], INVALID_DATA)


def test_stop_by_the_user_is_no_fault(folder):
    (folder / "a.ts").write_bytes(tsfile.stream(seconds=100, rate=50))
    with Running(environment(), "ts2av", "a.ts", "-es") as program:
        program.read_until("TS packets sent: ")
    assert (program.process.returncode, program.stderr) == (0, "")


@pytest.mark.parametrize("script, line, status", [
    ("CheckSubmitRawFrame=0xE0000021,WaitForTxResources=0",
     r"Device 'fake-1' had no room for AVTP packets \d+ times and discarded them. Use a faster link or a stream with a lower "
     r"rate.", NO_FRAME_SENT),
    ("lost_frames=1", r"Frames not sent because the link was down or busy: \d+", NO_FRAME_SENT),
    ("SendRawFrames=0xE0000031", r"TS file source has ended, st=0xe0000031\(KESTATUS_NOT_POSSIBLE\).\nDevice 'fake-1' cannot "
                                 r"send: The operation cannot be executed. Check the device and start again.", 0x31),
])
def test_exit_code_for_frames_that_were_not_sent(short_file, script, line, status):
    short_file.write_bytes(tsfile.stream(seconds=0.5, rate=200))
    for options, code in ((), 0), (("-es",), status):
        result = ts2av(short_file, *options, script=script)
        assert re.fullmatch(f"({line}\n)+", result.stderr)
        assert result.returncode == code


def on_terminal(*args, script=""):
    child = pexpect.spawn(FLOWLANE, ["ts2av", *map(str, args)], env=environment(script), encoding="utf-8",
                          timeout=TIMEOUT)
    child.delaybeforesend = None
    return child


def progress_of(text):
    return re.findall(r"INFO: at (\S+)(?: of (\S+) \((\d+) %\))?\r\n", text)


def test_progress_on_a_terminal(folder):
    (folder / "a.ts").write_bytes(tsfile.stream(seconds=2.5, rate=100))
    child = on_terminal("a.ts", "-v")
    lines = progress_of(child.read())
    child.close()
    assert child.exitstatus == 0
    assert lines[0][:2] == ("0:00", "0:02") and lines[-1] == ("0:02", "0:02", "100")
    assert len(lines) >= 3
    percents = [int(percent) for _, _, percent in lines]
    assert percents == sorted(percents)


def test_progress_in_a_loop_and_without_an_end(folder):
    """In a loop it is the place in the file. Of a pipe and of a clock that goes back the end is not known."""
    (folder / "loop.ts").write_bytes(tsfile.stream(seconds=1.5, rate=100))
    child = on_terminal("loop.ts", "-v", "-l")
    for _ in range(5):
        child.expect(r"INFO: at 0:0[01] of 0:01 \((\d+) %\)\r\n")
        assert int(child.match[1]) <= 100
    child.send("x")
    child.expect(pexpect.EOF)
    pcrs = {i: SECOND + i * 900 - (SECOND // 2 if i >= 50 else 0) for i in range(0, 101, 10)}
    (folder / "back.ts").write_bytes(stream_with_pcrs(pcrs, 101))
    assert set(progress_of(on_terminal("back.ts", "-v").read())) == {("0:00", "", "")}
    os.mkfifo("pipe")
    data = tsfile.stream(seconds=1.5, rate=100)
    threading.Thread(target=lambda: (folder / "pipe").write_bytes(data), daemon=True).start()
    lines = progress_of(on_terminal("pipe", "-v").read())
    assert lines[0] == ("0:00", "", "") and lines[-1] == ("0:01", "", "")


def test_progress_of_a_clock_that_is_rebased(folder):
    """It is the time that the file has played. How long it is, its clock does not say."""
    (folder / "a.ts").write_bytes(tsfile.stream(seconds=1.2, rate=100) * 2)
    lines = progress_of(on_terminal("a.ts", "-v", "-rc").read())
    assert lines[0] == ("0:00", "", "") and lines[-1] == ("0:02", "", "")
    assert len(lines) >= 3


def test_no_progress_without_the_option_or_a_terminal(folder):
    (folder / "a.ts").write_bytes(tsfile.stream(seconds=0.5, rate=100))
    assert "INFO" not in on_terminal("a.ts").read()
    # Standard error is a pipe, all else is a terminal.
    keyboard, terminal = pty.openpty()
    result = subprocess.run([FLOWLANE, "ts2av", "a.ts", "-v"], env=environment(), stdin=terminal, text=True,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=TIMEOUT, check=False)
    os.close(keyboard)
    os.close(terminal)
    assert result.returncode == 0
    assert "INFO: at" not in result.stderr
