#include "KELogTargetLogFile.h"

#include <cstdint>
#include <mutex>
#include <new>

#include "KELinuxWordExp.h"
#include "kert_debug.h"
#include "text/KEStringUtils.h"

namespace kestrelon {

namespace {

// True while this thread writes a line. A message that the layers below log meanwhile must not be written in
// turn: it would fail as they did, and so on without end.
thread_local bool sIsWriting = false;

} // namespace

KELogTargetLogFile::~KELogTargetLogFile() {
    // Before the members are destroyed: closing the file may log, and the message would come here.
    DetachFromAllLoggers();
    KELogTargetLogFile::StopTarget();
}

void KELogTargetLogFile::SetLogFileName(const char* filePathAndName) noexcept {
    const std::lock_guard guard(mMutex);
    try {
        mFilePathAndName = filePathAndName ? filePathAndName : "";
    } catch (const std::bad_alloc&) {
        mFilePathAndName.clear(); // the start reports the missing name
    }
}

void KELogTargetLogFile::EnableAppendToExistingFile(bool enable) noexcept {
    const std::lock_guard guard(mMutex);
    mLogFile.mAppendToExistingFile = enable;
}

void KELogTargetLogFile::EnableFlushAfterEachWrite(bool enable) noexcept {
    const std::lock_guard guard(mMutex);
    mLogFile.mFlushAfterEachWrite = enable;
}

void KELogTargetLogFile::SetMaxFileSizeKB(unsigned int kb) noexcept {
    const std::lock_guard guard(mMutex);
    mLogFile.mMaxFileSize = std::uint64_t{kb} * 1024;
}

KESTATUS KELogTargetLogFile::StartTarget(KELogConfiguration* configuration) {
    const std::lock_guard guard(mMutex);
    try {
        return StartTargetImpl(configuration);
    } catch (const std::bad_alloc&) {
        return KESTATUS_NO_MEMORY;
    }
}

KESTATUS KELogTargetLogFile::StartTargetImpl(KELogConfiguration* configuration) {
    if (mIsStarted) {
        KEOutputDebugString("%s: WARNING: %s: already started\n", KEModuleName(), __PRETTY_FUNCTION__);
        return KESTATUS_ALREADY_OPEN;
    }
    if (configuration) {
        ReadConfiguration(*configuration);
    }
    if (!mFilePathAndName.empty()) {
        const KESTATUS st = ExpandFileName();
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    const KESTATUS st = mLogFile.OpenLogFile(mFilePathAndName.c_str());
    if (st != KESTATUS_SUCCESS) {
        KEOutputDebugString("%s: ERROR: %s: OpenLogFile(%s) failed, st=0x%08X\n", KEModuleName(),
                            __PRETTY_FUNCTION__, mFilePathAndName.c_str(), st);
        return st;
    }
    mIsStarted = true;
    return KESTATUS_SUCCESS;
}

void KELogTargetLogFile::ReadConfiguration(KELogConfiguration& configuration) {
    std::string fileName;
    if (configuration.ReadLogTargetParameter(Name(), "LogFile", fileName) == KESTATUS_SUCCESS) {
        KEStringTrimBeginEnd(fileName.data());
        fileName.resize(KEStringLen(fileName.c_str()));
        mFilePathAndName = fileName;
    }
    int value = 0;
    if (configuration.ReadLogTargetParameter(Name(), "AppendMode", value) == KESTATUS_SUCCESS) {
        mLogFile.mAppendToExistingFile = value != 0;
    }
    if (configuration.ReadLogTargetParameter(Name(), "FlushAfterWrite", value) == KESTATUS_SUCCESS) {
        mLogFile.mFlushAfterEachWrite = value != 0;
    }
    if (configuration.ReadLogTargetParameter(Name(), "MaxFileSizeKB", value) == KESTATUS_SUCCESS &&
        value >= 0) {
        mLogFile.mMaxFileSize = static_cast<std::uint64_t>(value) * 1024;
    }
}

KESTATUS KELogTargetLogFile::ExpandFileName() {
    KELinuxWordExp words;
    const KESTATUS st = words.ExpandString(mFilePathAndName.c_str(), 0);
    if (st != KESTATUS_SUCCESS) {
        KEOutputDebugString("%s: ERROR: %s: ExpandString('%s') failed, st=0x%08X\n", KEModuleName(),
                            __PRETTY_FUNCTION__, mFilePathAndName.c_str(), st);
        return st;
    }
    if (words.WordCount() == 0) {
        KEOutputDebugString("%s: ERROR: %s: no expanded strings for '%s'\n", KEModuleName(),
                            __PRETTY_FUNCTION__, mFilePathAndName.c_str());
        return KESTATUS_FAILED;
    }
    if (words.WordCount() > 1) {
        KEOutputDebugString("%s: WARNING: %s: unexpected number of file names %zu, use first name\n",
                            KEModuleName(), __PRETTY_FUNCTION__, words.WordCount());
    }
    mFilePathAndName = words.Word(0);
    return KESTATUS_SUCCESS;
}

void KELogTargetLogFile::StopTarget() {
    const std::lock_guard guard(mMutex);
    mLogFile.CloseLogFile();
    mIsStarted = false;
}

void KELogTargetLogFile::OutputMessage(KELogMessage& message, const KELogger& logger,
                                       const KELogMsgMetaData& metaData) {
    if (sIsWriting) {
        KEOutputDebugString("%s: ERROR: %s: %s\n", KEModuleName(), __PRETTY_FUNCTION__, message.Text());
        return;
    }
    message.CreatePrefix(mPrefixLayout, &logger, metaData);
    sIsWriting = true;
    {
        const std::lock_guard guard(mMutex);
        if (mIsStarted && mLogFile.IsOpen()) {
            const KESTATUS st = mLogFile.WriteToLogFileFormatted("%s%s\n", message.Prefix(), message.Text());
            if (st != KESTATUS_SUCCESS) {
                KEOutputDebugString("%s: ERROR: %s: WriteToLogFileFormatted(%s%s) failed, st=0x%08x\n",
                                    KEModuleName(), __PRETTY_FUNCTION__, message.Prefix(), message.Text(),
                                    st);
            }
        }
    }
    sIsWriting = false;
}

} // namespace kestrelon
