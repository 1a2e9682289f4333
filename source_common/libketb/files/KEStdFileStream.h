// A file of the C library, owned: closed by the destructor, moved but not copied. One thread at a time.
//
// Operations on a stream that is not open return KESTATUS_NOT_OPENED or move no bytes. Seek, Tell,
// TruncateFile, FlushFile and closing log their failures; the caller reports those of opening, reading and
// writing, and LastError says why they failed.
#ifndef KESTRELON_KESTDFILESTREAM_H
#define KESTRELON_KESTDFILESTREAM_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "base/KEUniqueHandle.h"
#include "kestatus.h"

namespace kestrelon {

// Closes file; a failure (written data may be lost) is a warning in the log.
void KEStdFileStreamCloseFunction(std::FILE* file) noexcept;

class KEStdFileStream : public KEUniqueHandleT<std::FILE*, nullptr, KEStdFileStreamCloseFunction> {
public:
    // Closes an open file first. path and mode as for fopen; the status of errno on failure.
    [[nodiscard]] KESTATUS OpenFile(const char* path, const char* mode) noexcept;
    void CloseFile() noexcept { CloseHandle(); }
    bool IsOpen() const noexcept { return IsValidHandle(); }

    // Return the bytes moved: fewer than length at the end of the file or after an error.
    std::size_t ReadFromFile(void* data, std::size_t length) noexcept;
    std::size_t WriteToFile(const void* data, std::size_t length) noexcept;

    // Why the last read or write moved fewer bytes than asked: the status of errno. Success when it moved
    // all, when it met the end of the file, and behind OpenFile. Closing keeps it.
    [[nodiscard]] KESTATUS LastError() const noexcept { return mLastError; }

    // Back to the start. Every successful seek clears the end-of-file state.
    [[nodiscard]] KESTATUS RewindFile() noexcept { return Seek(0, SEEK_SET); }
    // True once a read has hit the end of the file, until the next successful seek.
    bool IsEndOfFile() const noexcept;

    // offset in bytes from whence (SEEK_SET, SEEK_CUR, SEEK_END).
    [[nodiscard]] KESTATUS Seek(long offset, int whence) noexcept;
    [[nodiscard]] KESTATUS SeekToEnd() noexcept { return Seek(0, SEEK_END); }
    // The position in bytes from the start; left alone on failure.
    [[nodiscard]] KESTATUS Tell(std::size_t& position) noexcept;
    // From now on every write goes to the system at once. To be called right after opening.
    void DisableBuffering() noexcept;
    // Cuts the file, or extends it with zeros, to length bytes; the position stays.
    [[nodiscard]] KESTATUS TruncateFile(std::size_t length) noexcept;
    // Hands what is buffered to the system.
    [[nodiscard]] KESTATUS FlushFile() noexcept;

    // Return the bytes written, negative on failure.
    int Printf(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    int VPrintf(const char* format, va_list args) noexcept __attribute__((format(printf, 2, 0)));

private:
    KESTATUS mLastError = KESTATUS_SUCCESS;
};

// Success or the status of errno. An existing file of the new name is replaced.
[[nodiscard]] KESTATUS KEStdFileRename(const char* oldPath, const char* newPath) noexcept;
// The status may be ignored: whoever removes a file seldom minds that there is none.
KESTATUS KEStdFileRemove(const char* path) noexcept;

} // namespace kestrelon

#endif
