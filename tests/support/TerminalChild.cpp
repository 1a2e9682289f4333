#include "TerminalChild.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "WaitUntil.h"

namespace testsupport {

namespace {

constexpr int cPatienceMs = 20000;

// As forkpty, but the child stays in the session it is in.
pid_t ForkOnTerminal(int& terminal) {
    int childSide = -1;
    if (openpty(&terminal, &childSide, nullptr, nullptr, nullptr) != 0) {
        return -1;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        close(terminal);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(childSide, descriptor);
        }
    }
    close(childSide);
    return pid;
}

} // namespace

void TerminalChild::Reporter::Line(const std::string& line) const {
    const std::string text = line + "\n";
    if (write(mDescriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        _exit(3);
    }
}

TerminalChild::TerminalChild(const std::function<void(const Reporter&)>& body, TerminalKind kind) {
    int reports[2];
    if (pipe2(reports, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    mPid = kind == TerminalKind::Controlling ? forkpty(&mTerminal, nullptr, nullptr, nullptr)
                                             : ForkOnTerminal(mTerminal);
    if (mPid == -1) {
        throw std::runtime_error("no pseudo-terminal");
    }
    if (mPid == 0) {
        close(reports[0]);
        body(Reporter(reports[1]));
        _exit(0);
    }
    close(reports[1]);
    mReports = reports[0];
}

TerminalChild::~TerminalChild() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    close(mReports);
    HangUp();
}

void TerminalChild::Type(const std::string& keys) const {
    if (write(mTerminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
        throw std::runtime_error("cannot type");
    }
}

std::string TerminalChild::NextLine() {
    for (;;) {
        const std::size_t end = mBuffer.find('\n');
        if (end != std::string::npos) {
            std::string line = mBuffer.substr(0, end);
            mBuffer.erase(0, end + 1);
            return line;
        }
        pollfd readable = {mReports, POLLIN, 0};
        if (poll(&readable, 1, cPatienceMs) != 1) {
            return "<time-out>";
        }
        char bytes[256];
        const ssize_t count = read(mReports, bytes, sizeof bytes);
        if (count <= 0) {
            return "<end>";
        }
        mBuffer.append(bytes, static_cast<std::size_t>(count));
    }
}

testing::AssertionResult
TerminalChild::WaitForModes(const std::function<bool(const termios&)>& condition) const {
    termios modes{};
    return WaitUntil([&] { return tcgetattr(mTerminal, &modes) == 0 && condition(modes); },
                     [&] { return modes.c_lflag; });
}

std::string TerminalChild::Shown() const {
    std::string shown;
    pollfd readable = {mTerminal, POLLIN, 0};
    while (poll(&readable, 1, 0) == 1 && (readable.revents & POLLIN) != 0) {
        char bytes[256];
        const ssize_t count = read(mTerminal, bytes, sizeof bytes);
        if (count <= 0) {
            break;
        }
        shown.append(bytes, static_cast<std::size_t>(count));
    }
    return shown;
}

void TerminalChild::HangUp() {
    const int terminal = std::exchange(mTerminal, -1);
    if (terminal != -1) {
        close(terminal);
    }
}

} // namespace testsupport
