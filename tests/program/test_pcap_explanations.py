"""What the pcap command says about files that it cannot write, frames that are lost and files of an earlier capture,
and what -es makes of it."""

import os
import pathlib
import resource
import signal
import subprocess
import tempfile

from lanes import (FAKE_DEVICE_DIR, FLOWLANE, LANE_1, LANE_2, LANE_SEND, ON_INTERFACES, TIMEOUT, Running, exit_status,
                   run_with_fake_device, sanitized_environment, wait_for)
from namespaces import private_mounts

RUNNING = "press any key to stop..."
NO_RESOURCES = 33
WRITE_FILE_FAILED = 146
SIZE_LIMIT = "the file has reached the largest size that is allowed (ulimit -f); -maxmb makes smaller files"


def fake_environment(script="devices=1,WaitForRawFrame=0xE0000003,WaitForRawFrame_ms=100"):
    """A device that never receives a frame."""
    return sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script)


def failed_start(path, *options, env=None, **process):
    """The lines behind the first."""
    result = subprocess.run([FLOWLANE, "pcap", path, *options], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                            timeout=TIMEOUT, check=False, env=env or fake_environment(), **process)
    first, *rest = result.stderr.splitlines()
    assert first.startswith("StartFileWriter failed, st=0x")
    assert result.returncode == exit_status(int(first.split("=")[1].split("(")[0], 16))
    return rest


def ordinary_user():
    """Arguments for a process of a user who is not root."""
    return {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}


def captures(path, *options):
    """A short capture that is ended by a signal. Returns what it said."""
    with Running(fake_environment(), "pcap", path, *options, "-es") as program:
        program.read_until(RUNNING)
        assert program.stop() == 0
    return program.stderr.splitlines()


# --- Files that cannot be made --------------------------------------------------------------------


def test_folder_that_does_not_exist(tmp_path):
    folder = tmp_path / "a folder"
    assert failed_start(folder / "file") == [f"There is no folder '{folder}'. Make it with: mkdir -p '{folder}'"]


def test_folder_instead_of_a_file(tmp_path):
    path = tmp_path / "file.pcapng"
    path.mkdir()
    assert failed_start(tmp_path / "file") == [f"'{path}' is a folder. Choose another name for the capture."]


def test_file_in_the_place_of_a_folder(tmp_path):
    (tmp_path / "file").write_bytes(b"")
    assert failed_start(tmp_path / "file" / "x") == [f"'{tmp_path}/file/x.pcapng' cannot be written: Not a directory."]


