#include "commands/StopRequest.h"

#include <pthread.h>
#include <signal.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "KEPosixTerminal.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr int cStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
// Signals that come within this time after the first belong to it, in nanoseconds: who ends a process by
// time limit signals the process and then its group, so that it arrives twice.
constexpr std::int64_t cRepeatedSignalTime = 500'000'000;
// What an instruction that fails raises.
constexpr int cFaultSignals[] = {SIGILL, SIGBUS, SIGFPE, SIGSEGV};
// These cannot be handled or do not end the process by default. All others do, the real-time ones included.
constexpr int cOtherSignals[] = {SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU,
                                 SIGCHLD, SIGCONT, SIGURG,  SIGWINCH};

template <std::size_t Count>
bool IsOneOf(const int (&signals)[Count], int signalNumber) {
    return std::find(std::begin(signals), std::end(signals), signalNumber) != std::end(signals);
}

using Handler = void (*)(int, siginfo_t*, void*);

// What the signal handlers work with. They run on the owner's thread, but those for a fault or an abort.
pthread_t sOwner;
std::atomic<bool> sIsSignalled{false};
std::atomic<std::int64_t> sFirstSignalTime{0}; // nanoseconds of the monotonic clock
std::atomic<bool> sAreKeysDirect{false};
termios sUsualModes; // valid while sAreKeysDirect
struct sigaction sEarlierActions[NSIG];
bool sIsReplaced[NSIG];

// While it lives, no handler runs on this thread.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &mEarlierMask);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &mEarlierMask, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t mEarlierMask;
};

// Handlers leave errno as they found it.
class KeptErrno {
public:
    KeptErrno() = default;
    ~KeptErrno() { errno = mValue; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

private:
    int mValue = errno;
};

// Also when the keys were direct and somebody else, such as a shell, has set the modes since.
void SwitchToDirectKeys() {
    const BlockedSignals blocked;
    if (sAreKeysDirect.load() && !KEPosixGetCanonicalMode() && !KEPosixGetEchoMode()) {
        return;
    }
    if (KEPosixSwitchToDirectKeys(sUsualModes) == KESTATUS_SUCCESS) {
        sAreKeysDirect.store(true);
    }
}

void SwitchToUsualModes() {
    if (sAreKeysDirect.exchange(false)) {
        // In the background the modes belong to somebody else.
        static_cast<void>(KEPosixRestoreKeyModes(sUsualModes));
    }
}

void LeaveTerminal() {
    if (sAreKeysDirect.load()) {
        KEPosixDiscardKeys();
    }
    SwitchToUsualModes();
}

// Handlers run on the owner's thread, which blocks them while it switches modes, so that the terminal never
// gets its direct keys behind a handler's back.
bool IsPassedToOwner(int signalNumber) {
    if (pthread_equal(pthread_self(), sOwner) != 0) {
        return false;
    }
    pthread_kill(sOwner, signalNumber);
    return true;
}

std::int64_t MonotonicTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void OnStopSignal(int signalNumber, siginfo_t*, void*) {
    const KeptErrno keptErrno;
    if (IsPassedToOwner(signalNumber)) {
        return;
    }
    if (!sIsSignalled.load()) {
        sFirstSignalTime.store(MonotonicTime());
        sIsSignalled.store(true);
    } else if (MonotonicTime() - sFirstSignalTime.load() >= cRepeatedSignalTime) {
        LeaveTerminal();
        struct sigaction defaultAction {};
        defaultAction.sa_handler = SIG_DFL;
        sigaction(signalNumber, &defaultAction, nullptr);
        raise(signalNumber); // takes effect when the handler returns
    }
}

void OnDeadlySignal(int signalNumber, siginfo_t* info, void*) {
    const KeptErrno keptErrno;
    const bool isFault = IsOneOf(cFaultSignals, signalNumber) && info->si_code > 0;
    const bool isRaised = info->si_code == SI_TKILL; // by a thread that aborts, which waits for nobody
    if (!isFault && !isRaised && IsPassedToOwner(signalNumber)) {
        return;
    }
    LeaveTerminal();
    sigaction(signalNumber, &sEarlierActions[signalNumber], nullptr);
    if (!isFault) { // the instruction of a fault fails again, and so tells its address again
        raise(signalNumber);
    }
}

void OnSuspendSignal(int signalNumber, siginfo_t*, void*) {
    const KeptErrno keptErrno;
    if (IsPassedToOwner(signalNumber)) {
        return;
    }
    SwitchToUsualModes();
    struct sigaction ownAction {};
    sigaction(signalNumber, &sEarlierActions[signalNumber], &ownAction);
    raise(signalNumber);
    sigset_t suspend;
    sigemptyset(&suspend);
    sigaddset(&suspend, signalNumber);
    pthread_sigmask(SIG_UNBLOCK, &suspend, nullptr); // the process stops here
    sigaction(signalNumber, &ownAction, nullptr);
    SwitchToDirectKeys();
}

struct sigaction CurrentAction(int signalNumber) {
    struct sigaction action {};
    sigaction(signalNumber, nullptr, &action);
    return action;
}

bool IsDefault(int signalNumber) {
    return CurrentAction(signalNumber).sa_handler == SIG_DFL;
}

bool IsIgnored(int signalNumber) {
    return CurrentAction(signalNumber).sa_handler == SIG_IGN;
}

void Replace(int signalNumber, Handler handler) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigfillset(&action.sa_mask);
    sIsReplaced[signalNumber] = sigaction(signalNumber, &action, &sEarlierActions[signalNumber]) == 0;
}

void ReplaceDeadlySignals() {
    for (int signalNumber = 1; signalNumber <= SIGRTMAX; ++signalNumber) {
        if (IsOneOf(cStopSignals, signalNumber) || IsOneOf(cOtherSignals, signalNumber)) {
            continue;
        }
        // A handler that is there shows that the signal does not end the process, but for faults.
        if (IsDefault(signalNumber) || (IsOneOf(cFaultSignals, signalNumber) && !IsIgnored(signalNumber))) {
            Replace(signalNumber, &OnDeadlySignal);
        }
    }
}

bool IsOurs(const struct sigaction& action) {
    return action.sa_sigaction == &OnStopSignal || action.sa_sigaction == &OnDeadlySignal ||
           action.sa_sigaction == &OnSuspendSignal;
}

} // namespace

StopRequest::StopRequest() {
    const BlockedSignals blocked;
    sOwner = pthread_self();
    sIsSignalled.store(false);
    for (const int signalNumber : cStopSignals) {
        if (!IsIgnored(signalNumber)) {
            Replace(signalNumber, &OnStopSignal);
        }
    }
    if (isatty(STDIN_FILENO) == 1) {
        ReplaceDeadlySignals();
        if (IsDefault(SIGTSTP)) {
            Replace(SIGTSTP, &OnSuspendSignal);
        }
        SwitchToDirectKeys();
    }
}

StopRequest::~StopRequest() {
    const BlockedSignals blocked;
    LeaveTerminal();
    for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
        if (sIsReplaced[signalNumber] && IsOurs(CurrentAction(signalNumber))) {
            sigaction(signalNumber, &sEarlierActions[signalNumber], nullptr);
        }
        sIsReplaced[signalNumber] = false;
    }
}

bool StopRequest::IsRequested() {
    SwitchToDirectKeys(); // it may have come to the foreground without a signal
    if (!mIsKeyPressed && KEPosixKbHit()) {
        KEPosixGetCh();
        KEPosixDiscardKeys(); // some keys are several bytes
        mIsKeyPressed = true;
    }
    return mIsKeyPressed || sIsSignalled.load();
}

} // namespace flowlane
