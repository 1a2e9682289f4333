"""Mount namespaces for tests that need a file system of their own."""

import functools
import os
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
