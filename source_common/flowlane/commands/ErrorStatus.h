// The exit code of a command that has run to its end. It is 0 whatever was lost on the way, unless the user
// has asked for more with -es: then it is the status of what was lost, skipped, cut short or not sent. The
// main thread uses it.
#ifndef FLOWLANE_ERRORSTATUS_H
#define FLOWLANE_ERRORSTATUS_H

#include "commands/CmdLine.h"
#include "kestatus.h"

namespace flowlane {

class ErrorStatus {
public:
    // Notes what went wrong; success is nothing. The first note counts, so the gravest comes first.
    void Note(KESTATUS st) noexcept {
        if (mStatus == KESTATUS_SUCCESS) {
            mStatus = st;
        }
    }
    void NoteIf(bool condition, KESTATUS st) noexcept { Note(condition ? st : KESTATUS_SUCCESS); }

    [[nodiscard]] KESTATUS ExitStatus() const noexcept {
        return gCmdLine.mErrorStatus ? mStatus : KESTATUS_SUCCESS;
    }

private:
    KESTATUS mStatus = KESTATUS_SUCCESS;
};

} // namespace flowlane

#endif
