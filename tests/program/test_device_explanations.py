"""The lines that say why a device cannot be used, with the real device library: lanes, and interfaces in a network
namespace of the test's own. test_device_selection.py has the messages that they follow."""

import contextlib
import fcntl
import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile

import pytest

from interfaces import RUNNING, ip, wait_until
from lanes import FLOWLANE, SAMPLES, TIMEOUT, Running, run
from namespaces import private_mounts
from tools import tool

SAMPLE = SAMPLES / "h264-cbr.ts"
NOBODY = 65534
AS_NOBODY = ["setpriv", "--reuid", str(NOBODY), "--regid", str(NOBODY), "--clear-groups"]
WITH_PRIVILEGE = ["--inh-caps", "+net_raw", "--ambient-caps", "+net_raw"]

pytestmark = pytest.mark.usefixtures("link")


def explanation(result):
    """The last line of standard error, which follows the message of the drivers."""
    *_, opening, line = result.stderr.splitlines()
    assert opening.startswith("Open device failed, st=0x")
    return line


@pytest.fixture
def lanes(segment):
    """The environment of a program that sees the lanes of a segment of its own, and the veth pair."""
    return {**segment.env, "QUAYSIDE2_DEVICES": "lane-1,lane-2,lane-3,lane-4,flw0,flw1"}


def install(folder):
    """Copies the program and its library into a folder, for a user who may not read the project."""
    library = pathlib.Path(FLOWLANE).parent.parent / "libquayside2_api" / "libquayside2_api.so"
    folder.mkdir()
    shutil.copy(FLOWLANE, folder)
    shutil.copy(library, folder)
    return folder / "flowlane"


@pytest.fixture
def public_folder():
    """A folder that every user can read."""
    with tempfile.TemporaryDirectory() as name:
        os.chmod(name, 0o755)
        yield pathlib.Path(name)


def run_with_prefix(prefix, *command, env):
    """Runs a program from a folder of its own."""
    env = {**env, "LD_LIBRARY_PATH": str(pathlib.Path(command[0]).parent)}
    return subprocess.run([*prefix, *map(str, command)], env=env, stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, check=False, timeout=TIMEOUT)


def needs_root():
    """Only root of the system may become another user. The other tests of this file run for both."""
    if pathlib.Path("/proc/self/setgroups").read_text() != "allow\n":
        pytest.skip("this user cannot become another one")


# --- Names and indexes ----------------------------------------------------------------------------


@pytest.mark.parametrize("name, first", [
    ("nowhere", "lane-1, lane-2, lane-3, lane-4, flw0, flw1"),
    ("LANE-3", "lane-3, lane-1, lane-2, lane-4, flw0, flw1"),
    ("flv1", "flw1, flw0, lane-1, lane-2, lane-3, lane-4"),
])
def test_unknown_name(lanes, name, first):
    result = run("ts2av", SAMPLE, "-n", name, env=lanes)
    assert explanation(result) == f"No device is named '{name}'. The devices are: {first}"


def test_unknown_name_while_a_device_is_in_use(lanes, tmp_path):
    with Running(lanes, "pcap", tmp_path / "record", "-n", "lane-2") as holder:
        holder.read_until(RUNNING)
        result = run("ts2av", SAMPLE, "-n", "nowhere", env=lanes)
    assert "Ignore device with index 1 because it is already in use." in result.stdout.splitlines()
    assert explanation(result) == ("No device is named 'nowhere'. The devices are: "
                                   "lane-1, lane-2 (in use), lane-3, lane-4, flw0, flw1")


def test_a_device_in_use_is_no_fault_when_another_is_found(lanes, tmp_path):
    with Running(lanes, "pcap", tmp_path / "record", "-n", "lane-1") as holder:
        holder.read_until(RUNNING)
        with Running(lanes, "pcap", tmp_path / "other", "-n", "lane-2") as program:
            program.read_until(RUNNING)
        assert "Ignore device with index 0 because it is already in use." in program.lines
        assert program.stderr == ""


