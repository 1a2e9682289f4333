// A text file of limited size with one backup. A file that has reached its limit is renamed to its own name
// plus
// ".bak", which replaces an older backup, and a new file is begun. One thread at a time.
//
// Failures go to the system log, since log messages may end up in this very file.
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

    // Closes an open file and opens this one. An existing file becomes the backup first, unless files are
    // appended to. KESTATUS_INVALID_PARAMETER for a null or empty name; the status of errno when the file
    // cannot be opened.
    [[nodiscard]] KESTATUS OpenLogFile(const T_UNICHAR* filePathAndName) noexcept;
    void CloseLogFile() noexcept;
    bool IsOpen() const noexcept { return mFile.IsOpen(); }

    // Write all of the data, then begin a new file if the limit is reached. KESTATUS_FAILED when not all was
    // written. When a new file cannot be opened, the log file is closed.
    [[nodiscard]] KESTATUS WriteToLogFile(const void* data, std::size_t length) noexcept;
    [[nodiscard]] KESTATUS WriteToLogFileFormatted(const char* format, ...) noexcept
        __attribute__((format(printf, 2, 3)));

    // Empty while no file is open.
    const std::basic_string<T_UNICHAR>& FilePathAndName() const noexcept { return mFilePathAndName; }
    std::uint64_t CurrentFileSize() const noexcept { return mCurrentFileSize; } // bytes

    // Settings; they take effect with the next operation.
    std::uint64_t mMaxFileSize = std::uint64_t{DefaultFileSizeLimitKB} * 1024; // bytes, 0: no limit
    bool mAppendToExistingFile = false;
    bool mFlushAfterEachWrite = false;
    bool mPermitSharing = true; // others may open the file too; a POSIX system always lets them

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
