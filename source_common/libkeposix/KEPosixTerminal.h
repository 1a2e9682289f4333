// Keys and modes of the terminal on standard input. The terminal belongs to the whole process: use these
// from one thread.
//
// Modes are changed only while the process is in the foreground of the terminal: the system stops a process
// that changes them in the background. A terminal that is not the controlling one has no background. Standard
// input that is no terminal has no modes. Nothing is logged.
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

// The first switches canonical and echo mode off in one step, so that keys come one by one and are not shown;
// on success, found gets the modes of before. The second restores canonical and echo mode from found and
// leaves the other modes alone. Signal handlers may call both. Statuses as above.
[[nodiscard]] KESTATUS KEPosixSwitchToDirectKeys(termios& found) noexcept;
[[nodiscard]] KESTATUS KEPosixRestoreKeyModes(const termios& found) noexcept;

// Discards the keys that nobody has read. Does nothing in the background and without a terminal. Signal
// handlers may call it.
void KEPosixDiscardKeys() noexcept;

// Whether a byte can be read from standard input, even before the line is finished. Never waits. False at the
// end of the input, when it is closed, and in the background of a terminal.
bool KEPosixKbHit() noexcept;

// Waits for one byte of standard input (0 to 255), but not for the end of its line. -1 at the end of the
// input, when a signal ends the wait, and in the background.
int KEPosixGetCh() noexcept;

// Remembers canonical and echo mode at construction. Its destructor restores them, no matter who has changed
// them.
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