@pytest.mark.parametrize("selected, index, line", [
    ("flw0,lane-1", 2, "The 2 devices that QUAYSIDE2_DEVICES allows are: 0 = flw0, 1 = lane-1"),
    ("flw1", 7, "The only device that QUAYSIDE2_DEVICES allows is: 0 = flw1"),
])
def test_index_beyond_the_selection(lanes, selected, index, line):
    result = run("playpcap", SAMPLE, "-d", index, env={**lanes, "QUAYSIDE2_DEVICES": selected})
    assert explanation(result) == f"No device has the index {index}. {line}"


def test_index_beyond_the_list(lanes):
    result = run("ts2av", SAMPLE, "-d", 99, env={**lanes, "QUAYSIDE2_DEVICES": ""})
    line = explanation(result)
    assert line.startswith("No device has the index 99. The ")
    assert " devices are: 0 = lane-1, 1 = lane-2, 2 = lane-3, 3 = lane-4, " in line
    assert " = flw0, " in line


@pytest.mark.parametrize("command", ["ts2av", "playpcap", "av2rtp", "pcap"])
def test_selection_without_a_device(lanes, command):
    result = run(command, "argument", env={**lanes, "QUAYSIDE2_DEVICES": "flw9"})
    start = ("QUAYSIDE2_DEVICES allows only 'flw9', and there is no such device. "
             "The devices are: lane-1, lane-2, lane-3, lane-4, ")
    assert explanation(result).startswith(start)


def test_selection_without_the_wanted_device(lanes):
    result = run("ts2av", SAMPLE, "-n", "flw0", env={**lanes, "QUAYSIDE2_DEVICES": "lane-1"})
    assert explanation(result) == "QUAYSIDE2_DEVICES allows only 'lane-1'. Add 'flw0' to it, or unset it."


def test_name_with_any_bytes(lanes):
    result = run("ts2av", SAMPLE, "-n", "a\x1b[31m" + "b" * 300, env=lanes)
    shown = "a?[31m" + "b" * 74
    assert explanation(result).startswith(f"No device is named '{shown}...'. The devices are: lane-1, ")


# --- In use ---------------------------------------------------------------------------------------


@pytest.mark.parametrize("device, index", [("lane-2", 1), ("flw0", 4)])
@pytest.mark.parametrize("command", ["ts2av", "pcap"])
def test_in_use(lanes, tmp_path, command, device, index):
    words = {"ts2av": ["ts2av", SAMPLE, "-l"], "pcap": ["pcap", tmp_path / "record"]}[command]
    with Running(lanes, *words, "-n", device) as holder:
        holder.read_until(RUNNING)
        for option in (["-n", device], ["-d", index]):
            assert explanation(run(*words, *option, env=lanes)) == (
                f"'{device}' is in use by flowlane (process {holder.process.pid}). "
                "End that program, or choose another device.")


def test_in_use_by_another_users_program(lanes, public_folder, tmp_path):
    """The system does not show to users what the programs of others do."""
    needs_root()
    program = install(public_folder / "program")
    with Running(lanes, "pcap", tmp_path / "record", "-n", "flw0") as holder:
        holder.read_until(RUNNING)
        result = run_with_prefix([*AS_NOBODY, *WITH_PRIVILEGE], program, "pcap", "/tmp/record", "-n", "flw0", env=lanes)
    assert explanation(result) == ("'flw0' is in use by another program. "
                                   "End that program, or choose another device.")


# --- Privilege ------------------------------------------------------------------------------------


@pytest.mark.parametrize("folder", ["plain", "it's a \"folder\""])
def test_without_the_privilege(lanes, public_folder, folder):
    """The command in the line can be given to a shell as it is, and helps."""
    needs_root()
    program = install(public_folder / folder)
    for option in (["-n", "flw0"], ["-d", "4"]):
        result = run_with_prefix(AS_NOBODY, program, "ts2av", SAMPLE, *option, env=lanes)
        text, command = explanation(result).split(": ", 1)
        assert text == "'flw0' needs a privilege. Run this program as root, or give it the privilege"
        assert shlex.split(command) == ["sudo", "setcap", "cap_net_raw+ep", str(program)]
    tool(*shlex.split(command)[1:])
    without_others = ["setpriv", "--securebits", "+noroot", "--inh-caps", "-all", "--ambient-caps", "-all"]
    result = run_with_prefix(without_others, program, "ts2av", SAMPLE, "-n", "flw0", env=lanes)
    assert (result.returncode, result.stderr) == (0, "")


