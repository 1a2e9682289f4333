// Keys and modes of the terminal on standard input. The terminal belongs to the whole process: use these
// from one thread.
//
// Modes are only touched while the process is in the foreground of the terminal, so that a process in the
// background is never stopped for it. A terminal that is not the controlling one has no background. Standard
// input that is no terminal has no modes, which is no fault worth a message.
#ifndef KESTRELON_KEPOSIXTERMINAL_H
#define KESTRELON_KEPOSIXTERMINAL_H

#include <termios.h>

#include "kestatus.h"

namespace kestrelon {

// Whether the terminal delivers whole lines, and whether it shows what is typed. False without a terminal.
bool KEPosixGetCanonicalMode() noexcept;
bool KEPosixGetEchoMode() noexcept;

// KESTATUS_NOT_POSSIBLE in the background; the status of errno without a terminal.
[[nodiscard]] KESTATUS KEPosixSwitchCanonicalMode(bool enable) noexcept;
[[nodiscard]] KESTATUS KEPosixSwitchEchoMode(bool enable) noexcept;

// Canonical and echo mode off in one step, so that keys come one by one and unseen; found gets the modes of
// before, on success only. And back: canonical and echo mode as in found, other modes as they are. May be
// called by signal handlers. Statuses as above.
[[nodiscard]] KESTATUS KEPosixSwitchToDirectKeys(termios& found) noexcept;
[[nodiscard]] KESTATUS KEPosixRestoreKeyModes(const termios& found) noexcept;

// Throws away the keys that wait. Nothing in the background and without a terminal. May be called by signal
// handlers.
void KEPosixDiscardKeys() noexcept;

// Whether a byte can be read from standard input, also before the line is finished. Never waits. The end
// of the input, a closed input and a terminal that another process group has in the foreground have no
// key.
bool KEPosixKbHit() noexcept;

// Takes one byte (0 to 255) from standard input, waiting for it but not for the line it stands in.
// -1 when there is none to come, when a signal cut the wait short, and in the background.
int KEPosixGetCh() noexcept;

// Remembers canonical and echo mode at construction and restores them in its destructor, whoever has changed
// them meanwhile.
class KEPosixTerminalMode {
public:
    KEPosixTerminalMode() noexcept;
    ~KEPosixTerminalMode();
    KEPosixTerminalMode(const KEPosixTerminalMode&) = delete;
    KEPosixTerminalMode& operator=(const KEPosixTerminalMode&) = delete;

    [[nodiscard]] KESTATUS SwitchCanonicalMode(bool enable) noexcept;
    [[nodiscard]] KESTATUS SwitchEchoMode(bool enable) noexcept;

private:
    termios mSavedModes{};
    bool mIsTerminal; // mSavedModes is valid
};

} // namespace kestrelon

#endif
