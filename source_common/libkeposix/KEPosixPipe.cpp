#include "KEPosixPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "log/KELogging.h"

namespace kestrelon {

namespace {

// 0, or the errno of the failure.
int SetNonBlocking(int descriptor) noexcept {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags != -1 && fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != -1 ? 0 : errno;
}

} // namespace

KESTATUS KEPosixPipe::CreatePipe(bool nonBlocking) noexcept {
    if (ReadEnd() != InvalidFileDescriptor || WriteEnd() != InvalidFileDescriptor) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    if (pipe2(mFileDescriptors, O_CLOEXEC) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pipe failed, err={}", errno);
    }
    if (nonBlocking) {
        if (const int err = SetNonBlocking(ReadEnd())) {
            const KESTATUS st = KEOutputSystemError(KE_FUNCTION_TAG, "fcntl(read end) failed, err={}", err);
            ClosePipe();
            return st;
        }
        if (const int err = SetNonBlocking(WriteEnd())) {
            const KESTATUS st = KEOutputSystemError(KE_FUNCTION_TAG, "fcntl(write end) failed, err={}", err);
            ClosePipe();
            return st;
        }
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixPipe::WriteChar(char character) noexcept {
    if (WriteEnd() == InvalidFileDescriptor) {
        return KESTATUS_NOT_OPENED;
    }
    int err = EPIPE; // without a reader the write would raise SIGPIPE
    if (ReadEnd() != InvalidFileDescriptor) {
        ssize_t written;
        do {
            written = write(WriteEnd(), &character, 1);
        } while (written == -1 && errno == EINTR);
        if (written == 1) {
            return KESTATUS_SUCCESS;
        }
        err = errno;
    }
    return KEOutputSystemError(KE_FUNCTION_TAG, "write failed, err={}", err);
}

KESTATUS KEPosixPipe::ReadUntilEmpty() noexcept {
    if (ReadEnd() == InvalidFileDescriptor) {
        return KESTATUS_NOT_OPENED;
    }
    char discarded[64];
    // Asked before each read, so that a blocking pipe does not wait either.
    pollfd readable = {ReadEnd(), POLLIN, 0};
    while (poll(&readable, 1, 0) == 1) {
        const ssize_t count = read(ReadEnd(), discarded, sizeof discarded);
        if (count == 0 || (count == -1 && errno == EAGAIN)) {
            break;
        }
        if (count == -1 && errno != EINTR) {
            return KEOutputSystemError(KE_FUNCTION_TAG, "read failed, err={}", errno);
        }
    }
    return KESTATUS_SUCCESS;
}

void KEPosixPipe::ClosePipe() noexcept {
    CloseReadEnd();
    CloseWriteEnd();
}

void KEPosixPipe::CloseEnd(unsigned end) noexcept {
    const int descriptor = std::exchange(mFileDescriptors[end], InvalidFileDescriptor);
    if (descriptor != InvalidFileDescriptor && close(descriptor) != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "close failed, err={}", errno);
    }
}

} // namespace kestrelon