def test_without_the_privilege_and_with_a_path_that_is_too_long(lanes, public_folder):
    needs_root()
    folder = public_folder / ("x" * 200)
    folder.mkdir()
    program = install(folder / ("y" * 200))
    result = run_with_prefix(AS_NOBODY, program, "ts2av", SAMPLE, "-n", "flw0", env=lanes)
    assert explanation(result) == "'flw0' needs a privilege. Run this program as root."


def test_root_without_the_privilege(lanes, public_folder):
    program = install(public_folder / "program")
    result = run_with_prefix(["setpriv", "--bounding-set", "-net_raw"], program, "pcap", "/tmp/record", "-n", "flw0",
                             env=lanes)
    assert explanation(result) == ("'flw0' needs the privilege CAP_NET_RAW, which root does not have here. "
                                   "Start the container or the service with it.")


# --- The link -------------------------------------------------------------------------------------


@pytest.mark.parametrize("command, use", [("ts2av", "sent"), ("pcap", "received")])
@pytest.mark.parametrize("down", ["flw0", "flw1"])
def test_link_down_at_the_start(lanes, tmp_path, command, use, down):
    """The interface itself, or the other end of its cable."""
    words = [SAMPLE, "-l"] if command == "ts2av" else [tmp_path / "record"]
    ip(f"link set {down} down")
    # The kernel takes up a lost carrier a moment later.
    wait_until(lambda: tool("ip", "-o", "link", "show", "flw0"), lambda link: b" state UP " not in link, "a link that is down")
    with Running(lanes, command, *words, "-n", "flw0") as program:
        assert program.read_error() == (f"The link of 'flw0' is down: nothing is {use} until it is up. "
                                        "Check its cable, or type: ip link set flw0 up")
        program.read_until(RUNNING)
        assert not any("flw0' is down" in line for line in program.lines)


@pytest.mark.parametrize("device", ["flw0", "lane-1"])
@pytest.mark.parametrize("command", ["ts2av", "pcap"])
def test_nothing_is_said_of_a_good_device(lanes, tmp_path, command, device):
    words = [SAMPLE, "-l"] if command == "ts2av" else [tmp_path / "record"]
    with Running(lanes, command, *words, "-n", device) as program:
        program.read_until(RUNNING)
    assert program.stderr == ""


# --- Shared memory --------------------------------------------------------------------------------


@contextlib.contextmanager
def segment_file(segment, make):
    path = pathlib.Path(f"/dev/shm/quayside2-{os.geteuid()}-{segment.name}")
    make(path)
    try:
        yield path
    finally:
        subprocess.run(["rm", "-rf", path], check=True, timeout=TIMEOUT)


def private_file(content, mode=0o600, owner=None):
    def make(path):
        path.write_bytes(content)
        path.chmod(mode)
        if owner is not None:
            os.chown(path, owner, owner)
    return make


@pytest.mark.parametrize("make, line", [
    (lambda path: path.mkdir(), "'{0}' is not the shared memory of a segment. Remove it: rm -r {0}"),
    (private_file(b"something else"), "'{0}' is not the shared memory of a segment. Remove it: rm {0}"),
    (private_file(b"QSegment"),
     "'{0}' is damaged, or another version made it. End the programs that use it, then: rm {0}"),
    (private_file(b"", mode=0o666), "Other users may use '{0}', so it is refused. Correct that: chmod 600 {0}"),
])
@pytest.mark.parametrize("device", [["-n", "lane-2"], ["-d", "1"]])
def test_file_that_is_no_segment(lanes, segment, make, line, device):
    with segment_file(segment, make) as path:
        result = run("ts2av", SAMPLE, *device, env=lanes)
        assert explanation(result) == line.format(path)
        for command in line.format(path).split(": ")[1:]:  # it helps
            subprocess.run(shlex.split(command), check=True, timeout=TIMEOUT)
            assert run("ts2av", SAMPLE, *device, env=lanes).stderr == ""


