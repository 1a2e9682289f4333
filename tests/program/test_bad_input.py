"""Files that are not valid, ports in use, shared memory that is not available: a clear line, the right status, and
nothing left behind."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

import tsfile
from lanes import FLOWLANE, LANE_1, TIMEOUT, Running, exit_status, run, sanitized_environment, wait_for
from namespaces import private_mounts


@pytest.mark.parametrize("make, line, status, explanation", [
    (lambda path: None, "CreateTSFileSource failed, st=0xe0010002(KESTATUS_LINUX_ENOENT).", 0xE0010002,
     "There is no file '{}'. Check its name, or give its whole path."),
    (lambda path: path.mkdir(), "StartSource failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED).", 0xE0000091,
     "'{}' is a folder. Give the name of a file in it."),
    (lambda path: path.symlink_to(path), "CreateTSFileSource failed, st=0xe0010028(unknown).", 0xE0010028,
     "'{}' is a link that leads back to itself."),
    (lambda path: path.symlink_to("nothing"), "CreateTSFileSource failed, st=0xe0010002(KESTATUS_LINUX_ENOENT).",
     0xE0010002, "'{}' is a link to a file that does not exist."),
])
def test_files_that_cannot_be_read(segment, tmp_path, make, line, status, explanation):
    path = tmp_path / "input.ts"
    make(path)
    result = segment.run("ts2av", path)
    assert result.stderr.splitlines() == [line, explanation.format(path)]
    assert result.returncode == exit_status(status)


@pytest.mark.parametrize("content, explanation", [
    (b"", "'{}' is empty: there is nothing to send."),
    (b"\x47" * 100, "'{}' is shorter than one packet of a transport stream (188 bytes): there is nothing to send."),
    (tsfile.packet(0), "'{}' has no clock reference (PCR), but two are needed to time its packets. {}"),
    (tsfile.packet(0, pcr=1), "'{}' has only one clock reference (PCR), but two are needed to time its packets. {}"),
    (b"x" + tsfile.stream(seconds=1, rate=100),
     "The packets of '{0}' begin at byte 1. Cut what is before them: tail -c +2 '{0}' > 'input.ts'"),
    (bytes(188 * 50), "'{}' is no transport stream: its packets do not begin with the sync byte 0x47. "
                      "Give the name of a .ts file."),
], ids=["empty", "short", "no PCR", "one PCR", "misaligned", "zeros"])
def test_files_with_nothing_to_send(segment, tmp_path, content, explanation):
    path = tmp_path / "input.ts"
    path.write_bytes(content)
    result = segment.run("ts2av", path)
    repair = f"Repair it with: ffmpeg -i '{path}' -c copy -f mpegts 'input.ts'"
    assert result.stderr == explanation.format(path, repair) + "\n"
    assert result.stdout.count("TS packets sent: 0, AVTP packets sent: 0, AVTP packets discarded: 0\n") >= 1
    assert "Successfully sent content of TS file..." in result.stdout
    assert result.returncode == 0


@pytest.fixture(params=["without end", "large", "silent pipe"])
def endless_file(request, tmp_path):
    """A file without packets that a test cannot read to its end."""
    if request.param == "without end":
        yield "/dev/zero"
        return
    path = tmp_path / "endless.ts"
    if request.param == "large":
        path.touch()
        os.truncate(path, 1 << 40)
        yield path
        return
    os.mkfifo(path)
    descriptor = os.open(path, os.O_RDWR)
    yield path
    os.close(descriptor)


@pytest.mark.parametrize("options", [[], ["-l"]], ids=["once", "loop"])
@pytest.mark.parametrize("stop", ["signal", "key"])
def test_stop_while_nothing_is_found_to_send(segment, endless_file, options, stop):
    with Running(segment.env, "ts2av", endless_file, *options, stdin=subprocess.PIPE) as program:
        program.read_until("Start TS file source...")
        if stop == "key":
            program.read_until("TS packets sent: 0, AVTP packets sent: 0, AVTP packets discarded: 0")
            program.process.stdin.write("x")
            program.process.stdin.flush()
        else:
            program.process.terminate()
        assert program.wait_for_end() == 0
    hint = " Give the name of a .ts file." if pathlib.Path(endless_file).is_file() else ""
    line = f"'{endless_file}' is no transport stream: its packets do not begin with the sync byte 0x47.{hint}\n"
    # A silent pipe may bring packets yet.
    assert program.stderr == ("" if pathlib.Path(endless_file).is_fifo() else line)
    assert program.lines[-2:] == ["Stop TS file source...", "Stop AVTP sink..."]


@pytest.fixture
def installed():
    """The program and its library in a folder that every user can read."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="flowlane-test-"))
    folder.chmod(0o755)
    library = pathlib.Path(FLOWLANE).parent.parent / "libquayside2_api" / "libquayside2_api.so"
    shutil.copy(FLOWLANE, folder / "flowlane")
    shutil.copy(library, folder / library.name)
    yield folder
    shutil.rmtree(folder)


