"""How a running command ends: keys on a real terminal, signals, and standard input of all kinds."""

import contextlib
import os
import pathlib
import pty
import re
import resource
import signal
import subprocess
import termios
import time

import pexpect
import pytest

import pcapng
import tsfile
from lanes import FLOWLANE, TIMEOUT, wait_for

RUNNING = "press any key to stop..."
LAST_LINE = "Stop AVTP sink..."


@pytest.fixture
def long_file(tmp_path):
    path = tmp_path / "long.ts"
    path.write_bytes(tsfile.stream(seconds=300, rate=50))
    return path


def on_terminal(segment, path):
    child = pexpect.spawn(FLOWLANE, ["ts2av", str(path)], env=segment.env, encoding="utf-8", timeout=TIMEOUT)
    child.delaybeforesend = None
    child.expect_exact(RUNNING)
    child.expect_exact("AVTP packets discarded: 0")
    return child


def modes(child):
    local = termios.tcgetattr(child.child_fd)[3]
    return bool(local & termios.ICANON), bool(local & termios.ECHO)


@pytest.mark.parametrize("key", ["x", " ", "\r", "\t", "\x1b[A", "\x7f", "\xff"])
def test_any_key_ends_it(segment, long_file, key):
    child = on_terminal(segment, long_file)
    assert modes(child) == (False, False)
    child.send(key)
    child.expect_exact(LAST_LINE)
    rest = child.read()
    child.close()
    assert child.exitstatus == 0
    assert rest.strip() == ""  # the key has not been echoed


def test_key_is_not_echoed(segment, long_file):
    child = on_terminal(segment, long_file)
    child.send("Q")
    child.expect_exact(LAST_LINE)
    assert "Q" not in child.before.replace("Quayside", "")
    child.expect(pexpect.EOF)
    child.close()


@pytest.fixture
def replay_file(tmp_path):
    """Two frames, minutes apart."""
    return pcapng.write_file(tmp_path / "replay.pcapng", [bytes(60)] * 2, 300 * 10**9)


@contextlib.contextmanager
def on_held_terminal(segment, *args, **options):
    """Runs the program on a terminal that is not its controlling terminal, as test harnesses do. Only the program
    changes the modes. Yields the process, the keyboard, and a function that returns the terminal's modes."""
    keyboard, terminal = pty.openpty()
    try:
        process = subprocess.Popen([FLOWLANE, *args], stdin=terminal, text=True, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, **{"env": segment.env, **options})
        read_until(process, RUNNING)
        wait_for(lambda: not termios.tcgetattr(terminal)[3] & (termios.ICANON | termios.ECHO), "single keys")
        yield process, keyboard, lambda: termios.tcgetattr(terminal)
    finally:
        process.kill()
        process.communicate()
        os.close(keyboard)
        os.close(terminal)


def usual_modes():
    keyboard, terminal = pty.openpty()
    modes = termios.tcgetattr(terminal)
    os.close(keyboard)
    os.close(terminal)
    return modes


@pytest.mark.parametrize("command", ["ts2av", "av2rtp", "pcap", "playpcap"])
@pytest.mark.parametrize("is_session_leader", [False, True])
def test_key_on_a_terminal_without_job_control(segment, long_file, replay_file, tmp_path, command, is_session_leader):
    argument = {"ts2av": long_file, "av2rtp": "127.0.0.1", "pcap": tmp_path / "file", "playpcap": replay_file}[command]
    with on_held_terminal(segment, command, argument, start_new_session=is_session_leader) as (process, keyboard, modes):
        os.write(keyboard, b"q")
        process.communicate(timeout=TIMEOUT)
        assert process.returncode == 0
        assert modes() == usual_modes()


@pytest.mark.parametrize("number", [signal.SIGQUIT, signal.SIGABRT, signal.SIGSEGV, signal.SIGBUS, signal.SIGUSR1,
                                    signal.SIGALRM, signal.SIGXCPU, signal.SIGRTMIN])
def test_deadly_signal_restores_the_terminal(segment, long_file, number):
    # A sanitizer has its own handlers, which end the process differently.
    names = ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS")
    environment = segment.env | {
        name: ":".join(filter(None, [segment.env.get(name), "handle_segv=0:handle_sigbus=0"])) for name in names}
    with on_held_terminal(segment, "ts2av", long_file, env=environment,
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0))) as (process, _, modes):
        process.send_signal(number)
        process.communicate(timeout=TIMEOUT)
        assert process.returncode == -number
        assert modes() == usual_modes()


