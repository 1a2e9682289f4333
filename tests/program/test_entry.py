"""From the start of the program to its exit code: version line, command line, help."""

import re
import resource
import subprocess

import pytest

from arguments import no_address
from lanes import (FAKE_DEVICE_DIR, FLOWLANE, SOURCE, TIMEOUT, exit_status, run, run_with_fake_device,
                   sanitized_environment)

VERSION_LINE = "Quayside library API Version 2.20."
HINT = "For usage information, run flowlane help."
KESTATUS_INVALID_COMMAND = 0xE0000054

HELP = """\

flowlane v1.16.0 ({date} {time})

Usage:

  flowlane help
    Display this help text and exit.

  flowlane ts2av <ts-file> [-l] [-m <desination_mac_address>] [-vtci <number>] [-u <unique_id>] [-d <index> | -n <name>]
    Open the specified H.264/H.265 TS file and send contents as IEEE P1722 AVTP compliant stream.
    Option -m defines destination MAC address in the generated Ethernet header.
    Option -u defines the 16-bit Unique ID field of the StreamID in the generated AVTP header.

  flowlane av2rtp <destination_host> [-p <port_number>] [-m <source_mac_address>] [-u <unique_id>] [-d <index> | -n <name>]
    Receive an IEEE P1722 AVTP compliant stream, convert it to an RTP/UDP stream, and forward it to the specified host.
    Option -m activates filtering by source MAC address in Ethernet header.
    Option -u activates filtering by 16-bit Unique ID field of the StreamID in the AVTP header.

  flowlane pcap <filename> [-fbs <frames>] [-maxkb <size> | -maxmb <size>] [-d <index> | -n <name>]
    Capture Ethernet frames and write them to a pcap-ng file. Suffix .pcapng will be appended to the specified filename.

  flowlane playpcap <filename> [-l] [-flsm] [-i] [-fbs <frames>] [-d <index> | -n <name>]
    Replay Ethernet frames from the specified pcap-ng file or a file set.
    Option -i activates playback of a file set and specifies the index of the first file in the file set.

Options:
  -h --help
    Display this help text and exit.
  -v --verbose
    Enable verbose mode.
  -d --device_instance
    Zero-based index of the device instance to use, default 0.
  -n --friendly_name
    Friendly name of the device instance to use.
  -u --unique_id <ID>
    Unique ID (16 bits) used in the IEEE 802.1Qat StreamID, default 0.
  -m --mac_address <MAC address>
    Source/destination MAC address specified as string with 12 characters (e.g. '112233445566').
    Defaults to FF-FF-FF-FF-FF-FF (the broadcast address) if this option is not specified.
  -vtci --vlan_tci <number>
    Specifies the VLAN tag control information (TCI) for the sent Ethernet frames, zero for no VLAN (default).
  -l --loop
    Rewind the file to the beginning when end of file is reached.
  -p --port_number <number>
    Port number to be used, default 5000.
  -fbs --frame_buffer_size <frames>
    Size of the intermediate buffer in frames, default 20000 frames.
  -maxkb --max_file_size_KB <size>
    Max size of a pcap-ng file in kilobytes (1'000 bytes), zero for no limit (default).
  -maxmb --max_file_size_MB <size>
    Max size of a pcap-ng file in megabytes (1'000'000 bytes), zero for no limit (default).
  -flsm --force_local_source_mac
    In each Ethernet frame, replace the source MAC address with the one of the local device.
  -i --index
    Index of the first file in the file set, default 1.

"""


