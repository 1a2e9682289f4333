"""The link and the interface change while a command runs on a veth pair."""

import contextlib
import os
import re
import subprocess

import pytest

import rtp
from interfaces import RUNNING, capture_frames, ip, make_link, numbered, play_with_tcpreplay, wait_until, write_pcap
from lanes import SAMPLES, TIMEOUT, Running, run
from tools import tool

REMOVED = "0xe0000071(KESTATUS_DEVICE_REMOVED)"



# Limit, in seconds, of a command's processor time in a quiet run of a few seconds, also with the sanitizers. It is far
# above the normal value and far below that of a loop that does not sleep.
MUCH_TIME = 2.0


def recording(tmp_path):
    write_pcap(tmp_path / "play.pcap", [numbered(i) for i in range(1000)], 2_000_000)
    tool("editcap", "-F", "pcapng", tmp_path / "play.pcap", tmp_path / "play.pcapng")
    return tmp_path / "play"


class Watched(Running):
    """A running command and its processor time."""

    def __init__(self, env, tmp_path, command):
        self.is_sender = command in ("ts2av", "playpcap")
        self.device = "flw0" if self.is_sender else "flw1"
        self.receiver = rtp.Receiver()
        words = {"ts2av": [SAMPLES / "h264-cbr.ts", "-l"], "playpcap": [recording(tmp_path), "-l"],
                 "av2rtp": ["127.0.0.1", "-p", self.receiver.port], "pcap": [tmp_path / "record"]}[command]
        super().__init__(env, command, *words, "-n", self.device)

    def __exit__(self, *error):
        super().__exit__(*error)
        self.receiver.close()

    def processor_time(self):
        with open(f"/proc/{self.process.pid}/stat") as file:
            fields = file.read().rsplit(") ", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


COMMANDS = ["ts2av", "playpcap", "av2rtp", "pcap"]
COUNT_OF = {"ts2av": r"TS packets sent: (\d+)", "playpcap": r"(\d+) frames successfully sent",
            "av2rtp": r"AVTP packets received: (\d+)", "pcap": r"(\d+) frames successfully written"}


def next_count(program, command):
    while True:
        found = re.search(COUNT_OF[command], program.read_until(""))
        if found:
            return int(found[1])


def other_end(env, command):
    """Sends at the other end, so that a receiving command gets frames."""
    if command in ("ts2av", "playpcap"):
        return contextlib.nullcontext()
    return Running(env, "ts2av", SAMPLES / "h264-cbr.ts", "-l", "-n", "flw0")


def wait_for_progress(program, command):
    before = next_count(program, command)
    wait_until(lambda: next_count(program, command), lambda count: count > before, f"a count above {before}")


@pytest.mark.parametrize("command", COMMANDS)
def test_link_down_and_up_again(env, tmp_path, command):
    with Watched(env, tmp_path, command) as program, other_end(env, command):
        program.read_until(RUNNING)
        wait_for_progress(program, command)
        before = program.processor_time()
        ip(f"link set {program.device} down")
        for _ in range(3):
            next_count(program, command)
        ip(f"link set {program.device} up")
        wait_for_progress(program, command)
        assert program.processor_time() - before < MUCH_TIME
    errors = program.stderr.splitlines()
    if program.is_sender:
        lost = [int(line.rsplit(" ", 1)[1]) for line in errors]
        assert all(line.startswith("Frames not sent because the link was down or busy: ") for line in errors)
        assert len(lost) >= 2 and lost == sorted(set(lost))
    elif command == "av2rtp":
        # The sender's numbers have 8 bits: the frames of the pause may be a multiple of 256.
        assert len(errors) <= 1
        assert all(re.match(r"The received stream has \d+ gaps?: ", line) for line in errors)
    else:
        assert errors == []


@pytest.mark.parametrize("how", ["interface", "namespace"])
@pytest.mark.parametrize("command", COMMANDS)
def test_interface_removed(env, tmp_path, command, how):
    """The interface is removed, or the namespace of its other end is."""
    holder = subprocess.Popen(["unshare", "--net", "sleep", str(TIMEOUT)])
    try:
        program = Watched(env, tmp_path, command)
        if how == "namespace":
            other = "flw1" if program.is_sender else "flw0"
            wait_until(lambda: os.readlink(f"/proc/{holder.pid}/ns/net"),
                       lambda seen: seen != os.readlink("/proc/thread-self/ns/net"), "a name space")
            ip(f"link set {other} netns {holder.pid}")
        with program:
            program.read_until(RUNNING)
            next_count(program, command)
            before = program.processor_time()
            if how == "interface":
                ip(f"link del {program.device}")
            else:
                holder.kill()
                holder.wait()
            if command in ("ts2av", "av2rtp"):  # only a key ends them
                for _ in range(3):
                    next_count(program, command)
                assert program.processor_time() - before < MUCH_TIME
                program.stop()
            else:
                assert program.wait_for_end() == 0
    finally:
        holder.kill()
        holder.wait()
    # Without its other end the link is down. The system notices that sooner or later.
    errors = [line for line in program.stderr.splitlines()
              if not line.startswith(("Frames not sent because", f"The link of '{program.device}' is down: "))]
    removed = f"'{program.device}' was removed. Start again when it is back."
    if command == "playpcap":
        assert re.fullmatch(r"Device 'flw0' did not send packet \d+ of '.*/play.pcapng' \(60 bytes\): The device has been "
                            r"removed from the system; \d+ frames that were read ahead were not sent\.", errors.pop())
    assert errors == {
        "ts2av": [f"TS file source has ended, st={REMOVED}.", removed],
        "playpcap": [f"PCAPNG file reader has ended, st={REMOVED}.", removed,
                     "Stop reading from PCAPNG file(s) because an unrecoverable error occurred..."],
        "av2rtp": [f"AVTP source has ended, st={REMOVED}.", removed],
        "pcap": [f"WaitForRawFrame failed, st={REMOVED}.", removed]}[command]


def test_what_came_before_the_interface_was_removed_is_recorded(env, tmp_path):
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1") as program:
        program.read_until(RUNNING)
        write_pcap(tmp_path / "file.pcap", [numbered(i) for i in range(1000)], 1000)
        play_with_tcpreplay(tmp_path / "file.pcap")
        ip("link del flw0")
        assert program.wait_for_end() == 0
    assert program.lines[-1] == "1000 frames successfully written, 0 frames dropped"
    assert len(capture_frames(tmp_path / "record.pcapng")) == 1000


def test_interface_added_again(env, tmp_path):
    ip("link del flw0")
    result = run("pcap", tmp_path / "record", "-n", "flw1", env=env)
    assert result.stdout.splitlines()[-1] == "No Quayside device connected, please connect a device"
    make_link()
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1") as program:
        program.read_until(RUNNING)


@pytest.mark.parametrize("command", ["ts2av", "playpcap"])
def test_mtu_becomes_too_small(env, tmp_path, command):
    path = recording(tmp_path)
    write_pcap(tmp_path / "play.pcap", [numbered(i, 1390) for i in range(1000)], 2_000_000)
    tool("editcap", "-F", "pcapng", tmp_path / "play.pcap", tmp_path / "play.pcapng")
    words = [SAMPLES / "h264-cbr.ts", "-l"] if command == "ts2av" else [path, "-l"]
    with Running(env, command, *words, "-n", "flw0") as program:
        program.read_until(RUNNING)
        wait_for_progress(program, command)
        ip("link set flw0 mtu 200")
        errors = [program.read_error() for _ in range(2)]
        if command == "playpcap":
            program.wait_for_end()
    lost = "Frames not sent because the link was down or busy: "
    ended = {"ts2av": "TS file source has ended", "playpcap": "PCAPNG file reader has ended"}[command]
    assert errors[0].startswith(lost) and 0 < int(errors[0][len(lost):]) <= 64
    assert errors[1] == f"{ended}, st=0xe0000042(KESTATUS_INVALID_LENGTH)."


@pytest.mark.parametrize("command", ["pcap", "av2rtp"])
def test_mtu_changes_while_receiving(env, tmp_path, command):
    with Watched(env, tmp_path, command) as program, other_end(env, command):
        program.read_until(RUNNING)
        wait_for_progress(program, command)
        ip("link set flw1 mtu 9000")
        wait_for_progress(program, command)
    assert program.stderr == ""