def run_as_ordinary_user(segment, installed, path):
    other_user = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}
    result = subprocess.run([installed / "flowlane", "ts2av", path], capture_output=True, text=True,
                            stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=False,
                            env={**segment.env, "LD_LIBRARY_PATH": str(installed)}, **other_user)
    assert result.returncode == exit_status(0xE001000D)
    first, *others = result.stderr.splitlines()
    assert first == "CreateTSFileSource failed, st=0xe001000d(KESTATUS_LINUX_EACCES)."
    return others


@pytest.mark.parametrize("is_own", [False, True])
@pytest.mark.parametrize("name, word", [("input.ts", "input.ts"), ("it's.ts", r"it'\''s.ts")])
def test_unreadable_file(segment, installed, is_own, name, word):
    if os.geteuid() != 0 and not is_own:
        pytest.skip("giving a file to another user needs root")
    path = installed / name
    path.write_bytes(tsfile.stream(seconds=1, rate=100))
    path.chmod(0)
    if os.geteuid() == 0 and is_own:
        os.chown(path, 65534, 65534)
    command = "chmod u+r" if is_own else "sudo chmod a+r"
    assert run_as_ordinary_user(segment, installed, path) == [
        f"You are not allowed to read '{path}'. Allow it with: {command} '{installed}/{word}'"]


def test_file_in_a_folder_that_is_closed(segment, installed):
    folder = installed / "closed"
    folder.mkdir(mode=0)
    assert run_as_ordinary_user(segment, installed, folder / "input.ts") == [
        f"You are not allowed to look into the folder '{folder}'. Ask its owner."]
    folder.chmod(0o755)


@pytest.mark.parametrize("index", ["99", "4294967295"])
def test_device_index_out_of_range(segment, tmp_path, index):
    result = segment.run("ts2av", tmp_path / "any.ts", "-d", index)
    *lines, explanation = result.stderr.splitlines()
    assert lines == ["OpenRawTxDevice failed, st=0xe0000047(KESTATUS_INVALID_INDEX).",
                     "Open device failed, st=0xe0000047(KESTATUS_INVALID_INDEX)."]
    assert explanation.startswith(f"No device has the index {index}. The ")
    assert result.returncode == exit_status(0xE0000047)