def shell(segment):
    """An interactive shell with job control. The program runs in it as a user starts it."""
    child = pexpect.spawn("bash", ["--norc", "--noprofile", "-i"], env={**segment.env, "PS1": "READY> "},
                          encoding="utf-8", timeout=TIMEOUT)
    child.delaybeforesend = None
    child.expect_exact("READY> ")
    # Line editing would change the modes while the program runs.
    child.sendline("set +o emacs; bind 'set enable-bracketed-paste off' 2>/dev/null; stty -a > /dev/null")
    child.expect_exact("READY> ")
    return child


def start_in_shell(child, path):
    child.sendline(f"'{FLOWLANE}' ts2av '{path}'")
    child.expect_exact(RUNNING)
    child.expect_exact("AVTP packets discarded: 0")
    wait_for(lambda: modes(child) == (False, False), "single keys")


def modes_in_shell(child):
    child.sendline("stty -a")
    child.expect(r"(-?)icanon")
    canonical = child.match[1] == ""
    child.expect(r"(-?)echo ")
    echo = child.match[1] == ""
    child.expect_exact("READY> ")
    return canonical, echo


def test_suspended_and_continued(segment, long_file):
    child = shell(segment)
    before = modes_in_shell(child)
    start_in_shell(child, long_file)
    child.send("\x1a")
    child.expect_exact("Stopped")
    child.expect_exact("READY> ")
    assert modes_in_shell(child) == before
    child.sendline("fg")
    child.expect_exact("AVTP packets discarded: 0")
    wait_for(lambda: modes(child) == (False, False), "single keys again")
    child.send("x")
    child.expect_exact(LAST_LINE)
    child.expect_exact("READY> ")
    assert modes_in_shell(child) == before
    child.sendline("exit")
    child.expect(pexpect.EOF)
    child.close()


def test_goes_on_in_the_background(segment, long_file):
    child = shell(segment)
    start_in_shell(child, long_file)
    child.send("\x1a")
    child.expect_exact("Stopped")
    child.sendline("bg")
    for _ in range(3):
        child.expect_exact("AVTP packets discarded: 0")
    child.sendline("kill -TERM %1")
    child.expect_exact(LAST_LINE)
    child.sendline("exit")
    child.expect(pexpect.EOF)
    child.close()


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_on_terminal_ends_it_in_good_order(segment, long_file, number):
    child = on_terminal(segment, long_file)
    child.kill(number)
    child.expect_exact(LAST_LINE)
    child.expect(pexpect.EOF)
    child.close()
    assert child.exitstatus == 0


def test_key_of_several_bytes_leaves_nothing_to_the_shell(segment, long_file):
    child = shell(segment)
    start_in_shell(child, long_file)
    child.send("\x1b[A")
    child.expect_exact(LAST_LINE)
    child.expect_exact("READY> ")
    child.sendline("echo clean $((40 + 2))")
    child.expect_exact("READY> ")
    assert "clean 42" in child.before
    assert "not found" not in child.before
    child.sendline("exit")
    child.expect(pexpect.EOF)
    child.close()


