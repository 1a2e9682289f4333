"""The commands on the ends of a veth pair, flw0 and flw1, together with tcpdump, tcpreplay and other tools. Runs in
its own network namespace."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import struct
import subprocess
import time

import pytest

import capture
import rtp
import tsfile
from lanes import (FLOWLANE, LANE_SEND, SAMPLES, TIMEOUT, Running, bounded, exit_status, run, sanitized_environment,
                   wait_for_carriers)
from tools import tool

DEVICES_TOOL = os.environ["DEVICES_BIN"]

KESTATUS_IN_USE = 0xE0000006
KESTATUS_ADMIN_PRIVILEGES_REQUIRED = 0xE0000110
REMOVED = "0xe0000071(KESTATUS_DEVICE_REMOVED)"

# The line that a command prints when it runs.
RUNNING = "press any key to stop..."


def ip(*words):
    subprocess.run(["ip", *" ".join(words).split()], check=True, timeout=TIMEOUT)


def make_link():
    ip("link add flw0 address 02:00:5e:00:53:00 type veth peer name flw1 address 02:00:5e:00:53:01")
    ip("link set flw0 up")
    ip("link set flw1 up")
    wait_for_carriers()


@pytest.fixture(autouse=True)
def link():
    make_link()
    yield
    subprocess.run(["ip", "link", "del", "flw0"], stderr=subprocess.DEVNULL, check=False)


@pytest.fixture
def env():
    return sanitized_environment(QUAYSIDE2_DEVICES="flw0,flw1")


def wait_until(read, is_good, what):
    """Reads again and again until the value is good, and returns it."""
    deadline = time.monotonic() + TIMEOUT
    while not is_good(seen := read()):
        assert time.monotonic() < deadline, f"waited in vain for {what}, saw last: {seen}"
        time.sleep(0.01)
    return seen


# tcpdump changes its user and groups. That is not possible in a user namespace, when the test does not run as root.
DUMPING = ["tcpdump", "-Z", "root", "-Q", "in", "--time-stamp-precision=nano", "-U", "-B", "65536"] \
    if pathlib.Path("/proc/self/setgroups").read_text() == "allow\n" else ["dumpcap", "-P", "-B", "64"]


class Dumping:
    """Runs tcpdump on an interface. The end of the block waits until it has written the expected number of frames: when
    tcpdump is ended, it loses what it received in the last second and did not write."""

    def __init__(self, path, interface, count):
        self.path = path
        self.count = count
        self.process = subprocess.Popen(
            [*DUMPING, "-i", interface, "-w", path], stderr=subprocess.PIPE, text=True)
        seen = []
        with bounded(self.process):
            while not seen or not re.match("tcpdump: listening on|File:", seen[-1]):
                seen.append(self.process.stderr.readline())
                assert seen[-1], f"{DUMPING[0]} does not listen: {seen}"

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                wait_until(lambda: len(self.frames()), lambda seen: seen >= self.count,
                           f"{self.count} frames in {self.path}")
        finally:
            self.process.terminate()
            self.process.communicate(timeout=TIMEOUT)

    def frames(self):
        """(time, frame) of each whole frame in the file so far."""
        with contextlib.suppress(struct.error):
            return capture.frames(self.path)
        return []


def capture_frames(path):
    """(time, frame) of each frame in a pcap-ng file, read through editcap."""
    converted = path.with_suffix(".pcap")
    tool("editcap", "-F", "nsecpcap", path, converted)
    return capture.frames(converted)


def write_pcap(path, frames, spacing=1_000_000):
    """A capture file for tcpreplay; spacing in nanoseconds."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHIIII", 0xA1B23C4D, 2, 4, 0, 0, 65535, 1))
        for i, frame in enumerate(frames):
            moment = 1_700_000_000 * 10**9 + i * spacing
            file.write(struct.pack("<IIII", moment // 10**9, moment % 10**9, len(frame), len(frame)) + frame)
    return path


def numbered(number, length=60, tags=""):
    frame = bytes.fromhex("02005e005301" "02005e005300" + tags + "88b5") + number.to_bytes(4, "big")
    return frame + bytes((number + i) & 0xFF for i in range(length - len(frame)))


TAGS = {"none": "", "802.1Q": "81002005", "802.1Q priority": "8100e000", "802.1ad": "88a80007",
        "802.1ad and 802.1Q": "88a8000781002005", "two 802.1Q": "8100000781002005", "old": "91000007"}


def avtp_frame_count(packets):
    """The number of frames in which these packets are sent."""
    return -(-len(packets) // 7)


def play_with_tcpreplay(path, *options):
    tool("tcpreplay", "-q", "-i", "flw0", *options, path)


# --- The same bytes ------------------------------------------------------------------------------


@pytest.mark.parametrize("options, tci", [([], None), (["-vtci", "0x6005"], 0x6005)])
def test_tcpdump_sees_what_ts2av_sends(env, tmp_path, options, tci):
    sample = SAMPLES / "h264-cbr.ts"
    expected = tsfile.delivered_part(sample.read_bytes())
    with Dumping(tmp_path / "seen.pcap", "flw1", avtp_frame_count(expected)) as seen:
        result = run("ts2av", sample, "-n", "flw0", "-m", "91e0f0000e80", *options, env=env)
    assert (result.returncode, result.stderr) == (0, "")
    frames = [capture.AvtpFrame(frame) for _, frame in seen.frames()]
    assert {frame.destination for frame in frames} == {"91e0f0000e80"}
    assert {frame.source for frame in frames} == {"02005e005300"}
    assert {frame.tci for frame in frames} == {tci}
    capture.check_sequence(frames)
    assert [packet[4:] for frame in frames for packet in frame.source_packets] == expected


def test_tcpdump_sees_what_playpcap_sends(env, tmp_path):
    """Frames of every length and tag, and their spacing."""
    lengths = [14, 20, 59, 60, 64, 512, 1513, 1514]
    sent = [numbered(i, max(length, 18 + len(tags) // 2), tags)
            for i, (length, tags) in enumerate((length, tags) for length in lengths for tags in TAGS.values())]
    sent += [numbered(1000, 1518, "81000001"), numbered(1001, 18)[:14]]
    write_pcap(tmp_path / "file.pcap", sent, 20_000_000)
    tool("editcap", "-F", "pcapng", tmp_path / "file.pcap", tmp_path / "file.pcapng")
    with Dumping(tmp_path / "seen.pcap", "flw1", len(sent)) as seen:
        result = run("playpcap", tmp_path / "file", "-n", "flw0", env=env)
    assert result.stderr == ""
    assert f"{len(sent)} frames successfully sent, 0 errors occured" in result.stdout
    assert [frame for _, frame in seen.frames()] == sent
    times = [moment for moment, _ in seen.frames()]
    # Late by a round of the sender, and by the load of the machine. Never early, without drift.
    late = [moment - times[0] - i * 20_000_000 for i, moment in enumerate(times)]
    assert sorted(late)[len(late) // 2] - min(late) < 25_000_000
    assert max(late) - min(late) < 500_000_000


@pytest.mark.parametrize("tags", TAGS.values(), ids=TAGS.keys())
def test_pcap_records_what_tcpreplay_sends(env, tmp_path, tags):
    sent = [numbered(i, length, tags) for i, length in enumerate([60, 100, 1000, 1514] * 25)]
    write_pcap(tmp_path / "file.pcap", sent)
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1") as program:
        program.read_until(RUNNING)
        before = time.time_ns()
        play_with_tcpreplay(tmp_path / "file.pcap")
        after = time.time_ns()
        time.sleep(1)
    assert program.stderr == ""
    assert program.lines[-1] == f"{len(sent)} frames successfully written, 0 frames dropped"
    recorded = capture_frames(tmp_path / "record.pcapng")
    assert [frame for _, frame in recorded] == sent
    times = [moment for moment, _ in recorded]
    assert times == sorted(times)
    assert before <= times[0] and times[-1] <= after  # the time of arrival, although reading can be a second later
    assert any(moment % 1000 for moment in times)


def test_av2rtp_forwards_what_tcpreplay_sends(env, tmp_path, short_file):
    expected = tsfile.delivered_part(short_file.read_bytes())
    with Dumping(tmp_path / "stream.pcap", "flw1", avtp_frame_count(expected)):
        assert run("ts2av", short_file, "-n", "flw0", env=env).returncode == 0
    with rtp.Receiver() as receiver, \
            Running(env, "av2rtp", "127.0.0.1", "-p", receiver.port, "-n", "flw1") as program:
        program.read_until(RUNNING)
        play_with_tcpreplay(tmp_path / "stream.pcap")
        program.read_until(f"TS packets sent: {len(expected)}")
    assert program.stderr == ""
    assert rtp.split(receiver.datagrams) == expected


def test_a_burst_at_a_high_rate(env, tmp_path):
    """Nothing is lost at 20000 frames/s for three seconds."""
    write_pcap(tmp_path / "file.pcap", [numbered(i, 1390) for i in range(20000)])
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1", "-fbs", "40000") as program:
        program.read_until(RUNNING)
        play_with_tcpreplay(tmp_path / "file.pcap", "--loop=3", "--pps=20000", "--preload-pcap")
        time.sleep(1)
    assert program.lines[-1] == "60000 frames successfully written, 0 frames dropped"
    numbers = [int.from_bytes(frame[14:18], "big") for _, frame in capture_frames(tmp_path / "record.pcapng")]
    assert numbers == list(range(20000)) * 3


@pytest.mark.parametrize("lengths", [(9014, 60, 1523, 60), (60, 1522, 1523), (5000, 9014)])
def test_jumbo_frames_are_missing_in_a_capture(env, tmp_path, lengths):
    """The frame buffers of pcap hold 1522 bytes."""
    ip("link set flw0 mtu 9000")
    ip("link set flw1 mtu 9000")
    sent = [numbered(i, length) for i, length in enumerate(lengths)]
    held = [frame for frame in sent if len(frame) <= 1522]
    write_pcap(tmp_path / "file.pcap", sent)
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1") as program:
        program.read_until(RUNNING)
        play_with_tcpreplay(tmp_path / "file.pcap")
        program.read_until(f"{len(held)} frames successfully written, {len(sent) - len(held)} frames dropped")
    assert summary_counts(program.lines, "  Missing frames (sequence error):") == len(sent) - len(held)
    assert [frame for _, frame in capture_frames(tmp_path / "record.pcapng")] == held


def test_a_frame_that_the_link_cannot_carry_ends_a_replay(env, tmp_path):
    write_pcap(tmp_path / "file.pcap", [numbered(0), numbered(1, 1518, "81000001"), numbered(2, 1519), numbered(3)])
    tool("editcap", "-F", "pcapng", tmp_path / "file.pcap", tmp_path / "file.pcapng")
    result = run("playpcap", tmp_path / "file", "-n", "flw0", env=env)
    assert result.stderr.splitlines() == [
        "PCAPNG file reader has ended, st=0xe0000042(KESTATUS_INVALID_LENGTH).",
        "Stop reading from PCAPNG file(s) because an unrecoverable error occurred..."]
    assert "2 frames successfully sent, 1 errors occured" in result.stdout


# --- Losses are reported ------------------------------------------------------------------------------


def summary_counts(lines, label):
    return int(next(line for line in lines if line.startswith(label)).split(":")[1])


def test_frames_that_the_kernel_drops_are_missing(env, tmp_path):
    """Also when no later frame shows the gap."""
    sent = 90000
    with Running(env, "pcap", tmp_path / "record", "-n", "flw1", "-fbs", str(sent)) as program:
        program.read_until(RUNNING)
        program.process.send_signal(signal.SIGSTOP)
        subprocess.run([LANE_SEND, "-n", "flw0", "-c", str(sent), "-l", "1390"], env=env, check=True,
                       stdout=subprocess.DEVNULL, timeout=TIMEOUT)
        program.process.send_signal(signal.SIGCONT)
        wait_until(lambda: program.read_until("successfully written"),
                   lambda line: re.search(r"[1-9]\d* frames dropped", line), "the loss")
        time.sleep(2)
    written, dropped = (int(word) for word in re.findall(r"\d+", next(
        line for line in reversed(program.lines) if "successfully written" in line)))
    missing = summary_counts(program.lines, "  Missing frames (sequence error):")
    assert written + dropped == sent
    assert missing == dropped > 0
    assert len(capture_frames(tmp_path / "record.pcapng")) == written


def test_frames_that_av2rtp_was_too_slow_for(env):
    with Running(env, "av2rtp", "127.0.0.1", "-n", "flw1") as program:
        program.read_until(RUNNING)
        program.process.send_signal(signal.SIGSTOP)
        subprocess.run([LANE_SEND, "-n", "flw0", "-c", "90000", "-l", "1390"], env=env, check=True,
                       stdout=subprocess.DEVNULL, timeout=TIMEOUT)
        program.process.send_signal(signal.SIGCONT)
        time.sleep(2)
    lost = [int(line.rsplit(" ", 1)[1]) for line in program.stderr.splitlines()]
    assert all(line.startswith("Received frames lost because reading was too slow: ") for line in program.stderr.splitlines())
    assert lost and lost == sorted(set(lost)) and 0 < lost[-1] < 90000


# --- The link and the interface change while a command runs ---------------------------------------

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
                       lambda seen: seen != os.readlink("/proc/self/ns/net"), "a name space")
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
    errors = [line for line in program.stderr.splitlines() if not line.startswith("Frames not sent because")]
    assert errors == {
        "ts2av": [f"TS file source has ended, st={REMOVED}."],
        "playpcap": [f"PCAPNG file reader has ended, st={REMOVED}.",
                     "Stop reading from PCAPNG file(s) because an unrecoverable error occurred..."],
        "av2rtp": [f"AVTP source has ended, st={REMOVED}."],
        "pcap": [f"WaitForRawFrame failed, st={REMOVED}."]}[command]


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


# --- Who may use an interface ---------------------------------------------------------------------


def test_one_sender_and_one_receiver(env, tmp_path):
    with Running(env, "ts2av", SAMPLES / "h264-cbr.ts", "-l", "-n", "flw0") as sender, \
            Running(env, "pcap", tmp_path / "record", "-n", "flw0") as receiver:
        sender.read_until(RUNNING)
        receiver.read_until(RUNNING)
        for words, call in ((["ts2av", SAMPLES / "h264-cbr.ts"], "OpenRawTxDevice"),
                            (["pcap", tmp_path / "other"], "OpenRawRxDevice")):
            for device in (["-n", "flw0"], ["-d", "0"]):
                result = run(*words, *device, env=env)
                assert result.stderr.splitlines() == [
                    f"{call} failed, st=0xe0000006(KESTATUS_IN_USE).",
                    "Open device failed, st=0xe0000006(KESTATUS_IN_USE)."]
                assert result.returncode == exit_status(KESTATUS_IN_USE)
        time.sleep(1)
    # An interface does not receive its own frames.
    assert receiver.lines[-1] == "0 frames successfully written, 0 frames dropped"


def without_privileges(*command):
    """A command line that starts the program with only the privileges of its file."""
    return ["setpriv", "--securebits", "+noroot", "--inh-caps", "-all", "--ambient-caps", "-all", *map(str, command)]


def test_without_the_privilege_and_with_setcap(env, tmp_path):
    sample = SAMPLES / "h264-cbr.ts"
    program = tmp_path / "flowlane"
    shutil.copy(FLOWLANE, program)

    def play():
        return subprocess.run(without_privileges(program, "ts2av", sample, "-n", "flw0"), env=env, check=False,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT)

    result = play()
    status = "0xe0000110(KESTATUS_ADMIN_PRIVILEGES_REQUIRED)"
    assert result.stderr.splitlines() == [f"OpenRawTxDevice failed, st={status}.", f"Open device failed, st={status}."]
    assert result.returncode == exit_status(KESTATUS_ADMIN_PRIVILEGES_REQUIRED)

    tool("setcap", "cap_net_raw+ep", program)
    result = play()
    assert (result.returncode, result.stderr) == (0, "")
    assert "Successfully sent content of TS file..." in result.stdout


# --- quayside2-devices ----------------------------------------------------------------------------


def list_devices(*options, env, prefix=()):
    return subprocess.run([*prefix, DEVICES_TOOL, *options], env=env, capture_output=True, text=True, timeout=TIMEOUT,
                          check=False)


def test_list_of_devices(env):
    env["QUAYSIDE2_DEVICES"] = "lane-2,flw0,flw1,lo"
    result = list_devices(env=env)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.splitlines() == [
        "  0  lane-2  02-51-42-58-00-02  free  Virtual Ethernet segment",
        "  1  flw0    02-00-5E-00-53-00  free  veth",
        "  2  flw1    02-00-5E-00-53-01  free  veth",
        "  3  lo      00-00-00-00-00-00  free  Loopback interface",
    ]


def states(env, prefix=()):
    result = list_devices("--json", env=env, prefix=prefix)
    assert (result.returncode, result.stderr) == (0, "")
    devices = json.loads(result.stdout)
    assert [device["index"] for device in devices] == list(range(len(devices)))
    return {device["name"]: (device["state"], device["use"]) for device in devices}


def test_states(env, segment):
    env = {**segment.env, "QUAYSIDE2_DEVICES": "lane-1,lane-2,flw0,flw1"}
    free = ("free", None)
    assert states(env) == {"lane-1": free, "lane-2": free, "flw0": free, "flw1": free}
    assert segment.files() == []  # looking creates nothing
    sample = SAMPLES / "h264-cbr.ts"
    with Running(env, "ts2av", sample, "-l", "-n", "lane-2") as first, \
            Running(env, "ts2av", sample, "-l", "-n", "flw0") as second:
        first.read_until(RUNNING)
        second.read_until(RUNNING)
        assert states(env) == {"lane-1": free, "lane-2": ("in use", None), "flw0": ("in use", "sending"), "flw1": free}
        with Running(env, "av2rtp", "127.0.0.1", "-n", "flw0") as third:
            third.read_until(RUNNING)
            assert states(env)["flw0"] == ("in use", None)
            assert re.search(r"flw0 .* in use +veth\n", list_devices(env=env).stdout)
        assert re.search(r"flw0 .* in use \(sending\)  veth\n", list_devices(env=env).stdout)
    ip("link set flw0 down")
    down = ("link down", None)
    wait_until(lambda: states(env), lambda seen: seen == {"lane-1": free, "lane-2": free, "flw0": down, "flw1": down},
               "both ends to see it")
    assert states(env, without_privileges()) == {
        "lane-1": free, "lane-2": free, "flw0": ("no privilege", None), "flw1": ("no privilege", None)}


def test_a_lane_that_cannot_be_opened_is_not_free(segment):
    path = pathlib.Path(f"/dev/shm/quayside2-{os.geteuid()}-{segment.name}")
    path.mkdir()
    try:
        env = {**segment.env, "QUAYSIDE2_DEVICES": "lane-1"}
        status = "0xe0000055(KESTATUS_INVALID_FILE)"
        assert states(env) == {"lane-1": (status, None)}
        assert list_devices(env=env).stdout == f"  0  lane-1  02-51-42-58-00-01  {status}  Virtual Ethernet segment\n"
        assert status in run("ts2av", SAMPLES / "h264-cbr.ts", "-n", "lane-1", env=env).stderr
    finally:
        path.rmdir()


def test_names_of_any_bytes(env):
    names = [b"a\x1b[31mb", b"\xc3\xa9t\xc3\xa9", b"\xff\xfe", b'q"\\u', b"\xed\xbf\xbf", b"\xc3"]
    shown = ["a\x1b[31mb", "\u00e9t\u00e9", "\ufffd\ufffd", 'q"\\u', "\ufffd\ufffd\ufffd", "\ufffd"]
    env = {os.fsencode(key): os.fsencode(value) for key, value in env.items()}
    env[b"QUAYSIDE2_DEVICES"] = b",".join(names)
    try:
        for name in names:
            subprocess.run([b"ip", b"link", b"add", b"name", name, b"type", b"bridge"], check=True, timeout=TIMEOUT)

        def listed(*options):
            return subprocess.run([DEVICES_TOOL, *options], env=env, capture_output=True, timeout=TIMEOUT,
                                  check=True).stdout

        assert [device["name"] for device in json.loads(listed("--json").decode("utf-8"))] == shown
        lines = listed().splitlines()
        assert len(lines) == len(names)
        assert b"  a?[31mb  " in lines[0]
        assert not any(byte < 0x20 for line in lines for byte in line)
    finally:
        for name in names:
            subprocess.run([b"ip", b"link", b"del", name], check=False, timeout=TIMEOUT)


def test_devices_that_cannot_be_listed(env):
    env["QUAYSIDE2_SEGMENT"] = "a/b"
    result = list_devices(env=env)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "quayside2-devices: the devices cannot be listed: 0xe0000041(KESTATUS_INVALID_PARAMETER)\n"


def test_no_devices(env):
    env["QUAYSIDE2_DEVICES"] = "nothing"
    assert list_devices(env=env).stdout == ""
    assert json.loads(list_devices("--json", env=env).stdout) == []


def test_usage(env):
    assert list_devices("--help", env=env).stdout.startswith("usage: quayside2-devices [--json]\n")
    assert list_devices("-V", env=env).stdout == "quayside2-devices, device interface 2.20\n"
    for options in (["--wrong"], ["--json", "--json"]):
        result = list_devices(*options, env=env)
        assert (result.returncode, result.stdout) == (2, "")
        assert result.stderr.startswith("usage: quayside2-devices [--json]\n")


@pytest.mark.parametrize("is_long", [False, True])
def test_standard_output_that_is_full(env, is_long):
    """Also when a long list fails before its last part."""
    del env["QUAYSIDE2_DEVICES"]
    others = [f"other{number}" for number in range(60 if is_long else 0)]
    try:
        for name in others:
            ip(f"link add {name} type bridge")
        with open("/dev/full", "w") as full:
            result = subprocess.run([DEVICES_TOOL, "--json"], env=env, stdout=full, stderr=subprocess.PIPE, text=True,
                                    check=False, timeout=TIMEOUT)
    finally:
        for name in others:
            subprocess.run(["ip", "link", "del", name], stderr=subprocess.DEVNULL, check=False, timeout=TIMEOUT)
    assert result.returncode == 1
    assert result.stderr == "quayside2-devices: standard output: No space left on device\n"