def test_folder_that_only_root_may_write():
    """Root may write there. An ordinary user is told."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o555)
        if os.geteuid() == 0:
            assert captures(folder / "file") == []
            (folder / "file.pcapng").chmod(0o444)
            assert failed_start(folder / "file", **ordinary_user()) == [
                f"You are not allowed to write the existing file '{folder}/file.pcapng'. Choose another name."]
        assert failed_start(folder / "other", **ordinary_user()) == [
            f"You are not allowed to make files in the folder '{folder}'. Choose another folder."]
        folder.chmod(0o755)


def test_file_that_only_another_may_write():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o777)
        path = folder / "file.pcapng"
        path.write_bytes(b"")
        path.chmod(0o444)
        if os.geteuid() == 0:
            assert captures(folder / "file") == []
        assert failed_start(folder / "file", **ordinary_user()) == [
            f"You are not allowed to write the existing file '{path}'. Choose another name."]


def test_full_disk(tmp_path):
    path = tmp_path / "file.pcapng"
    path.symlink_to("/dev/full")
    assert failed_start(tmp_path / "file") == [f"'{path}' cannot be written: the disk is full."]


def test_file_system_that_is_read_only(tmp_path):
    script = 'mount -t tmpfs -o ro none "$0" && exec "$@"'
    result = subprocess.run([*private_mounts(), "sh", "-c", script, tmp_path, FLOWLANE, "pcap", tmp_path / "file"],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT, check=False,
                            env=fake_environment())
    assert result.stderr.splitlines() == ["StartFileWriter failed, st=0xe001001e(KESTATUS_LINUX_EROFS).",
                                          f"'{tmp_path}/file.pcapng' cannot be written: the file system is read-only."]


# --- Writing that fails ---------------------------------------------------------------------------


class Capturing(Running):
    """A capture from lane-2."""

    def __init__(self, segment, path, *options, **more):
        super().__init__(segment.env, "pcap", path, "-n", LANE_2, *options, **more)

    def __enter__(self):
        self.read_until(RUNNING)
        return self


def send(segment, count, *options):
    subprocess.run([LANE_SEND, "-n", LANE_1, "-c", str(count), *options], env=segment.env, check=True,
                   stdout=subprocess.DEVNULL, timeout=TIMEOUT)


def limit_file_size(program, size):
    """For a running program, as ulimit -f does."""
    resource.prlimit(program.process.pid, resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))


def failed_writes(program):
    line = next(line for line in program.lines if line.startswith("  Write to file failed:"))
    return int(line.split(":")[1])


def test_writing_that_fails_and_works_again(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    with Capturing(segment, tmp_path / "file", "-es") as program:
        limit_file_size(program, 100000)
        send(segment, 1000, "-l", "500")
        assert program.read_error() == f"Frames are being lost: '{path}' cannot be written, because {SIZE_LIMIT}."
        program.read_until("successfully written")
        program.read_until("successfully written")
        limit_file_size(program, 10**9)
        send(segment, 100, "-l", "500")
        again = program.read_error()
        program.read_until("successfully written")
        assert program.stop() == WRITE_FILE_FAILED
        assert program.stderr == ""
    assert again == f"Writing to '{path}' works again; {failed_writes(program)} frames were lost."


def test_frames_that_are_lost_at_the_end(segment, tmp_path):
    path = tmp_path / "file.pcapng"
    with Capturing(segment, tmp_path / "file") as program:
        limit_file_size(program, 500)
        send(segment, 3, "-l", "500")  # the buffer holds them
        program.read_until("3 frames successfully written")
        assert program.stop() == 0
    lost = failed_writes(program)
    assert 0 < lost <= 3
    assert program.stderr.splitlines() == [f"{lost} frames were lost: '{path}' could not be written, because {SIZE_LIMIT}."]


def test_next_file_on_a_full_disk(segment, tmp_path):
    (tmp_path / "file_00002.pcapng").symlink_to("/dev/full")
    with Capturing(segment, tmp_path / "file", "-maxkb", "10", "-es") as program:
        earlier = program.read_error()
        # The loop sees that the writer has ended when it hands over another frame.
        wait_for(lambda: send(segment, 20, "-l", "1000") or program.process.poll() is not None, "the end of the capture")
        assert program.wait_for_end() == WRITE_FILE_FAILED
    assert earlier.startswith(f"'{tmp_path}/file' has files of an earlier capture")
    assert program.stderr.splitlines() == [
        "PCAPNG file writer has ended, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED).",
        "WriteRawFrame failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
        "WriteReceivedFramesToFile failed, st=0xe0000031(KESTATUS_NOT_POSSIBLE).",
        f"The capture has ended, because the next file '{tmp_path}/file_00002.pcapng' cannot be written: the disk is full."]


# --- Frames that are lost -------------------------------------------------------------------------


def test_frame_buffers_that_are_too_few(segment, tmp_path):
    with Capturing(segment, tmp_path / "file", "-fbs", "0", "-es") as program:
        send(segment, 1000, "-l", "100")
        program.read_until("1000 frames dropped")
        assert program.stop() == NO_RESOURCES
    assert program.stderr.splitlines() == ["The disk was slower than the frames for a while. Give them more buffers, for "
                                           "example with: -fbs 20000"]


def test_frames_that_are_missing(segment, tmp_path):
    if ON_INTERFACES:
        options, cure = ["-fbs", "1000"], "The disk was slower than the frames for a while. "
    else:
        options, cure = [], ("Missing frames are longer than 1522 bytes, or came while the machine was too busy. -fbs with a "
                             "number above 20000 may help against the latter.")
    with Capturing(segment, tmp_path / "file", *options, "-es") as program:
        program.process.send_signal(signal.SIGSTOP)
        send(segment, 100000, "-l", "300")
        program.process.send_signal(signal.SIGCONT)
        send(segment, 1000, "-l", "300", "-r", "2000")  # the gap shows when other frames follow
        program.read_until("successfully written")
        assert program.stop() == NO_RESOURCES
    line, = program.stderr.splitlines()
    assert line.startswith(cure)


def test_device_that_fails_is_in_the_exit_code(tmp_path):
    script = "devices=1,WaitForRawFrame=0xE0000031"
    result = run_with_fake_device("pcap", tmp_path / "file", "-es", script=script)
    assert result.stderr.splitlines()[-1] == ("Device 'fake-1' has stopped receiving: The operation cannot be executed.")
    assert result.returncode == exit_status(0xE0000031)
    assert run_with_fake_device("pcap", tmp_path / "file", script=script).returncode == 0


# --- Files of an earlier capture ------------------------------------------------------------------


def test_set_of_an_earlier_capture(tmp_path):
    for name in ("file_00001.pcapng", "file_00002.pcapng", "file_00007.pcapng", "file_00009.pcap", "other_00003.pcapng"):
        (tmp_path / name).write_bytes(b"")
    line = (f"'{tmp_path}/file' has files of an earlier capture, with the numbers 1-2, 7. New files replace them; those that "
            "are left may follow the new ones in a replay.")
    assert captures(tmp_path / "file", "-maxmb", "1") == [line]
    assert captures(tmp_path / "file") == []
    assert captures(tmp_path / "new", "-maxmb", "1") == []


def test_set_in_the_current_folder(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    assert captures("file", "-maxmb", "1") == []
    assert captures("file", "-maxmb", "1") == [
        "'file' has files of an earlier capture, with the numbers 1. New files replace them; those that are left may follow "
        "the new ones in a replay."]
