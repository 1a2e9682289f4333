"""The frames that the commands send and receive on a veth pair, together with tcpdump, tcpreplay and other tools."""

import re
import signal
import subprocess
import time

import pytest

import capture
import rtp
import tsfile
from interfaces import RUNNING, Dumping, capture_frames, ip, numbered, play_with_tcpreplay, wait_until, write_pcap
from lanes import LANE_SEND, SAMPLES, TIMEOUT, Running, run
from tools import tool


TAGS = {"none": "", "802.1Q": "81002005", "802.1Q priority": "8100e000", "802.1ad": "88a80007",
        "802.1ad and 802.1Q": "88a8000781002005", "two 802.1Q": "8100000781002005", "old": "91000007"}


def play(dumping, *words, env):
    """Plays a file with ts2av; dumping then ends with the last of the frames that were sent."""
    result = run("ts2av", *words, env=env)
    assert (result.returncode, result.stderr) == (0, "")
    dumping.count = int(re.findall(r"AVTP packets sent: (\d+)", result.stdout)[-1])


# --- The same bytes ------------------------------------------------------------------------------


@pytest.mark.parametrize("options, tci", [([], None), (["-vtci", "0x6005"], 0x6005)])
def test_tcpdump_sees_what_ts2av_sends(env, tmp_path, options, tci):
    sample = SAMPLES / "h264-cbr.ts"
    expected = tsfile.delivered_part(sample.read_bytes())
    with Dumping(tmp_path / "seen.pcap", "flw1") as seen:
        play(seen, sample, "-n", "flw0", "-m", "91e0f0000e80", *options, env=env)
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
    assert sorted(late)[len(late) // 2] - min(late) < 100_000_000
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
    with Dumping(tmp_path / "stream.pcap", "flw1") as stream:
        play(stream, short_file, "-n", "flw0", env=env)
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
        "Stop reading from PCAPNG file(s) because an unrecoverable error occurred...",
        f"Device 'flw0' cannot send packet 3 of '{tmp_path}/file.pcapng', because its 1519 bytes are more than the device "
        "takes; 1 frame that was read ahead was not sent. Raise the MTU of the interface."]
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
    *lines, nothing = program.stderr.splitlines()
    assert re.fullmatch(r"No stream for this receiver has come to the device 'flw1'\. Of \d+ frames: \d+ of other protocols\.",
                        nothing)
    lost = [int(line.rsplit(" ", 1)[1]) for line in lines]
    assert all(line.startswith("Received frames lost because reading was too slow: ") for line in lines)
    assert lost and lost == sorted(set(lost)) and 0 < lost[-1] < 90000
