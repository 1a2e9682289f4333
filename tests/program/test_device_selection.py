"""Choosing and opening the device: every line, and the status that becomes the exit code."""

import os

import pytest

import tsfile
from arguments import no_address
from lanes import FLOWLANE, exit_status, run_with_fake_device

IN_USE = "0xe0000006(KESTATUS_IN_USE)"
PRIVILEGE = ("'fake-2' needs the privilege CAP_NET_RAW, which root does not have here. Start the container or the "
             "service with it.") if os.geteuid() == 0 else \
    ("'fake-2' needs a privilege. Run this program as root, or give it the privilege: "
     f"sudo setcap cap_net_raw+ep {FLOWLANE}")
USED = "is in use by another program. End that program, or choose another device."
START = ["Quayside library API Version 2.20.", "Enumerate available devices..."]


@pytest.fixture
def ts2av(tmp_path):
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=0.1, rate=100))
    return lambda *options, script="": run_with_fake_device("ts2av", path, *options, script=script)


@pytest.mark.parametrize("script, options, out, err, status", [
    # No device, and an enumeration that fails.
    ("devices=0", [], ["No Quayside device connected, please connect a device"],
     ["Open device failed, st=0xe0000023(KESTATUS_NO_DEVICES).",
      "The device library has found no device. Connect one, or check its driver."], 0xE0000023),
    ("EnumerateDevices=0xE0000086", [], [],
     ["EnumerateDevices failed, st=0xe0000086(KESTATUS_HARDWARE_ACCESS_FAILED).",
      "Open device failed, st=0xe0000086(KESTATUS_HARDWARE_ACCESS_FAILED).",
      "The devices cannot be listed: Unable to access the hardware."], 0xE0000086),
    # By index: it is not compared with the count, and not skipped when in use.
    ("OpenRawTxDevice=0xE0000047", ["-d", "99"], ["Found 2 Quayside device(s)"],
     ["OpenRawTxDevice failed, st=0xe0000047(KESTATUS_INVALID_INDEX).",
      "Open device failed, st=0xe0000047(KESTATUS_INVALID_INDEX).",
      "No device has the index 99. The 2 devices are: 0 = fake-1, 1 = fake-2"], 0xE0000047),
    ("OpenRawTxDevice@0=0xE0000006", [], ["Found 2 Quayside device(s)"],
     [f"OpenRawTxDevice failed, st={IN_USE}.", f"Open device failed, st={IN_USE}.", f"'fake-1' {USED}"], 0xE0000006),
    ("OpenRawTxDevice=0xE0000006,OpenControlDevice@0=0xE0000006", [], ["Found 2 Quayside device(s)"],
     [f"OpenRawTxDevice failed, st={IN_USE}.", f"Open device failed, st={IN_USE}.", f"Device 0 {USED}"], 0xE0000006),
    ("OpenRawTxDevice=0xE0000006,state=free", ["-d", "1"], ["Found 2 Quayside device(s)"],
     [f"OpenRawTxDevice failed, st={IN_USE}.", f"Open device failed, st={IN_USE}.",
      "'fake-2' was in use, and is free now. Try again."], 0xE0000006),
    ("OpenRawTxDevice=0xE0000071", ["-d", "1"], ["Found 2 Quayside device(s)"],
     ["OpenRawTxDevice failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED).",
      "Open device failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED).",
      "Device 1 was removed. Start again when it is back."], 0xE0000071),
    # By name.
    ("", ["-n", "nowhere"],
     ["Found 2 Quayside device(s)", "No device found for friendly name 'nowhere'"],
     ["LookupDeviceIndexForFriendlyName failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "Open device failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "No device is named 'nowhere'. The devices are: fake-1, fake-2"], 0xE0000039),
    ("", ["-n", "FAKE-1"],
     ["Found 2 Quayside device(s)", "No device found for friendly name 'FAKE-1'"],
     ["LookupDeviceIndexForFriendlyName failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "Open device failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "No device is named 'FAKE-1'. The devices are: fake-1, fake-2"], 0xE0000039),
    # Only an instance in use has the name.
    ("OpenControlDevice@1=0xE0000006", ["-n", "fake-2"],
     ["Found 2 Quayside device(s)", "Ignore device with index 1 because it is already in use.",
      "No device found for friendly name 'fake-2'"],
     ["LookupDeviceIndexForFriendlyName failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "Open device failed, st=0xe0000039(KESTATUS_NOT_FOUND).",
      "No free device is named 'fake-2'. The devices are: fake-1, device 1 (in use)"], 0xE0000039),
    # Another failure ends the search although the next instance would match.
    ("OpenControlDevice@0=0xE0000071", ["-n", "fake-2"], ["Found 2 Quayside device(s)"],
     ["OpenControlDevice failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED).",
      "LookupDeviceIndexForFriendlyName failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED).",
      "Open device failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED).",
      "Device 0 was removed. Start again when it is back."], 0xE0000071),
    # The name is found, but opening fails.
    ("OpenRawTxDevice@1=0xE0000110", ["-n", "fake-2"], ["Found 2 Quayside device(s)"],
     ["OpenRawTxDevice failed, st=0xe0000110(KESTATUS_ADMIN_PRIVILEGES_REQUIRED).",
      "Open device failed, st=0xe0000110(KESTATUS_ADMIN_PRIVILEGES_REQUIRED).", PRIVILEGE], 0xE0000110),
    ("OpenRawTxDevice=0xE0000021", [], ["Found 2 Quayside device(s)"],
     ["OpenRawTxDevice failed, st=0xe0000021(KESTATUS_NO_RESOURCES).",
      "Open device failed, st=0xe0000021(KESTATUS_NO_RESOURCES).",
      "'fake-1' cannot be opened: Not enough resources available to complete the operation."], 0xE0000021),
])
def test_failures(ts2av, script, options, out, err, status):
    result = ts2av(*options, script=script)
    assert result.stdout.splitlines() == START + out
    assert result.stderr.splitlines() == err
    assert result.returncode == exit_status(status)


