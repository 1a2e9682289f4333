"""The privilege to use an interface, and quayside2-devices, which lists the devices."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import time

import pytest

from interfaces import RUNNING, ip, wait_until
from lanes import FLOWLANE, SAMPLES, TIMEOUT, Running, exit_status, run
from tools import tool

DEVICES_TOOL = os.environ["DEVICES_BIN"]

KESTATUS_IN_USE = 0xE0000006
KESTATUS_ADMIN_PRIVILEGES_REQUIRED = 0xE0000110



# --- Who may use an interface ---------------------------------------------------------------------


def test_one_sender_and_one_receiver(env, tmp_path):
    with Running(env, "ts2av", SAMPLES / "h264-cbr.ts", "-l", "-n", "flw0") as sender, \
            Running(env, "pcap", tmp_path / "record", "-n", "flw0") as receiver:
        sender.read_until(RUNNING)
        receiver.read_until(RUNNING)
        for words, call, holder in ((["ts2av", SAMPLES / "h264-cbr.ts"], "OpenRawTxDevice", sender),
                                    (["pcap", tmp_path / "other"], "OpenRawRxDevice", receiver)):
            for device in (["-n", "flw0"], ["-d", "0"]):
                result = run(*words, *device, env=env)
                assert result.stderr.splitlines() == [
                    f"{call} failed, st=0xe0000006(KESTATUS_IN_USE).",
                    "Open device failed, st=0xe0000006(KESTATUS_IN_USE).",
                    f"'flw0' is in use by flowlane (process {holder.process.pid}). "
                    "End that program, or choose another device."]
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
    assert result.stderr.splitlines() == [
        f"OpenRawTxDevice failed, st={status}.", f"Open device failed, st={status}.",
        "'flw0' needs the privilege CAP_NET_RAW, which root does not have here. "
        "Start the container or the service with it."]
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
