"""av2rtp on a network: multicast groups, no route to the receiver, a link that goes down. Runs in its own network
namespace (tests/support/network-test)."""

import pathlib
import re
import subprocess

import pytest

import rtp
import tsfile
from lanes import LANE_1, LANE_2, Running, exit_status, wait_for, wait_for_carriers

ENETUNREACH = 0xE0010065


def ip(*words):
    subprocess.run(["ip", *words], check=True)


@pytest.fixture
def interface():
    """A link with addresses and a route to all groups, but to nothing else."""
    ip("link", "add", "link0", "type", "veth", "peer", "name", "link1")
    ip("link", "set", "link1", "up")
    pathlib.Path("/proc/sys/net/ipv6/conf/link0/disable_ipv6").write_text("0")
    ip("address", "add", "192.0.2.1/24", "dev", "link0")
    ip("address", "add", "fd00::1/64", "dev", "link0", "nodad")
    ip("link", "set", "link0", "up")
    wait_for_carriers()
    ip("route", "add", "224.0.0.0/4", "dev", "link0")
    yield "link0"
    ip("link", "delete", "link0")


@pytest.mark.parametrize("group", ["239.1.2.3", "ff0e::1234"])
def test_group(segment, interface, tmp_path, group):
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=1, rate=200))
    expected = tsfile.delivered_part(path.read_bytes())
    with rtp.Receiver(group, 5004, interface) as receiver, \
            Running(segment.env, "av2rtp", group, "-p", 5004, "-n", LANE_2) as program:
        program.read_until("press any key to stop...")
        assert f"Host name '{group}' resolved to address {group}" in program.lines
        assert segment.run("ts2av", path, "-n", LANE_1).returncode == 0
        wait_for(lambda: len(rtp.split(receiver.datagrams)) >= len(expected), "all packets")
    assert rtp.split(receiver.datagrams) == expected


@pytest.mark.parametrize("host", ["198.51.100.1", "2001:db8::1"])
def test_no_way_to_the_network(segment, interface, host):
    result = segment.run("av2rtp", host, "-n", LANE_2)
    lines = result.stderr.splitlines()
    assert re.fullmatch(r"CreateRtpUdpSink failed, st=0xe0010065(\(.*\))?\.", lines[0])
    assert lines[1:] == [f"Sending to {host} is not possible: Network is unreachable. There is no route to it; the "
                         "routes are listed by: ip route"]
    assert result.returncode == exit_status(ENETUNREACH)


def test_network_that_goes_and_comes_back(segment, interface, tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=300, rate=200))
    ip("address", "add", "203.0.113.1/32", "dev", interface)
    with rtp.Receiver("203.0.113.1") as receiver, \
            Running(segment.env, "av2rtp", "203.0.113.1", "-p", receiver.port, "-n", LANE_2) as program, \
            Running(segment.env, "ts2av", path, "-n", LANE_1):
        wait_for(lambda: len(receiver.datagrams) > 20, "datagrams")
        ip("address", "delete", "203.0.113.1/32", "dev", interface)
        failures = rf"UDP packets that could not be sent to 203\.0\.113\.1:{receiver.port}: \d+ tried again, " \
                   r"\d+ given up \(Network is unreachable: there is no route\)\n$"
        assert re.match(failures, program.process.stderr.readline())
        before = len(receiver.datagrams)
        ip("address", "add", "203.0.113.1/32", "dev", interface)
        wait_for(lambda: len(receiver.datagrams) > before + 20, "datagrams again")
    # Datagrams that were not sent have used no sequence number.
    numbers = [int.from_bytes(packet[4:8], "big") for packet in rtp.split(receiver.datagrams)
               if tsfile.pcr_of(packet) is None]
    assert numbers == sorted(set(numbers))


def test_network_that_is_gone_is_the_exit_code(segment, interface, tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=300, rate=200))
    ip("address", "add", "203.0.113.1/32", "dev", interface)
    with rtp.Receiver("203.0.113.1") as receiver, \
            Running(segment.env, "av2rtp", "203.0.113.1", "-p", receiver.port, "-n", LANE_2, "-es") as program, \
            Running(segment.env, "ts2av", path, "-n", LANE_1):
        wait_for(lambda: len(receiver.datagrams) > 20, "datagrams")
        ip("address", "delete", "203.0.113.1/32", "dev", interface)
        while " 0 given up " in program.read_error():
            pass
        assert program.stop() == exit_status(ENETUNREACH)
