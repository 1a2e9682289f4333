// A text file of limited size with one backup: a file that has reached its limit is renamed to its own
// name plus ".bak", replacing an older backup, and a new file is begun. One thread at a time.
//
// This lies below the loggers that may write to it, so its failures go to the system log.
#ifndef KESTRELON_KELOGFILE_H
#define KESTRELON_KELOGFILE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "files/KEStdFileStream.h"
#include "kestatus.h"
#include "text/KEUnicode.h"

namespace kestrelon {

class KELogFile {
public:
    static constexpr unsigned DefaultFileSizeLimitKB = 20480;

    // Opens the file, closing an open one. Unless files are appended to, an existing file becomes the
    // backup first. KESTATUS_INVALID_PARAMETER for a null or empty name; the status of errno when the file
    // cannot be opened.
    [[nodiscard]] KESTATUS OpenLogFile(const T_UNICHAR* filePathAndName) noexcept;
    void CloseLogFile() noexcept;
    bool IsOpen() const noexcept { return mFile.IsOpen(); }

    // Write the data whole, then begin a new file if the limit is reached. KESTATUS_FAILED when not all
    // was written. A new file that cannot be opened leaves the log file closed.
    [[nodiscard]] KESTATUS WriteToLogFile(const void* data, std::size_t length) noexcept;
    [[nodiscard]] KESTATUS WriteToLogFileFormatted(const char* format, ...) noexcept
        __attribute__((format(printf, 2, 3)));

    // Empty while no file is open.
    const std::basic_string<T_UNICHAR>& FilePathAndName() const noexcept { return mFilePathAndName; }
    std::uint64_t CurrentFileSize() const noexcept { return mCurrentFileSize; } // bytes

    // Settings; they count from the next operation on.
    std::uint64_t mMaxFileSize = std::uint64_t{DefaultFileSizeLimitKB} * 1024; // bytes, 0: no limit
    bool mAppendToExistingFile = false;
    bool mFlushAfterEachWrite = false;
    bool mPermitSharing = true; // others may open the file meanwhile; a POSIX system always lets them

private:
    [[nodiscard]] KESTATUS OpenStream() noexcept;
    void AccountForWrite(std::size_t length) noexcept;
    void CheckFileSize() noexcept;
    void CreateBackupFile() noexcept;

    KEStdFileStream mFile;
    std::basic_string<T_UNICHAR> mFilePathAndName;
    std::uint64_t mCurrentFileSize = 0;
};

} // namespace kestrelon

#endif
