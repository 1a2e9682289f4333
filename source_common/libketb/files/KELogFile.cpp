#include "files/KELogFile.h"

#include <new>

#include "kert_debug.h"

namespace kestrelon {

KESTATUS KELogFile::OpenLogFile(const T_UNICHAR* filePathAndName) noexcept {
    if (!filePathAndName) {
        KEOutputDebugString("%s: ERROR: %s: filePathAndName is null\n", KEModuleName(), __PRETTY_FUNCTION__);
        return KESTATUS_INVALID_PARAMETER;
    }
    if (!*filePathAndName) {
        KEOutputDebugString("%s: ERROR: %s: filePathAndName is empty\n", KEModuleName(), __PRETTY_FUNCTION__);
        return KESTATUS_INVALID_PARAMETER;
    }
    mFile.CloseFile();
    try {
        mFilePathAndName = filePathAndName;
    } catch (const std::bad_alloc&) {
        mFilePathAndName.clear();
        return KESTATUS_NO_MEMORY;
    }
    if (!mAppendToExistingFile) {
        CreateBackupFile();
    }
    return OpenStream();
}

KESTATUS KELogFile::OpenStream() noexcept {
    mCurrentFileSize = 0;
    KESTATUS st = mFile.OpenFile(mFilePathAndName.c_str(), mAppendToExistingFile ? "ab" : "wb");
    if (st != KESTATUS_SUCCESS) {
        KEOutputDebugString("%s: ERROR: %s: Open file '%s' failed, st=0x%08X\n", KEModuleName(),
                            __PRETTY_FUNCTION__, mFilePathAndName.c_str(), st);
        mFilePathAndName.clear();
        return st;
    }
    st = mFile.SeekToEnd();
    if (st != KESTATUS_SUCCESS) {
        KEOutputDebugString("%s: ERROR: %s: SeekToEnd failed (0x%08x)\n", KEModuleName(), __PRETTY_FUNCTION__,
                            st);
        return KESTATUS_SUCCESS;
    }
    std::size_t size = 0;
    st = mFile.Tell(size);
    if (st != KESTATUS_SUCCESS) {
        KEOutputDebugString("%s: ERROR: %s: Tell failed (0x%08x)\n", KEModuleName(), __PRETTY_FUNCTION__, st);
        return KESTATUS_SUCCESS;
    }
    mCurrentFileSize = size;
    return KESTATUS_SUCCESS;
}

void KELogFile::CloseLogFile() noexcept {
    mFile.CloseFile();
    mFilePathAndName.clear();
}

KESTATUS KELogFile::WriteToLogFile(const void* data, std::size_t length) noexcept {
    if (mFile.WriteToFile(data, length) != length) {
        KEOutputDebugString("%s: ERROR: %s: WriteToFile failed\n", KEModuleName(), __PRETTY_FUNCTION__);
        return KESTATUS_FAILED;
    }
    AccountForWrite(length);
    return KESTATUS_SUCCESS;
}

KESTATUS KELogFile::WriteToLogFileFormatted(const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    const int written = mFile.VPrintf(format, args);
    va_end(args);
    if (written < 0) {
        KEOutputDebugString("%s: ERROR: %s: PrintfV failed\n", KEModuleName(), __PRETTY_FUNCTION__);
        return KESTATUS_FAILED;
    }
    AccountForWrite(static_cast<std::size_t>(written));
    return KESTATUS_SUCCESS;
}

void KELogFile::AccountForWrite(std::size_t length) noexcept {
    if (mFlushAfterEachWrite) {
        static_cast<void>(mFile.FlushFile()); // a failure is logged there
    }
    mCurrentFileSize += length;
    CheckFileSize();
}

void KELogFile::CheckFileSize() noexcept {
    if (mMaxFileSize == 0 || mMaxFileSize > mCurrentFileSize) {
        return;
    }
    // The stream alone: the file's name is needed again.
    mFile.CloseFile();
    CreateBackupFile();
    static_cast<void>(OpenStream()); // a failure is reported there and leaves the log file closed
}

void KELogFile::CreateBackupFile() noexcept {
    try {
        const std::basic_string<T_UNICHAR> backup = mFilePathAndName + ".bak";
        // Usually there is no older backup, and at the first start no file either.
        KEStdFileRemove(backup.c_str());
        static_cast<void>(KEStdFileRename(mFilePathAndName.c_str(), backup.c_str()));
    } catch (const std::bad_alloc&) {
        // No backup then.
    }
}

} // namespace kestrelon
