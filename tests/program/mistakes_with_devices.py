"""Scenarios for the lines on devices and the shared memory of the lanes: the line, and the function that makes the
mistake."""

import contextlib
import fcntl
import tempfile
import pathlib

from interfaces import ip
from lanes import FLOWLANE, SAMPLES, Running, run, run_with_fake_device
from mistakes import RUNNING, WITHOUT_RIGHTS, fake, fake_with_prefix, until
from namespaces import private_mounts
from test_device_explanations import (AS_NOBODY, NOBODY, SET_UP_LOCK, install, needs_root, private_file,
                                      run_with_prefix, segment_file)

SAMPLE = SAMPLES / "h264-cbr.ts"


def on_devices(*args, **changes):
    """ts2av on lanes and interfaces."""
    return lambda case: run("ts2av", SAMPLE, *args, env={**case.link(), **changes}).stderr.splitlines()


def failed_opening(script, *args):
    return lambda case: fake("ts2av", "my.ts", *args, script=script)


def in_use(case):
    with Running(case.segment.env, "pcap", "record", "-n", "lane-2") as holder:
        holder.read_until(RUNNING)
        return case.lanes("ts2av", SAMPLE, "-n", "lane-2")


def link_down(command, *args):
    def make(case):
        env = case.link()
        ip("link set flw0 down")
        return until(RUNNING, env, command, *args, "-n", "flw0")
    return make


def removed(case):
    env = case.link()
    with Running(env, "pcap", "record", "-n", "flw1") as program:
        program.read_until(RUNNING)
        ip("link del flw1")
        program.wait_for_end()
    return program.stderr.splitlines()


def without_the_privilege_of_root(case):
    return run_with_prefix([*WITHOUT_RIGHTS], FLOWLANE, "pcap", "record", "-n", "flw0",
                           env=case.link()).stderr.splitlines()


def ordinary_user_without_the_privilege(case):
    needs_root()
    return fake_with_prefix(AS_NOBODY, "ts2av", "my.ts", script="OpenRawTxDevice=0xE0000110")


def long_path_without_the_privilege(case):
    """The path of the program does not fit into the line."""
    needs_root()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        (folder / ("x" * 200)).mkdir()
        program = install(folder / ("x" * 200) / ("y" * 200))
        return run_with_prefix(AS_NOBODY, program, "ts2av", SAMPLE, "-n", "flw0", env=case.link()).stderr.splitlines()


def wrong_file(make_file, prefix=()):
    def make(case):
        with segment_file(case.segment, make_file):
            return run_with_prefix(prefix, FLOWLANE, "ts2av", SAMPLE, "-n", "lane-2",
                                   env=case.segment.env).stderr.splitlines()
    return make


def file_of_another_user(case):
    needs_root()
    return wrong_file(private_file(b"", owner=NOBODY))(case)


def file_that_an_ordinary_user_cannot_remove(case):
    needs_root()
    program = case.folder / "program"
    with contextlib.ExitStack() as stack:
        name = stack.enter_context(tempfile.TemporaryDirectory())
        pathlib.Path(name).chmod(0o755)
        program = install(pathlib.Path(name) / "program")
        path = f"/dev/shm/quayside2-{NOBODY}-{case.segment.name}"
        script = ("mount -t tmpfs -o mode=1777 none /dev/shm && touch $0 && chmod 600 $0 && chown 12345 $0 && "
                  "exec \"$@\"")
        return run_with_prefix([*private_mounts(), "sh", "-c", script, path, *AS_NOBODY], program, "ts2av", SAMPLE,
                               "-n", "lane-1", env=case.segment.env).stderr.splitlines()


def shared_memory(mount, prefix=()):
    """With another file system for the shared memory."""
    def make(case):
        return run_with_prefix([*private_mounts(), "sh", "-c", f"mount -t tmpfs {mount} && exec \"$@\"", "sh", *prefix],
                               FLOWLANE, "ts2av", SAMPLE, "-n", "lane-1", env=case.segment.env).stderr.splitlines()
    return make


def unfinished_file(case):
    with segment_file(case.segment, private_file(b"")) as path, open(path, "r+b") as file:
        fcntl.lockf(file, fcntl.LOCK_EX, 1, SET_UP_LOCK)
        return case.lanes("ts2av", SAMPLE, "-n", "lane-1")


def ignored_device(case):
    """This line is on standard output."""
    return run_with_fake_device("ts2av", "my.ts", "-n", "fake-2",
                                script="OpenControlDevice@0=0xE0000006").stdout.splitlines()


