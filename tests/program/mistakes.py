"""What the scenarios of test_troubleshooting.py share: the ways to run a command that goes wrong. Each returns the
lines of standard error."""

import subprocess

from lanes import (FAKE_DEVICE_DIR, FLOWLANE, TIMEOUT, Running, run_with_fake_device, sanitized_environment)

RUNNING = "press any key to stop..."

# Root without the rights of root, also where root is that of a user namespace.
WITHOUT_RIGHTS = ["setpriv", "--bounding-set", "-all", "--inh-caps", "-all"]

# Behind the lines on the words of the command line, the command ends at once.
STOP_THERE = "mac_size=5"


def fake_environment(script="", **changes):
    return sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script, **changes)


def fake(*args, script=""):
    return run_with_fake_device(*args, script=script).stderr.splitlines()


def words(*args):
    return fake(*args, script=STOP_THERE)


def fake_with_prefix(prefix, *args, script="", **options):
    result = subprocess.run([*prefix, FLOWLANE, *map(str, args)], env=fake_environment(script), text=True,
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=TIMEOUT, check=False, **options)
    return result.stderr.splitlines()


def until(part, env, *args, times=1, act=lambda program: None):
    """Runs a command until it has printed a line with this part, does something to it, and ends it."""
    with Running(env, *args) as program:
        for _ in range(times):
            program.read_until(part)
        act(program)
    return program.stderr.splitlines()


class Case:
    """Where a scenario runs: in an empty current folder, with a segment of its own, and a veth pair on demand."""

    def __init__(self, folder, segment, make_link):
        self.folder = folder
        self.segment = segment
        self.make_link = make_link

    def file(self, name, content=b"", mode=0o644):
        path = self.folder / name
        path.write_bytes(content)
        path.chmod(mode)
        return name

    def lanes(self, *args, **env):
        return self.segment.run(*args, **env).stderr.splitlines()

    def link(self):
        """The environment of a program that sees lanes and interfaces."""
        self.make_link()
        return {**self.segment.env, "QUAYSIDE2_DEVICES": "lane-1,lane-2,lane-3,lane-4,flw0,flw1"}
