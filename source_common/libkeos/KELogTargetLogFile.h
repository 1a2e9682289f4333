// A log target that appends its lines to a file of limited size with one backup (KELogFile.h).
//
// The settings are made before the start, by the operations below or by the configuration under the target's
// name: "LogFile" (text), "AppendMode", "FlushAfterWrite" (non-zero: on) and "MaxFileSizeKB" (KiB, 0: no
// limit, negative: ignored). The file's name is expanded as a word of the shell, with variables, a leading ~
// and commands; quote blanks.
//
// Lines come from any thread and are written whole. Failures to write go to the system log, never to the
// caller: a target without a file drops its lines. Messages that the layers below log while a line is written
// go to the system log too, not into this file.
#ifndef KESTRELON_KELOGTARGETLOGFILE_H
#define KESTRELON_KELOGTARGETLOGFILE_H

#include <string>

#include "KEOsThreadMutex.h"
#include "files/KELogFile.h"
#include "log/KELogTarget.h"

namespace kestrelon {

class KELogTargetLogFile : public KELogTarget {
public:
    explicit KELogTargetLogFile(const char* name) noexcept : KELogTarget(name) {}
    ~KELogTargetLogFile() override;

    void SetLogFileName(const char* filePathAndName) noexcept;
    void EnableAppendToExistingFile(bool enable) noexcept;
    void EnableFlushAfterEachWrite(bool enable) noexcept;
    void SetMaxFileSizeKB(unsigned int kb) noexcept; // KiB, 0: no limit

    // Opens the file. KESTATUS_ALREADY_OPEN when already started; KESTATUS_INVALID_PARAMETER without a file
    // name; KESTATUS_FAILED when the name expands to nothing. configuration may be null.
    [[nodiscard]] KESTATUS StartTarget(KELogConfiguration* configuration) override;
    void StopTarget() override;
    void OutputMessage(KELogMessage& message, const KELogger& logger,
                       const KELogMsgMetaData& metaData) override;

private:
    [[nodiscard]] KESTATUS StartTargetImpl(KELogConfiguration* configuration);
    void ReadConfiguration(KELogConfiguration& configuration);
    [[nodiscard]] KESTATUS ExpandFileName();

    KEOsThreadMutexAutoCreate mMutex;
    std::string mFilePathAndName; // as configured; expanded by the start
    KELogFile mLogFile;
    bool mIsStarted = false;
};

} // namespace kestrelon

#endif
