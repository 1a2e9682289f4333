import os
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support" / "python"))

import pytest

import lanes
import tsfile


@pytest.fixture(scope="session", autouse=True)
def interfaces():
    """Four ends of veth pairs. Their other ends are in one hub. They end with the network namespace."""
    if not lanes.ON_INTERFACES:
        return
    commands = ["link add hub type bridge ageing_time 0 mcast_snooping 0", "link set hub up"]
    for number, name in enumerate(lanes.LANES, 1):
        commands += [f"link add {name} address 02:51:42:58:00:0{number} type veth peer name port{number}",
                     f"link set port{number} master hub up", f"link set {name} up"]
    for command in commands:
        subprocess.run(["ip", *command.split()], check=True)
    lanes.wait_for_carriers()


@pytest.fixture
def segment(request):
    name = f"test-{os.getpid()}-{abs(hash(request.node.nodeid)) % 10**8}"
    owned = lanes.Segment(name)
    yield owned
    owned.remove()


@pytest.fixture
def short_file(tmp_path):
    """One second of a stream of 1000 packets/s."""
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=1, rate=1000))
    return path
