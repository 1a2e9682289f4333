#include "KEPosixTerminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace kestrelon {

namespace {

// SIGTTOU or SIGTTIN would stop a process in the background that sets the modes or reads. There is no
// background without job control: on a terminal that is not the controlling one, and without a terminal.
bool IsInBackground() noexcept {
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground != -1 && foreground != getpgrp();
}

KESTATUS GetModes(termios& modes) noexcept {
    return tcgetattr(STDIN_FILENO, &modes) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

bool GetMode(tcflag_t mode) noexcept {
    termios modes{};
    return GetModes(modes) == KESTATUS_SUCCESS && (modes.c_lflag & mode) != 0;
}

KESTATUS SetModes(const termios& modes) noexcept {
    if (IsInBackground()) {
        return KESTATUS_NOT_POSSIBLE;
    }
    return tcsetattr(STDIN_FILENO, TCSANOW, &modes) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

void SetSingleBytes(termios& modes) noexcept {
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON);
    // Reads wait for one byte, and only for that.
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
}

KESTATUS SwitchMode(tcflag_t mode, bool enable) noexcept {
    termios modes{};
    const KESTATUS st = GetModes(modes);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    if (((modes.c_lflag & mode) != 0) == enable) {
        return KESTATUS_SUCCESS;
    }
    if (enable) {
        modes.c_lflag |= mode;
    } else if (mode == ICANON) {
        SetSingleBytes(modes);
    } else {
        modes.c_lflag &= ~mode;
    }
    return SetModes(modes);
}

// While it lives, the terminal delivers every key at once and shows none.
class SingleKeyMode {
public:
    SingleKeyMode() noexcept {
        // Input that is no terminal has no modes and needs none.
        static_cast<void>(mMode.SwitchCanonicalMode(false));
        static_cast<void>(mMode.SwitchEchoMode(false));
    }

private:
    KEPosixTerminalMode mMode;
};

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

KESTATUS KEPosixSwitchToDirectKeys(termios& found) noexcept {
    termios before{};
    KESTATUS st = GetModes(before);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    termios modes = before;
    SetSingleBytes(modes);
    modes.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    st = SetModes(modes);
    if (st == KESTATUS_SUCCESS) {
        found = before;
    }
    return st;
}

KESTATUS KEPosixRestoreKeyModes(const termios& found) noexcept {
    termios modes{};
    const KESTATUS st = GetModes(modes);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    // Only our own modes: others may have been changed since.
    constexpr tcflag_t cOurModes = ICANON | ECHO;
    if (((modes.c_lflag ^ found.c_lflag) & cOurModes) == 0 && modes.c_cc[VMIN] == found.c_cc[VMIN] &&
        modes.c_cc[VTIME] == found.c_cc[VTIME]) {
        return KESTATUS_SUCCESS;
    }
    modes.c_lflag = (modes.c_lflag & ~cOurModes) | (found.c_lflag & cOurModes);
    modes.c_cc[VMIN] = found.c_cc[VMIN];
    modes.c_cc[VTIME] = found.c_cc[VTIME];
    return SetModes(modes);
}

void KEPosixDiscardKeys() noexcept {
    if (!IsInBackground()) {
        tcflush(STDIN_FILENO, TCIFLUSH);
    }
}

bool KEPosixKbHit() noexcept {
    if (IsInBackground()) {
        return false;
    }
    const SingleKeyMode mode; // in canonical mode only finished lines would count
    // select and poll would call an input at its end readable, so the waiting bytes are counted.
    int count = 0;
    return ioctl(STDIN_FILENO, FIONREAD, &count) == 0 && count > 0;
}

int KEPosixGetCh() noexcept {
    if (IsInBackground()) {
        return -1;
    }
    const SingleKeyMode mode;
    // Not through stdio: its buffer would hide further bytes from KEPosixKbHit.
    unsigned char character = 0;
    return read(STDIN_FILENO, &character, 1) == 1 ? character : -1;
}

KEPosixTerminalMode::KEPosixTerminalMode() noexcept
    : mIsTerminal(GetModes(mSavedModes) == KESTATUS_SUCCESS) {}

KEPosixTerminalMode::~KEPosixTerminalMode() {
    if (mIsTerminal) {
        static_cast<void>(KEPosixRestoreKeyModes(mSavedModes)); // in the background the modes are not ours
    }
}

KESTATUS KEPosixTerminalMode::SwitchCanonicalMode(bool enable) noexcept {
    return KEPosixSwitchCanonicalMode(enable);
}

KESTATUS KEPosixTerminalMode::SwitchEchoMode(bool enable) noexcept {
    return KEPosixSwitchEchoMode(enable);
}

} // namespace kestrelon
