// A file descriptor, owned: closed by the destructor and when replaced, moved but not copied. One thread at a
// time.
#ifndef KESTRELON_KELINUXFILEDESCRIPTOR_H
#define KESTRELON_KELINUXFILEDESCRIPTOR_H

#include <sys/types.h>

#include "base/KEUniqueHandle.h"
#include "kestatus.h"

namespace kestrelon {

// Closes the descriptor, unless it is -1, and sets it to -1 either way. A failure is logged.
void KELinuxCloseFileDescriptor(int& descriptor) noexcept;

class KELinuxFileDescriptor : public KEUniqueHandleT<int, -1, KELinuxCloseFileDescriptor> {
public:
    using KEUniqueHandleT::KEUniqueHandleT;

    // Close what is open, then open path; the descriptor is closed on exec. flags and mode as for open. A
    // failure is logged and gives the status of errno; the descriptor is invalid then.
    [[nodiscard]] KESTATUS OpenFile(const char* path, int flags) noexcept;
    [[nodiscard]] KESTATUS OpenFile(const char* path, int flags, mode_t mode) noexcept;
};

} // namespace kestrelon

#endif