def test_version_is_that_of_the_project():
    version = re.search(r"^project\(flowlane VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
    assert f"\nflowlane v{version} (" in run("help").stdout


def check_help(result):
    banner = re.search(r"^flowlane v1\.16\.0 \((\w{3} [ \d]\d \d{4}) (\d\d:\d\d:\d\d)\)$", result.stdout, re.M)
    assert banner, result.stdout
    assert result.stdout == VERSION_LINE + "\n" + HELP.format(date=banner[1], time=banner[2])
    assert result.stderr == ""
    assert result.returncode == 0


@pytest.mark.parametrize("args", [
    ["help"],
    ["-h"],
    ["--help"],
    ["ts2av", "-h"],
    ["ts2av", "no-such-file", "-h"],
    ["nonsense", "--help"],
    ["help", "-v"],
    # The help shows the defaults, not the given values.
    ["help", "-d", "7", "-u", "8", "-p", "9", "-fbs", "10", "-i", "11"],
])
def test_help(args):
    check_help(run(*args))


COMMANDS = "The commands are: ts2av, av2rtp, pcap, playpcap, help."


@pytest.mark.parametrize("args, word, explanation", [
    ([], "", COMMANDS),
    (["HELP"], "HELP", "Did you mean 'help'?"),
    (["Ts2av", "file"], "Ts2av", "Did you mean 'ts2av'?"),
    (["ts2avx"], "ts2avx", "Did you mean 'ts2av'?"),
    (["playcap", "-p", "5k"], "playcap", "Did you mean 'playpcap'?"),
    (["capture"], "capture", "Did you mean 'pcap'?"),
    (["nonsense"], "nonsense", COMMANDS),
    (["version"], "version", "The version is shown by: flowlane help"),
    (["list"], "list", "The devices are listed by: quayside2-devices"),
    (["my.ts"], "my.ts", "A command comes first: flowlane ts2av my.ts"),
    (["record.pcapng"], "record.pcapng", "A command comes first: flowlane playpcap record.pcapng"),
    (["record", "pcap"], "record", "The command comes first: flowlane pcap record"),
    (["-v"], "", COMMANDS),
    (["--"], "--", COMMANDS),
    (["-5"], "-5", COMMANDS),
    (["{}"], "{}", COMMANDS),
])
def test_invalid_command(args, word, explanation):
    result = run(*args)
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr == f"Invalid command {word}.\n{HINT}\n{explanation}\n"
    assert result.returncode == exit_status(KESTATUS_INVALID_COMMAND)


VALUE_OPTIONS = [("m", "mac_address"), ("n", "friendly_name"), ("u", "unique_id"), ("d", "device_instance"),
                 ("p", "port_number"), ("fbs", "frame_buffer_size"), ("maxkb", "max_file_size_KB"),
                 ("maxmb", "max_file_size_MB"), ("vtci", "vlan_tci"), ("i", "index")]
NUMBER_OPTIONS = [pair for pair in VALUE_OPTIONS if pair[0] not in ("m", "n")]
SWITCHES = [("h", "help"), ("v", "verbose"), ("l", "loop"), ("flsm", "force_local_source_mac"),
            ("es", "error_status"), ("pt", "precise_timing"), ("rc", "rebase_clock")]


def spellings(pairs):
    return [word for short, long in pairs for word in ("-" + short, "--" + long)]


TAKES = {
    "m": "12 hexadecimal digits, for example: -m 025142580001",
    "n": "the name of a device. The devices are listed by: quayside2-devices",
    "u": "a number from 0 to 65535.",
    "d": "the index of a device. The devices are listed by: quayside2-devices",
    "p": "a number from 0 to 65535.",
    "fbs": "a number of frames, for example: -fbs 20000",
    "maxkb": "a number of kilobytes from 0 to 4294967.",
    "maxmb": "a number of megabytes from 0 to 4294.",
    "vtci": "a number from 0 to 65535.",
    "i": "the number of the first file of a set, for example: -i 1",
}


def what_it_takes(option):
    return f"{option} takes " + next(TAKES[short] for short, long in VALUE_OPTIONS
                                     if option in ("-" + short, "--" + long))


def check_parser_error(result, message, status, *explanation):
    assert result.stdout == VERSION_LINE + "\n"
    assert result.stderr.splitlines() == [f"flowlane: {message}", HINT, *explanation]
    assert result.returncode == exit_status(status)


@pytest.mark.parametrize("option", spellings(VALUE_OPTIONS))
def test_missing_value(option):
    check_parser_error(run("ts2av", option), f"Missing value for option {option}.", 0xE0000012,
                       what_it_takes(option))


@pytest.mark.parametrize("option", spellings(NUMBER_OPTIONS))
@pytest.mark.parametrize("value", ["abc", "", "-", "x10"])
def test_invalid_number(option, value):
    check_parser_error(run("ts2av", option, value), f"Invalid value {value} for option {option}.",
                       0xE0000051, what_it_takes(option))


@pytest.mark.parametrize("option, explanation", [
    ("-x", []),
    ("--nonsense", []),
    ("-verbose", ["Did you mean '--verbose'?"]),
    ("--v", ["Did you mean '-v'?"]),
    ("--maxkb", ["Did you mean '-maxkb'?"]),
    ("-maxxb", ["Did you mean '-maxkb' or '-maxmb'?"]),
    ("-P", ["Did you mean '-p'?"]),
    ("--port", ["Did you mean '--port_number'?"]),
    ("--port-number", ["Did you mean '--port_number'?"]),
    ("--prot_number", ["Did you mean '--port_number'?"]),
    ("--help=1", ["'--help' takes no value."]),
    ("-fbs=5", ["The value is a word of its own: -fbs 5"]),
    ("--port=5004", ["The value is a word of its own: --port_number 5004"]),
    ("-p5004", ["The value is a word of its own: -p 5004"]),
    ("-vl", ["Each option is a word of its own: -v -l"]),
    ("--version", ["The version is shown by: flowlane help"]),
    ("-V", ["The version is shown by: flowlane help"]),
    ("--list", ["The devices are listed by: quayside2-devices"]),
    ("--interface", ["A device is chosen with -n and its name, or with -d and its index."]),
    ("-w", ["The file name stands behind the command without an option, for example: flowlane pcap record"]),
    ("--host", ["The host stands behind the command without an option, for example: flowlane av2rtp 192.0.2.1"]),
])
def test_unknown_option(option, explanation):
    check_parser_error(run("ts2av", option), f"Unknown option {option}.", 0xE0000013, *explanation)


@pytest.mark.parametrize("word, shown", [
    ("x" * 100000, "x" * 80 + "..."), ("\x1b[31mred", r"$'\033[31mred'"), ("\n", r"$'\012'"), ("it's", r"'it'\''s'")])
def test_huge_and_unprintable_words(word, shown):
    """What a terminal could obey is not repeated in an explanation, and a line ends."""
    result = run(word, "ts2av")
    assert result.stderr.splitlines()[-1] == f"The command comes first: flowlane ts2av {shown}"


@pytest.mark.parametrize("option", spellings(VALUE_OPTIONS))
def test_options_with_value_are_known(option):
    # With -h no command runs, and every known option is accepted.
    check_help(run(option, "12", "-h"))


@pytest.mark.parametrize("option", spellings(SWITCHES))
def test_switches_are_known(option):
    check_help(run(option, "-h"))


def test_first_error_is_the_only_one():
    check_parser_error(run("-x", "-y"), "Unknown option -x.", 0xE0000013)


@pytest.mark.parametrize("args", [[], ["help"], ["-x"], ["ts2av", "file"]])
def test_incompatible_library(args):
    result = run_with_fake_device(*args, script="compatible=0,GetApiVersion=0x00010005")
    assert result.stdout == ""
    assert result.stderr.splitlines() == [
        "The DLL is incompatible with this application.",
        "The device library has interface version 1.05, and flowlane needs 2.20. Is LD_LIBRARY_PATH set to another "
        "library?"]
    assert result.returncode == 255


@pytest.mark.parametrize("version, text", [
    (0x00020014, "2.20"),
    (0x00020005, "2.05"),
    (0x00030000, "3.00"),
    (0xFFFF0001, "65535.01"),
    (0x00010064, "1.100"),
])
def test_version_line(version, text):
    result = run_with_fake_device("help", script=f"GetApiVersion={version:#x}")
    assert result.stdout.startswith(f"Quayside library API Version {text}.\n")


def test_verbose_tells_what_is_behind_a_failure():
    script = "mac_size=5"
    usual = run_with_fake_device("ts2av", "file", script=script)
    failure = "CreateAvtpSink failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH)."
    assert usual.stderr.splitlines() == [failure, no_address("fake-1")]
    verbose = run_with_fake_device("ts2av", "-v", "file", script=script)
    assert verbose.stderr.splitlines() == ["ERROR: MAC address length mismatch, got 5, exp 6", failure,
                                           no_address("fake-1")]
    assert verbose.stdout == usual.stdout
    assert verbose.returncode == usual.returncode


def test_verbose_shows_all_levels_on_standard_error():
    result = run_with_fake_device("ts2av", "-v", SOURCE / "samples" / "h264-cbr.ts")
    assert "INFO: all packets from file delivered, stop thread" in result.stderr.splitlines()
    assert "INFO: " not in result.stdout
    assert result.returncode == 0


def test_file_size_limit_is_a_failed_write(tmp_path):
    """SIGXFSZ does not end the process, although subprocess leaves its default action."""
    result = subprocess.run([FLOWLANE, "pcap", tmp_path / "file"], stdin=subprocess.DEVNULL, capture_output=True,
                            env=sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR), text=True, check=False,
                            timeout=TIMEOUT,
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10)))
    assert result.stderr.splitlines()[-2:] == [
        "StartFileWriter failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED).",
        f"'{tmp_path}/file.pcapng' cannot be written: the file has reached the largest size that is allowed (ulimit -f); "
        "-maxmb makes smaller files."]
    assert result.returncode == exit_status(0xE0000092)