@pytest.mark.parametrize("command", ["av2rtp", "pcap"])
def test_failed_opening_for_reception(tmp_path, command):
    argument = "127.0.0.1" if command == "av2rtp" else tmp_path / "file"
    result = run_with_fake_device(command, argument, "-d", "1", script="OpenRawRxDevice@1=0xE0000006")
    assert result.stdout.splitlines() == START + ["Found 2 Quayside device(s)"]
    assert result.stderr.splitlines() == [f"OpenRawRxDevice failed, st={IN_USE}.", f"Open device failed, st={IN_USE}.",
                                          f"'fake-2' {USED}"]
    assert result.returncode == exit_status(0xE0000006)


# The sink refuses to go on, right after the selection.
STOP_THERE = "mac_size=5"


@pytest.mark.parametrize("script, options, device, lines", [
    ("", [], "fake-1", []),
    ("", ["-n", ""], "fake-1", []),  # an empty name is like no name
    ("OpenRawTxDevice@0=0xE0000006", ["-d", "1"], "fake-2", []),
    # -n overrides -d. The first of two instances with one name is taken.
    ("OpenRawTxDevice@1=0xE0000006", ["-d", "1", "-n", "fake-1"], "fake-1", []),
    ("names=twin:twin,OpenRawTxDevice@1=0xE0000006", ["-n", "twin"], "twin", []),
    # Instances in use are skipped, and instances whose name cannot be read.
    ("OpenControlDevice@0=0xE0000006", ["-n", "fake-2"], "fake-2",
     ["Ignore device with index 0 because it is already in use."]),
    ("GetDevicePropertyString@0=0xE0000039", ["-n", "fake-2"], "fake-2", []),
])
def test_found(ts2av, script, options, device, lines):
    result = ts2av(*options, script=f"{script},{STOP_THERE}")
    assert result.stdout.splitlines() == START + ["Found 2 Quayside device(s)"] + lines + ["Create AVTP sink..."]
    errors = ["CreateAvtpSink failed, st=0xe0000061(KESTATUS_LENGTH_MISMATCH).", no_address(device)]
    if "" in options:
        errors.insert(0, "The name behind -n is empty. The device with index 0 is used.")
    if "-d" in options and "-n" in options:
        errors.insert(0, "-d is ignored: -n chooses the device.")
    if "GetDevicePropertyString" in script:
        errors.insert(0, "GetDevicePropertyString failed (idx=0), st=0xe0000039(KESTATUS_NOT_FOUND), "
                         "ignore the device.")
    assert result.stderr.splitlines() == errors
    assert result.returncode == exit_status(0xE0000061)


@pytest.mark.parametrize("options, description", [
    ([], "0"),
    (["-d", "1"], "1"),
    (["-n", "fake-1"], "fake-1(0)"),
    (["-n", "fake-2"], "fake-2(1)"),
    (["-d", "0", "-n", "fake-2"], "fake-2(1)"),
])
def test_description(ts2av, options, description):
    result = ts2av(*options, script="CheckSubmitRawFrame=0xE0000021,WaitForTxResources=0xE0000003")
    assert f"Start AVTP sink on device {description}..." in result.stdout.splitlines()
    assert result.returncode == 0
