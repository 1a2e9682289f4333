"""What the program says about words and options that a command does not use as its user probably meant."""

import re

import pytest

from arguments import KESTATUS_INVALID_FORMAT, KESTATUS_INVALID_PARAMETER, no_address, takes_16_bits
from lanes import LANE_1, LANE_2, Running, exit_status, run, run_with_fake_device

HINT = "For usage information, run flowlane help."
NO_FILE = "CreateTSFileSource failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)."


def stream(*args):
    """ts2av with a device that ends the command behind the lines on words and options."""
    result = run_with_fake_device("ts2av", *args, script="mac_size=5")
    lines = result.stderr.splitlines()
    assert lines[-2] == "CreateAvtpSink failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH)."
    assert lines[-1] in (no_address("fake-1"), no_address("fake-2"))
    return lines[:-2]


def test_usual_command_line_needs_no_words():
    assert stream("my.ts", "-m", "025142580001", "-u", "0x12", "-n", "fake-1", "-l", "-vtci", "010") == []


@pytest.mark.parametrize("args, line", [
    (["my.ts", "fake-2"], "'fake-2' is ignored. A device is chosen with: -n fake-2. The device used is 'fake-1'."),
    (["my.ts", "fake-1", "-d", "1"], "'fake-1' is ignored. The device used is 'fake-2'."),
    (["my.ts", "1"], "'1' is ignored. A device is chosen with: -d 1. The device used is 'fake-1'."),
    (["my.ts", "02-51-42-58-00-02"], "'02-51-42-58-00-02' is ignored. A MAC address is given with: -m 025142580002"),
    (["my.ts", "025142580002"], "'025142580002' is ignored. A MAC address is given with: -m 025142580002"),
    (["a.ts", "b.ts"], "'b.ts' is ignored: ts2av takes one file name. The device used is 'fake-1'."),
    (["a.ts", "b.ts", "-n", "fake-1"], "'b.ts' is ignored: ts2av takes one file name."),
    (["fake-2"], "'fake-2' is taken as the file name. To use the device of this name give a file name and: -n fake-2"),
    (["my.ts", "-p", "5", "--index", "5k"], "-p and --index are not used by ts2av."),
    (["my.ts", "-fbs", "5"], "-fbs is not used by ts2av."),
    (["my.ts", "-u", "5k"], "-u 5k is read as 5."),
    (["my.ts", "-u", "4294967296"], "-u 4294967296 is read as 0."),
    (["my.ts", "-d", "0.5"], "-d 0.5 is read as 0."),
    (["my.ts", "-n", "fake-1", "-d", "1"], "-d is ignored: -n chooses the device."),
    (["my.ts", "-n", ""], "The name behind -n is empty. The device with index 0 is used."),
    (["my.ts", "-m", ""], "The address behind -m is empty. The broadcast address is used."),
    (["my.ts", "-m", "0251425800019"], "-m 0251425800019 is read as 025142580001."),
])
def test_one_fault_has_one_line(args, line):
    assert stream(*args) == [line]


def test_several_words():
    assert stream("a", "b", "fake-2", "c", "d", "e") == [
        "'b' is ignored: ts2av takes one file name. The device used is 'fake-1'.",
        "'fake-2' is ignored. A device is chosen with: -n fake-2.",
        "'c' is ignored: ts2av takes one file name.",
        "Further words are ignored: 2"]


def test_option_that_becomes_a_name():
    result = run_with_fake_device("ts2av", "my.ts", "-n", "-d", "1")
    lines = result.stderr.splitlines()
    assert lines[1] == "Open device failed, st=0xe0000039(KESTATUS_NOT_FOUND)."
    # The device is not open, so none is named.
    assert lines[-2:] == ["'-d' is taken as the value of -n.", "'1' is ignored: ts2av takes one file name."]
    assert result.returncode == exit_status(0xE0000039)


def test_lines_come_once_and_behind_the_failure():
    result = run("ts2av", "my.ts", "-u", "-5", "-p", "5")
    assert result.stderr.splitlines() == [
        "unique ID 0xFFFFFFFB exceeds max. 0xFFFF.",
        "-p is not used by ts2av.",
        "-u -5 is read as 4294967291. " + takes_16_bits("-u")]
    assert result.returncode == exit_status(KESTATUS_INVALID_PARAMETER)


def test_help_needs_no_words():
    assert run("help", "lane-1", "-p", "5k").stderr == ""


@pytest.mark.parametrize("option", ["-i", "-d"])
def test_name_of_a_device_as_a_number(segment, option):
    result = segment.run("pcap", "file", option, LANE_2)
    assert result.stderr.splitlines() == [
        f"flowlane: Invalid value {LANE_2} for option {option}.", HINT,
        f"'{LANE_2}' is the name of a device. A name goes with -n: -n {LANE_2}"]
    assert result.returncode == exit_status(KESTATUS_INVALID_FORMAT)


def capture(segment, tmp_path, *args):
    """The lines of standard error of a capture."""
    with Running(segment.env, "pcap", *args, cwd=tmp_path) as program:
        program.read_until("press any key to stop...")
    return program.stderr.splitlines()


def test_device_in_place_of_the_file(segment, tmp_path):
    assert capture(segment, tmp_path, LANE_2) == [
        f"'{LANE_2}' is taken as the file name. To use the device of this name give a file name and: -n {LANE_2}"]
    assert (tmp_path / f"{LANE_2}.pcapng").exists()


def test_file_may_have_the_name_of_its_device(segment, tmp_path):
    assert capture(segment, tmp_path, LANE_2, "-n", LANE_2) == []


@pytest.mark.parametrize("args, line", [
    (["-maxkb", "5k"], "-maxkb 5k is read as 5 kB."),
    (["-maxmb", "5000"], "-maxmb 5000 gives a limit of 705032704 bytes. The largest possible value is 4294."),
    (["-maxkb", "536870912"], "-maxkb 536870912 gives no limit. The largest possible value is 4294967."),
    (["-fbs", "100x"], "-fbs 100x is read as 100 frames."),
    (["-l"], "-l is not used by pcap."),
    (["-p", "5"], "-p is not used by pcap."),
])
def test_options_of_a_capture(segment, tmp_path, args, line):
    assert capture(segment, tmp_path, "file", *args) == [line]


def test_words_in_a_look_take_no_device(segment, tmp_path):
    """Looking for the names of the devices disturbs nobody who uses one."""
    with Running(segment.env, "pcap", "first", "-n", LANE_1, cwd=tmp_path) as first:
        first.read_until("press any key to stop...")
        lines = capture(segment, tmp_path, "second", LANE_1, "-d", "1")
        assert lines == [f"'{LANE_1}' is ignored. The device used is '{LANE_2}'."]
        assert first.process.poll() is None
    assert re.search("0 frames dropped", first.lines[-1])