def test_port_in_use(segment, tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=60, rate=100))
    in_use = "0xe0000006(KESTATUS_IN_USE)"
    holder = subprocess.Popen([FLOWLANE, "ts2av", path, "-n", LANE_1], env=segment.env, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    try:
        while "press any key" not in holder.stdout.readline():
            assert holder.poll() is None
        by_index = segment.run("ts2av", path, "-d", "0")
        by_name = segment.run("ts2av", path, "-n", LANE_1)
    finally:
        holder.kill()
        holder.communicate(timeout=TIMEOUT)
    explanation = (f"'{LANE_1}' is in use by flowlane (process {holder.pid}). "
                   "End that program, or choose another device.")
    assert by_index.stderr.splitlines() == [f"OpenRawTxDevice failed, st={in_use}.",
                                            f"Open device failed, st={in_use}.", explanation]
    assert by_index.returncode == exit_status(0xE0000006)
    assert "Ignore device with index 0 because it is already in use.\n" in by_name.stdout
    assert f"No device found for friendly name '{LANE_1}'\n" in by_name.stdout
    assert by_name.stderr.splitlines()[-1] == explanation
    assert by_name.returncode == exit_status(0xE0000039)

    # The port of a killed holder is free again.
    path.write_bytes(tsfile.stream(seconds=0.1, rate=100))
    wait_for(lambda: segment.run("ts2av", path, "-d", "0").returncode == 0, "the port to be free")


def run_with_shared_memory(mount_options, script, env):
    """Runs a shell script in its own mount namespace, with a small file system for shared memory."""
    return subprocess.run([*private_mounts(), "sh", "-euc", f"mount -t tmpfs {mount_options} tmpfs /dev/shm; {script}"],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT,
                          check=False, env=env)


@pytest.mark.parametrize("mount_options, status, name, explanation", [
    ("-o size=64k", 0xE001001C, "KESTATUS_LINUX_ENOSPC",
     "'/dev/shm' has no room for the shared memory of the lanes, 16.1 MiB. Remove files there, or enlarge it."),
    ("-o ro", 0xE001001E, "KESTATUS_LINUX_EROFS",
     "'/dev/shm' is read-only. Make it writable: mount -o remount,rw /dev/shm"),
])
def test_shared_memory_full_or_read_only(segment, tmp_path, mount_options, status, name, explanation):
    path = tmp_path / "input.ts"
    path.write_bytes(tsfile.stream(seconds=1, rate=100))
    result = run_with_shared_memory(
        mount_options, f"code=0; '{FLOWLANE}' ts2av '{path}' || code=$?; ls /dev/shm; exit $code", segment.env)
    assert result.returncode == exit_status(status), result.stderr
    lines = result.stderr.splitlines()
    assert lines[-2:] == [f"Open device failed, st=0x{status:08x}({name}).", explanation]
    # Nothing is left behind: the list of the folder is empty.
    assert result.stdout.splitlines()[-1].startswith(("Found ", "Enumerate "))


def test_segment_of_another_owner(segment, tmp_path):
    """The program does not touch another user's file at the path of the segment."""
    path = tmp_path / "input.ts"
    path.write_bytes(tsfile.stream(seconds=0.1, rate=100))
    assert segment.run("ts2av", path).returncode == 0
    script = (f"uid=$(id -u); name=$(basename $1); head -c 1000 /dev/zero > /dev/shm/$name; "
              f"chmod 600 /dev/shm/$name; chown 65534 /dev/shm/$name; code=0; '{FLOWLANE}' ts2av '{path}' || "
              f"code=$?; stat -c '%u %s' /dev/shm/$name; exit $code")
    [segment_file] = segment.files()
    if os.geteuid() != 0:
        pytest.skip("giving a file to another user needs root")
    result = subprocess.run(
        [*private_mounts(), "sh", "-euc", f"mount -t tmpfs -o mode=1777 tmpfs /dev/shm; {script}", "sh",
         segment_file],
        stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT, check=False,
        env=segment.env)
    assert result.stderr.splitlines()[-2:] == [
        "Open device failed, st=0xe0000032(KESTATUS_NOT_ALLOWED).",
        f"'{segment_file}' belongs to user 'nobody'. Remove it: rm {segment_file}"]
    assert result.stdout.splitlines()[-1] == "65534 1000"
    assert result.returncode == exit_status(0xE0000032)


@pytest.mark.parametrize("name", ["a/b", "../x", "x" * 300, "with blank"])
def test_segment_name_that_is_none(tmp_path, name):
    result = run("ts2av", tmp_path / "any.ts", env=sanitized_environment(QUAYSIDE2_SEGMENT=name))
    shown = name if len(name) <= 80 else name[:80] + "..."
    assert result.stderr.splitlines()[-2:] == [
        "Open device failed, st=0xe0000041(KESTATUS_INVALID_PARAMETER).",
        f"QUAYSIDE2_SEGMENT is '{shown}'. A segment's name has 1 to 64 letters, digits, '-', '_' or '.'."]
    assert result.returncode == exit_status(0xE0000041)
