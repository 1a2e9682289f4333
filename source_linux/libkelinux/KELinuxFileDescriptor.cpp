#include "KELinuxFileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "log/KELogging.h"

namespace kestrelon {

void KELinuxCloseFileDescriptor(int& descriptor) noexcept {
    const int closed = std::exchange(descriptor, -1);
    if (closed != -1 && close(closed) != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "close failed, errno={}", errno);
    }
}

KESTATUS KELinuxFileDescriptor::OpenFile(const char* path, int flags) noexcept {
    return OpenFile(path, flags, 0);
}

KESTATUS KELinuxFileDescriptor::OpenFile(const char* path, int flags, mode_t mode) noexcept {
    CloseHandle();
    mHandle = open(path, flags | O_CLOEXEC, mode);
    if (mHandle == InvalidHandleValue) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "open failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

} // namespace kestrelon
