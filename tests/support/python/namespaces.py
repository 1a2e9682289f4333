"""Namespaces for tests that need a network or a file system of their own."""

import ctypes
import functools
import os
import pathlib
import subprocess

import pytest


@functools.cache
def _refusal(*command):
    """What the system says against a tmpfs in such a namespace; empty when it allows it."""
    result = subprocess.run([*command, "mount", "-t", "tmpfs", "none", "/dev/shm"], stdin=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, timeout=60, check=False)
    return result.stderr.strip() if result.returncode else ""


def private_mounts():
    """The command that runs another with mounts of its own. Skips the test where there can be none, as in many
    containers."""
    command = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--map-root-user", "--mount"]
    if refusal := _refusal(*command):
        pytest.skip(f"this machine lets nobody make a mount namespace: {refusal}")
    return command


CLONE_NEWNET = 0x40000000


def enter_own_network():
    """Each of the processes that share the cases of a file leaves the network namespace that network-test has made
    for the file, and makes one of its own."""
    if "FLOWLANE_NETWORK_TEST" not in os.environ or "PYTEST_XDIST_WORKER" not in os.environ:
        return
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True, timeout=60)
    pathlib.Path("/proc/sys/net/ipv6/conf/default/disable_ipv6").write_text("1")
