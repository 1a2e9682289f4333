#include "StopRequest.h"

#include <signal.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "KEPosixTerminal.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr int cStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
// Signals that come within this time after the first belong to it, in nanoseconds: who ends a process by
// time limit signals the process and then its group, so that it arrives twice.
constexpr std::int64_t cRepeatedSignalTime = 500'000'000;
constexpr int cDeadlySignals[] = {SIGQUIT, SIGILL, SIGABRT, SIGBUS, SIGFPE, SIGSEGV};

// What the signal handlers work with.
std::atomic<bool> sIsSignalled{false};
std::atomic<std::int64_t> sFirstSignalTime{0}; // nanoseconds of the monotonic clock
std::atomic<bool> sAreKeysDirect{false};
termios sUsualModes; // valid while sAreKeysDirect

bool IsForeground() {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

// Lets the terminal deliver keys one by one and unseen. A process in the background must leave the
// terminal alone.
void SwitchToDirectKeys() {
    if (sAreKeysDirect.load() || !IsForeground() || tcgetattr(STDIN_FILENO, &sUsualModes) != 0) {
        return;
    }
    termios modes = sUsualModes;
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
    sAreKeysDirect.store(true);
    if (tcsetattr(STDIN_FILENO, TCSANOW, &modes) != 0) {
        sAreKeysDirect.store(false);
    }
}

void SwitchToUsualModes() {
    if (sAreKeysDirect.exchange(false) && IsForeground()) {
        tcsetattr(STDIN_FILENO, TCSANOW, &sUsualModes);
    }
}

void SetHandler(int signalNumber, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signalNumber, &action, nullptr);
}

bool IsIgnored(int signalNumber) {
    struct sigaction action {};
    sigaction(signalNumber, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// Gives the signal its default action, which takes effect when the handler returns.
void EndBySignal(int signalNumber) {
    SwitchToUsualModes();
    SetHandler(signalNumber, SIG_DFL);
    raise(signalNumber);
}

std::int64_t MonotonicTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void OnStopSignal(int signalNumber) {
    const int savedErrno = errno;
    if (!sIsSignalled.load()) {
        sFirstSignalTime.store(MonotonicTime());
        sIsSignalled.store(true);
    } else if (MonotonicTime() - sFirstSignalTime.load() >= cRepeatedSignalTime) {
        EndBySignal(signalNumber);
    }
    errno = savedErrno;
}

void OnSuspendSignal(int signalNumber) {
    const int savedErrno = errno;
    SwitchToUsualModes();
    SetHandler(signalNumber, SIG_DFL);
    raise(signalNumber);
    sigset_t suspend;
    sigemptyset(&suspend);
    sigaddset(&suspend, signalNumber);
    pthread_sigmask(SIG_UNBLOCK, &suspend, nullptr); // the process stops here
    SetHandler(signalNumber, &OnSuspendSignal);
    SwitchToDirectKeys();
    errno = savedErrno;
}

} // namespace

StopRequest::StopRequest() {
    sIsSignalled.store(false);
    for (const int signalNumber : cStopSignals) {
        if (!IsIgnored(signalNumber)) {
            SetHandler(signalNumber, &OnStopSignal);
        }
    }
    if (isatty(STDIN_FILENO) == 1) {
        for (const int signalNumber : cDeadlySignals) {
            SetHandler(signalNumber, &EndBySignal);
        }
        if (!IsIgnored(SIGTSTP)) {
            SetHandler(SIGTSTP, &OnSuspendSignal);
        }
        SwitchToDirectKeys();
    }
}

StopRequest::~StopRequest() {
    SwitchToUsualModes();
    const auto restoreDefault = [](int signalNumber, void (*handler)(int)) {
        struct sigaction action {};
        sigaction(signalNumber, nullptr, &action);
        if (action.sa_handler == handler) {
            SetHandler(signalNumber, SIG_DFL);
        }
    };
    for (const int signalNumber : cStopSignals) {
        restoreDefault(signalNumber, &OnStopSignal);
    }
    for (const int signalNumber : cDeadlySignals) {
        restoreDefault(signalNumber, &EndBySignal);
    }
    restoreDefault(SIGTSTP, &OnSuspendSignal);
}

bool StopRequest::IsRequested() {
    if (!sAreKeysDirect.load() && isatty(STDIN_FILENO) == 1) {
        SwitchToDirectKeys(); // brought to the foreground without a signal
    }
    if (!mIsKeyPressed && KEPosixKbHit()) {
        KEPosixGetCh();
        mIsKeyPressed = true;
    }
    return mIsKeyPressed || sIsSignalled.load();
}

} // namespace flowlane
