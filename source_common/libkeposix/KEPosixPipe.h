// A pipe, for waking a thread that waits for descriptors. It owns both ends, which are closed on exec. One
// thread reads, any thread may write. Create and close it while nobody uses it. Failures of system calls are
// logged.
#ifndef KESTRELON_KEPOSIXPIPE_H
#define KESTRELON_KEPOSIXPIPE_H

#include "kestatus.h"

namespace kestrelon {

class KEPosixPipe {
public:
    static constexpr int InvalidFileDescriptor = -1;

    KEPosixPipe() = default;
    ~KEPosixPipe() { ClosePipe(); }
    KEPosixPipe(const KEPosixPipe&) = delete;
    KEPosixPipe& operator=(const KEPosixPipe&) = delete;

    // With nonBlocking neither end ever waits. KESTATUS_ALREADY_DONE while an end is open. After a failure
    // both are closed.
    [[nodiscard]] KESTATUS CreatePipe(bool nonBlocking) noexcept;

    // Writes one byte. A full non-blocking pipe gives the status of EAGAIN; its reader wakes up anyway.
    // KESTATUS_NOT_OPENED when the write end is closed.
    [[nodiscard]] KESTATUS WriteChar(char character) noexcept;
    // Discards what is in the pipe now. Never waits. KESTATUS_NOT_OPENED when the read end is closed.
    [[nodiscard]] KESTATUS ReadUntilEmpty() noexcept;

    void CloseReadEnd() noexcept { CloseEnd(0); }
    void CloseWriteEnd() noexcept { CloseEnd(1); }
    void ClosePipe() noexcept;

    // For select and poll; InvalidFileDescriptor when closed. The descriptors still belong to the pipe.
    int ReadEnd() const noexcept { return mFileDescriptors[0]; }
    int WriteEnd() const noexcept { return mFileDescriptors[1]; }

private:
    void CloseEnd(unsigned end) noexcept;

    int mFileDescriptors[2] = {InvalidFileDescriptor, InvalidFileDescriptor}; // read end, write end
};

} // namespace kestrelon

#endif
