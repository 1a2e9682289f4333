"""What the tests of the built program share: where the binaries are, and a segment of one's own."""

import contextlib
import glob
import os
import pathlib
import signal
import subprocess
import threading
import time

SOURCE = pathlib.Path(os.environ["FLOWLANE_SOURCE"])
FLOWLANE = os.environ["FLOWLANE_BIN"]
LANE_DUMP = os.environ["LANE_DUMP_BIN"]
LANE_SEND = os.environ["LANE_SEND_BIN"]
FAKE_DEVICE_DIR = os.environ["FAKE_DEVICE_DIR"]
SAMPLES = SOURCE / "samples"

# The devices that the tests use: what the first sends the others receive. The lanes of a virtual segment, or
# network interfaces when FLOWLANE_TEST_INTERFACES is set (conftest.py makes them).
ON_INTERFACES = bool(os.environ.get("FLOWLANE_TEST_INTERFACES"))
LANES = LANE_1, LANE_2, LANE_3, LANE_4 = [("flw" if ON_INTERFACES else "lane-") + str(number) for number in range(1, 5)]
PRODUCT = "veth" if ON_INTERFACES else "Virtual Ethernet segment"

# Generous: it ends a test that hangs, it is never waited for.
TIMEOUT = 120


def sanitized_environment(**changes):
    """The environment for a program under test, without what the user's own may say about devices."""
    env = {k: v for k, v in os.environ.items() if not k.startswith(("QUAYSIDE2_", "FAKE_QBX"))}
    env["LC_ALL"] = "C"
    env.update({k: str(v) for k, v in changes.items()})
    return env


class Segment:
    """The devices of one test. A virtual segment's shared memory goes when the test ends."""

    def __init__(self, name):
        self.name = name
        self.env = sanitized_environment(QUAYSIDE2_SEGMENT=name)
        if ON_INTERFACES:
            self.env["QUAYSIDE2_DEVICES"] = ",".join(LANES)

    def files(self):
        return glob.glob(f"/dev/shm/*{self.name}*")

    def remove(self):
        for path in self.files():
            os.unlink(path)

    def run(self, *args, stdin=subprocess.DEVNULL, **env):
        return run(*args, stdin=stdin, env={**self.env, **{k: str(v) for k, v in env.items()}})

    @contextlib.contextmanager
    def receiver(self, path, *args, name=LANE_2):
        """A receiver that writes the frames to a capture file and runs until the block ends. Yields an
        object whose text tells, afterwards, what it printed."""
        process = subprocess.Popen(
            [LANE_DUMP, "-n", name, "-o", str(path), *args],
            env=self.env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        try:
            with bounded(process):
                assert process.stdout.readline().strip() == "ready"
            process.summary = None
            yield process
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
            process.summary = process.communicate(timeout=TIMEOUT)[0].strip()
            assert process.returncode == 0, process.summary
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()


def run(*args, stdin=subprocess.DEVNULL, env=None):
    """Runs the program to its end; stdout and stderr are texts."""
    return subprocess.run([FLOWLANE, *map(str, args)], stdin=stdin, env=env or sanitized_environment(),
                          capture_output=True, text=True, timeout=TIMEOUT, check=False)


def run_with_fake_device(*args, script="", stdin=subprocess.DEVNULL, **env):
    """Runs the program with a device library whose answers the script gives."""
    return run(*args, stdin=stdin,
               env=sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR, FAKE_QBX=script, **env))


def exit_status(kestatus):
    """What the shell sees of a status: its low 8 bits."""
    return kestatus & 0xFF


def wait_for(condition, what):
    """Waits until condition() is true; fails the test after a long while."""
    deadline = time.monotonic() + TIMEOUT
    while not condition():
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.01)


def wait_for_carriers():
    """Until all links that are up carry frames: the kernel takes up a carrier a moment later."""
    def links():
        return subprocess.run(["ip", "-o", "link", "show", "type", "veth", "up"], capture_output=True, text=True,
                              check=True, timeout=TIMEOUT).stdout.splitlines()
    wait_for(lambda: all(" state UP " in link for link in links()), "carriers")


@contextlib.contextmanager
def bounded(process):
    """Kills a process that does not come to the end of the block in time, so that reading its output ends."""
    watchdog = threading.Timer(TIMEOUT, process.kill)
    watchdog.start()
    try:
        yield
    finally:
        watchdog.cancel()


class Running:
    """The program in the background. Its lines come one by one; leaving the block stops it, which it has to
    survive in good order. prefix: a command that runs another."""

    def __init__(self, env, *args, prefix=(), stdin=subprocess.DEVNULL, **options):
        self.process = subprocess.Popen([*prefix, FLOWLANE, *map(str, args)], env=env, stdin=stdin, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        self.lines = []
        self.stderr = None

    def __repr__(self):
        return f"<{' '.join(map(str, self.process.args))}: {self.lines[-5:]}>"

    def read_until(self, part):
        """The next line that has this part."""
        with bounded(self.process):
            while True:
                line = self.process.stdout.readline()
                assert line, f"waited in vain for '{part}', saw last: {self.lines[-5:]}"
                self.lines.append(line.rstrip("\n"))
                if part in line:
                    return self.lines[-1]

    def read_error(self):
        """The next line of standard error."""
        with bounded(self.process):
            line = self.process.stderr.readline()
        assert line, f"no further line on standard error, standard output was {self.lines[-5:]}"
        return line.rstrip("\n")

    def wait_for_end(self):
        """The exit code; the remaining lines are read. (communicate() would miss what readline() has read ahead.)"""
        with bounded(self.process):
            self.lines += self.process.stdout.read().splitlines()
            if self.process.stderr:
                self.stderr = self.process.stderr.read()
            return self.process.wait()

    def stop(self):
        self.process.terminate()
        return self.wait_for_end()

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None and self.process.poll() is None:
                assert self.stop() == 0, self.stderr
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.communicate()