def test_file_of_another_user(lanes, segment):
    needs_root()
    with segment_file(segment, private_file(b"", owner=NOBODY)) as path:
        assert explanation(run("ts2av", SAMPLE, "-n", "lane-1", env=lanes)) == (
            f"'{path}' belongs to user 'nobody'. Remove it: rm {path}")


SEEN_BY_NOBODY = [
    # Options of the file system, what is done before, and the line.
    ("mode=1777", "touch $0 && chmod 600 $0 && chown 12345 $0",
     "'{0}' belongs to user 12345. Have it removed, or set QUAYSIDE2_SEGMENT to another name."),
    ("mode=1777", "touch $0 && chown 65534 $0 && chmod 0 $0",
     "You may not read and write '{0}'. Correct that: chmod 600 {0}"),
    ("mode=755", "true", "You may not make files in '/dev/shm'. Root can allow it: chmod 1777 /dev/shm"),
]


@pytest.mark.parametrize("options, before, line", SEEN_BY_NOBODY)
def test_file_that_an_ordinary_user_may_not_use(lanes, segment, public_folder, options, before, line):
    needs_root()
    program = install(public_folder / "program")
    path = f"/dev/shm/quayside2-{NOBODY}-{segment.name}"
    script = f"mount -t tmpfs -o {options} none /dev/shm && {before} && exec \"$@\""
    result = run_with_prefix([*private_mounts(), "sh", "-c", script, path, *AS_NOBODY], program, "ts2av", SAMPLE, "-n",
                             "lane-1", env=lanes)
    assert explanation(result) == line.format(path)


@pytest.mark.parametrize("options, line", [
    ("size=1m", "'/dev/shm' has no room for the shared memory of the lanes, 16.1 MiB. "
                "Remove files there, or enlarge it."),
    ("ro", "'/dev/shm' is read-only. Make it writable: mount -o remount,rw /dev/shm"),
])
def test_folder_without_room(lanes, options, line):
    script = f"mount -t tmpfs -o {options} none /dev/shm && exec \"$@\""
    for device in (["-n", "lane-1"], ["-d", "0"]):
        result = run_with_prefix([*private_mounts(), "sh", "-c", script, "sh"], FLOWLANE, "ts2av", SAMPLE, *device,
                                 env=lanes)
        assert explanation(result) == line


def test_without_a_folder_of_shared_memory(lanes, segment):
    result = run_with_prefix([*private_mounts(), "sh", "-c", "mount -t tmpfs none /dev && exec \"$@\"", "sh"], FLOWLANE,
                             "ts2av", SAMPLE, "-n", "lane-1", env=lanes)
    path = f"/dev/shm/quayside2-{os.geteuid()}-{segment.name}"
    assert explanation(result) == f"'{path}' cannot be used: No such file or directory."


SET_UP_LOCK = 8  # the byte of the file that is locked while it is being made


def test_file_that_another_process_does_not_finish(lanes, segment):
    with segment_file(segment, private_file(b"")) as path, open(path, "r+b") as file:
        fcntl.lockf(file, fcntl.LOCK_EX, 1, SET_UP_LOCK)
        assert explanation(run("ts2av", SAMPLE, "-n", "lane-1", env=lanes)) == (
            f"Another process is making '{path}' and does not finish. Continue it or end it.")
    assert run("ts2av", SAMPLE, "-n", "lane-1", env=lanes).stderr == ""


@pytest.mark.parametrize("name", ["a/b", "x" * 65])
def test_segment_name_that_cannot_be(lanes, name):
    result = run("ts2av", SAMPLE, env={**lanes, "QUAYSIDE2_SEGMENT": name})
    assert explanation(result) == (f"QUAYSIDE2_SEGMENT is '{name}'. "
                                   "A segment's name has 1 to 64 letters, digits, '-', '_' or '.'.")