def start(segment, path, stdin, **options):
    process = subprocess.Popen([FLOWLANE, "ts2av", path], env=segment.env, stdin=stdin, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    read_until(process, "AVTP packets discarded: 0")
    return process


def read_until(process, part):
    while True:
        line = process.stdout.readline()
        assert line, "the program has ended"
        if part in line:
            return


def fill(pipe):
    """Fills the pipe that takes a program's output."""
    descriptor = os.open(f"/proc/self/fd/{pipe.fileno()}", os.O_WRONLY | os.O_NONBLOCK)
    for size in (65536, 1):
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(descriptor, b"\n" * size)
    os.close(descriptor)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_first_signal_ends_it_in_good_order(segment, long_file, number):
    process = start(segment, long_file, subprocess.DEVNULL)
    process.send_signal(number)
    output = process.communicate(timeout=TIMEOUT)[0]
    assert output.splitlines()[-2:] == ["Stop TS file source...", LAST_LINE]
    assert process.returncode == 0


def test_signals_at_the_same_time_are_one(segment, long_file):
    process = start(segment, long_file, subprocess.DEVNULL)
    # Both signals are pending when it goes on.
    process.send_signal(signal.SIGSTOP)
    process.send_signal(signal.SIGTERM)
    process.send_signal(signal.SIGINT)
    process.send_signal(signal.SIGCONT)
    output = process.communicate(timeout=TIMEOUT)[0]
    assert output.splitlines()[-1] == LAST_LINE
    assert process.returncode == 0


def test_time_limit_ends_it_in_good_order(segment, long_file):
    """timeout signals the process and then its group, so the process gets the signal twice."""
    result = subprocess.run(["timeout", "2", FLOWLANE, "ts2av", long_file], env=segment.env, text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=TIMEOUT, check=False)
    assert result.stdout.splitlines()[-1] == LAST_LINE
    assert result.returncode == 124  # the exit code of timeout at its limit


def test_later_signal_ends_it_at_once(segment, long_file):
    process = start(segment, long_file, subprocess.DEVNULL)
    fill(process.stdout)  # it cannot end cleanly, because nobody takes its output
    process.send_signal(signal.SIGTERM)
    status = pathlib.Path(f"/proc/{process.pid}/status")
    wait_for(lambda: re.search(r"^ShdPnd:\t0+$", status.read_text(), re.MULTILINE), "the first signal")
    time.sleep(0.6)
    process.send_signal(signal.SIGTERM)
    output = process.communicate(timeout=TIMEOUT)[0]
    assert LAST_LINE not in output
    assert process.returncode == -signal.SIGTERM


def test_ignored_hangup_stays_ignored(segment, long_file):
    process = start(segment, long_file, subprocess.DEVNULL,
                    preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    process.send_signal(signal.SIGHUP)
    for _ in range(3):
        read_until(process, "AVTP packets discarded: 0")
    process.terminate()
    process.communicate(timeout=TIMEOUT)
    assert process.returncode == 0


def test_a_byte_on_a_pipe_is_a_key(segment, long_file):
    process = start(segment, long_file, subprocess.PIPE)
    process.stdin.write("x")
    process.stdin.flush()
    output = process.communicate(timeout=TIMEOUT)[0]
    assert output.splitlines()[-1] == LAST_LINE
    assert process.returncode == 0


@pytest.mark.parametrize("kind", ["devnull", "closed", "pipe at its end", "empty file"])
def test_end_of_input_is_no_key(segment, long_file, tmp_path, kind):
    options = {}
    stdin = subprocess.DEVNULL
    if kind == "closed":
        stdin = None
        options["preexec_fn"] = lambda: os.close(0)
    elif kind == "pipe at its end":
        read_end, write_end = os.pipe()
        os.close(write_end)
        stdin = read_end
    elif kind == "empty file":
        stdin = open(tmp_path / "empty", "w+b")
    process = start(segment, long_file, stdin, **options)
    for _ in range(3):
        read_until(process, "AVTP packets discarded: 0")
    process.terminate()
    output = process.communicate(timeout=TIMEOUT)[0]
    assert output.splitlines()[-1] == LAST_LINE
    assert process.returncode == 0


@pytest.mark.parametrize("kind", ["closed", "full", "no reader"])
def test_output_that_takes_nothing_stops_nothing(segment, tmp_path, kind):
    """The whole stream is sent, although the lines for the console cannot be written."""
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=1, rate=100))
    options = {}
    stdout = subprocess.DEVNULL
    if kind == "closed":
        stdout = None
        options["preexec_fn"] = lambda: os.close(1)
    elif kind == "full":
        stdout = open("/dev/full", "wb")
    else:
        read_end, stdout = os.pipe()
        os.close(read_end)
    captured = tmp_path / "frames.pcap"
    with segment.receiver(captured) as receiver:
        result = subprocess.run([FLOWLANE, "ts2av", path], env=segment.env, stdin=subprocess.DEVNULL,
                                stdout=stdout, timeout=TIMEOUT, check=False, **options)
    assert result.returncode == 0
    count = int(receiver.summary.split()[0])
    assert count * 7 >= len(tsfile.delivered_part(path.read_bytes()))
    assert receiver.summary.endswith(", 0 missing")


def test_ends_by_itself_at_the_end_of_the_file(segment, tmp_path):
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=0.2, rate=100))
    begin = time.monotonic()
    process = start(segment, path, subprocess.DEVNULL)
    output = process.communicate(timeout=TIMEOUT)[0]
    assert "Successfully sent content of TS file..." in output
    assert time.monotonic() - begin < 30
    assert process.returncode == 0


def test_loop_goes_on_until_asked_to_end(segment, tmp_path):
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=0.2, rate=100))
    captured = tmp_path / "frames.pcap"
    one_pass = len(tsfile.delivered_part(path.read_bytes()))
    with segment.receiver(captured):
        process = subprocess.Popen([FLOWLANE, "ts2av", "-l", path], env=segment.env, text=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        sent = 0
        while sent < 3 * one_pass:
            line = process.stdout.readline()
            assert line and "Successfully" not in line
            if line.startswith("TS packets sent: "):
                sent = int(line.split()[3].rstrip(","))
        process.terminate()
        process.communicate(timeout=TIMEOUT)
    assert process.returncode == 0
