import os
import subprocess

import pytest

from interfaces import make_link
import lanes
import namespaces
import tsfile


def pytest_collection_modifyitems(config, items):
    """On interfaces run only the cases that use the devices: the others would do the same again."""
    if lanes.ON_INTERFACES:
        config.hook.pytest_deselected(items=[item for item in items if "segment" not in item.fixturenames])
        items[:] = [item for item in items if "segment" in item.fixturenames]


@pytest.fixture(scope="session", autouse=True)
def network():
    """Four ends of veth pairs. Their other ends are in one hub. They end with the network namespace."""
    namespaces.enter_own_network()
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
def link():
    """A veth pair, flw0 and flw1."""
    make_link()
    yield
    subprocess.run(["ip", "link", "del", "flw0"], stderr=subprocess.DEVNULL, check=False)


@pytest.fixture
def env(link):
    """The environment of a program that sees the veth pair alone."""
    return lanes.sanitized_environment(QUAYSIDE2_DEVICES="flw0,flw1")


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