SCENARIOS = {
    # Devices
    "No device is named 'NAME'. The devices are: DEVICES": on_devices("-n", "nowhere"),
    "No free device is named 'NAME'. The devices are: DEVICES":
        failed_opening("OpenControlDevice@1=0xE0000006", "-n", "fake-2"),
    "No device has the index N. The M devices are: DEVICES": failed_opening("OpenRawTxDevice=0xE0000047", "-d", "99"),
    "No device has the index N. The only device is: DEVICES":
        failed_opening("devices=1,OpenRawTxDevice=0xE0000047", "-d", "99"),
    "No device has the index N. The M devices that QUAYSIDE2_DEVICES allows are: DEVICES": on_devices("-d", "99"),
    "No device has the index N. The only device that QUAYSIDE2_DEVICES allows is: DEVICES":
        on_devices("-d", "7", QUAYSIDE2_DEVICES="flw1"),
    "QUAYSIDE2_DEVICES allows only 'TEXT', and there is no such device. The devices are: DEVICES":
        on_devices(QUAYSIDE2_DEVICES="flw9"),
    "QUAYSIDE2_DEVICES allows only 'TEXT'. Add 'DEVICE' to it, or unset it.":
        on_devices("-n", "flw0", QUAYSIDE2_DEVICES="lane-1"),
    "The device library has found no device. Connect one, or check its driver.": failed_opening("devices=0"),
    "The devices cannot be listed: REASON.": failed_opening("EnumerateDevices=0xE0000086"),
    "'DEVICE' is in use by PROCESS. End that program, or choose another device.": in_use,
    "'DEVICE' is in use by another program. End that program, or choose another device.":
        failed_opening("OpenRawTxDevice@0=0xE0000006"),
    "'DEVICE' was in use, and is free now. Try again.": failed_opening("OpenRawTxDevice=0xE0000006,state=free"),
    "Ignore device with index N because it is already in use.": ignored_device,
    "'DEVICE' needs a privilege. Run this program as root, or give it the privilege: sudo setcap cap_net_raw+ep FILE":
        ordinary_user_without_the_privilege,
    "'DEVICE' needs a privilege. Run this program as root.": long_path_without_the_privilege,
    "'DEVICE' needs the privilege CAP_NET_RAW, which root does not have here. Start the container or the service with "
    "it.": without_the_privilege_of_root,
    "The link of 'DEVICE' is down: nothing is sent until it is up. Check its cable, or type: ip link set DEVICE up":
        link_down("ts2av", SAMPLE, "-l"),
    "The link of 'DEVICE' is down: nothing is received until it is up. Check its cable, or type: ip link set DEVICE up":
        link_down("pcap", "record"),
    "'DEVICE' was removed. Start again when it is back.": removed,
    "Device N was removed. Start again when it is back.": failed_opening("OpenRawTxDevice=0xE0000071", "-d", "1"),
    "'DEVICE' cannot be opened: REASON.": failed_opening("OpenRawTxDevice=0xE0000021"),
    # Shared memory of the lanes
    "'FILE' is not the shared memory of a segment. Remove it: rm FILE": wrong_file(private_file(b"something else")),
    "'FILE' is not the shared memory of a segment. Remove it: rm -r FILE": wrong_file(lambda path: path.mkdir()),
    "'FILE' is damaged, or another version made it. End the programs that use it, then: rm FILE":
        wrong_file(private_file(b"QSegment")),
    "Other users may use 'FILE', so it is refused. Correct that: chmod 600 FILE":
        wrong_file(private_file(b"", mode=0o666)),
    "You may not read and write 'FILE'. Correct that: chmod 600 FILE":
        wrong_file(private_file(b"", mode=0), WITHOUT_RIGHTS),
    "'FILE' belongs to USER. Remove it: rm FILE": file_of_another_user,
    "'FILE' belongs to USER. Have it removed, or set QUAYSIDE2_SEGMENT to another name.":
        file_that_an_ordinary_user_cannot_remove,
    "You may not make files in 'FOLDER'. Root can allow it: chmod 1777 FOLDER":
        shared_memory("-o mode=555 none /dev/shm", WITHOUT_RIGHTS),
    "'FOLDER' has no room for the shared memory of the lanes, 16.1 MiB. Remove files there, or enlarge it.":
        shared_memory("-o size=1m none /dev/shm"),
    "'FOLDER' is read-only. Make it writable: mount -o remount,rw FOLDER": shared_memory("-o ro none /dev/shm"),
    "'FILE' cannot be used: REASON.": shared_memory("none /dev"),
    "Another process is making 'FILE' and does not finish. Continue it or end it.": unfinished_file,
    "QUAYSIDE2_SEGMENT is 'NAME'. A segment's name has 1 to 64 letters, digits, '-', '_' or '.'.":
        on_devices(QUAYSIDE2_SEGMENT="a/b"),
}
