#include "KEPosixTerminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace kestrelon {

namespace {

bool GetMode(tcflag_t mode) noexcept {
    termios modes{};
    return tcgetattr(STDIN_FILENO, &modes) == 0 && (modes.c_lflag & mode) != 0;
}

// Setting modes from the background would stop the process with SIGTTOU.
bool IsInForeground() noexcept {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

// Reading the terminal that others have in the foreground would stop the process with SIGTTIN.
bool IsInBackground() noexcept {
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground != -1 && foreground != getpgrp();
}

KESTATUS SetModes(const termios& modes) noexcept {
    if (!IsInForeground()) {
        return KESTATUS_NOT_POSSIBLE;
    }
    return tcsetattr(STDIN_FILENO, TCSANOW, &modes) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

KESTATUS SwitchMode(tcflag_t mode, bool enable) noexcept {
    termios modes{};
    if (tcgetattr(STDIN_FILENO, &modes) != 0) {
        return KEStatusFromErrno(errno);
    }
    if (((modes.c_lflag & mode) != 0) == enable) {
        return KESTATUS_SUCCESS;
    }
    if (enable) {
        modes.c_lflag |= mode;
    } else {
        modes.c_lflag &= ~mode;
        if (mode == ICANON) {
            // Reads wait for one byte, and only for that.
            modes.c_cc[VMIN] = 1;
            modes.c_cc[VTIME] = 0;
        }
    }
    return SetModes(modes);
}

} // namespace

bool KEPosixGetCanonicalMode() noexcept {
    return GetMode(ICANON);
}

bool KEPosixGetEchoMode() noexcept {
    return GetMode(ECHO);
}

KESTATUS KEPosixSwitchCanonicalMode(bool enable) noexcept {
    return SwitchMode(ICANON, enable);
}

KESTATUS KEPosixSwitchEchoMode(bool enable) noexcept {
    return SwitchMode(ECHO, enable);
}

bool KEPosixKbHit() noexcept {
    if (IsInBackground()) {
        return false;
    }
    // In canonical mode only finished lines would count.
    KEPosixTerminalMode mode;
    mode.SwitchCanonicalMode(false);
    mode.SwitchEchoMode(false);
    // select and poll call an input at its end readable; the number of waiting bytes does not lie.
    int count = 0;
    return ioctl(STDIN_FILENO, FIONREAD, &count) == 0 && count > 0;
}

int KEPosixGetCh() noexcept {
    if (IsInBackground()) {
        return -1;
    }
    KEPosixTerminalMode mode;
    mode.SwitchCanonicalMode(false);
    mode.SwitchEchoMode(false);
    // Not through stdio, whose buffer would hide further bytes from KEPosixKbHit.
    unsigned char character = 0;
    return read(STDIN_FILENO, &character, 1) == 1 ? character : -1;
}

KEPosixTerminalMode::KEPosixTerminalMode() noexcept
    : mIsTerminal(tcgetattr(STDIN_FILENO, &mSavedModes) == 0) {}

KEPosixTerminalMode::~KEPosixTerminalMode() {
    termios modes{};
    if (!mIsSwitched || !mIsTerminal || tcgetattr(STDIN_FILENO, &modes) != 0) {
        return;
    }
    // Only what is ours: other modes may have been changed meanwhile.
    constexpr tcflag_t cOurModes = ICANON | ECHO;
    modes.c_lflag = (modes.c_lflag & ~cOurModes) | (mSavedModes.c_lflag & cOurModes);
    modes.c_cc[VMIN] = mSavedModes.c_cc[VMIN];
    modes.c_cc[VTIME] = mSavedModes.c_cc[VTIME];
    SetModes(modes);
}

KESTATUS KEPosixTerminalMode::SwitchCanonicalMode(bool enable) noexcept {
    mIsSwitched |= KEPosixGetCanonicalMode() != enable;
    return KEPosixSwitchCanonicalMode(enable);
}

KESTATUS KEPosixTerminalMode::SwitchEchoMode(bool enable) noexcept {
    mIsSwitched |= KEPosixGetEchoMode() != enable;
    return KEPosixSwitchEchoMode(enable);
}

} // namespace kestrelon
