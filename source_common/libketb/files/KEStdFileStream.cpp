#include "files/KEStdFileStream.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>

#include "log/KELogging.h"

namespace kestrelon {

void KEStdFileStreamCloseFunction(std::FILE* file) noexcept {
    if (std::fclose(file) != 0) {
        const int err = errno;
        KEOutputLogMessage(logger::Global, KEWARN, KE_FUNCTION_TAG, "fclose failed, err={}", err);
    }
}

KESTATUS KEStdFileStream::OpenFile(const char* path, const char* mode) noexcept {
    CloseFile();
    mLastError = KESTATUS_SUCCESS;
    if (!path || !mode) {
        return KESTATUS_INVALID_PARAMETER;
    }
    mHandle = std::fopen(path, mode);
    if (!mHandle) {
        return KEStatusFromErrno(errno);
    }
    // The stream is for one thread at a time. A lock would cost more than the reading of a short block.
    __fsetlocking(mHandle, FSETLOCKING_BYCALLER);
    return KESTATUS_SUCCESS;
}

std::size_t KEStdFileStream::ReadFromFile(void* data, std::size_t length) noexcept {
    if (!mHandle) {
        return 0;
    }
    const std::size_t moved = std::fread(data, 1, length, mHandle);
    mLastError = moved == length || std::ferror(mHandle) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
    return moved;
}

std::size_t KEStdFileStream::WriteToFile(const void* data, std::size_t length) noexcept {
    if (!mHandle) {
        return 0;
    }
    const std::size_t moved = std::fwrite(data, 1, length, mHandle);
    mLastError = moved == length ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
    return moved;
}

bool KEStdFileStream::IsEndOfFile() const noexcept {
    return mHandle && std::feof(mHandle) != 0;
}

KESTATUS KEStdFileStream::Seek(long offset, int whence) noexcept {
    if (!mHandle) {
        return KESTATUS_NOT_OPENED;
    }
    if (std::fseek(mHandle, offset, whence) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "fseek failed, {}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEStdFileStream::Tell(std::size_t& position) noexcept {
    if (!mHandle) {
        return KESTATUS_NOT_OPENED;
    }
    const long told = std::ftell(mHandle);
    if (told < 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "ftell failed, {}", errno);
    }
    position = static_cast<std::size_t>(told);
    return KESTATUS_SUCCESS;
}

void KEStdFileStream::DisableBuffering() noexcept {
    if (mHandle) {
        std::setvbuf(mHandle, nullptr, _IONBF, 0);
    }
}

KESTATUS KEStdFileStream::TruncateFile(std::size_t length) noexcept {
    if (!mHandle) {
        return KESTATUS_NOT_OPENED;
    }
    if (ftruncate(fileno(mHandle), static_cast<off_t>(length)) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "ftruncate failed, {}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEStdFileStream::FlushFile() noexcept {
    if (!mHandle) {
        return KESTATUS_NOT_OPENED;
    }
    if (std::fflush(mHandle) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "fflush failed, {}", errno);
    }
    return KESTATUS_SUCCESS;
}

int KEStdFileStream::Printf(const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    const int written = VPrintf(format, args);
    va_end(args);
    return written;
}

int KEStdFileStream::VPrintf(const char* format, va_list args) noexcept {
    return mHandle ? std::vfprintf(mHandle, format, args) : -1;
}

KESTATUS KEStdFileRename(const char* oldPath, const char* newPath) noexcept {
    return std::rename(oldPath, newPath) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

KESTATUS KEStdFileRemove(const char* path) noexcept {
    return std::remove(path) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

} // namespace kestrelon
