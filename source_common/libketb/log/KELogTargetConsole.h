// The console as a log target: severe lines go to standard error, the others to standard output. Each line is
// flushed at once; a failure to write is ignored. Lines of several threads never mix within a line.
#ifndef KESTRELON_KELOGTARGETCONSOLE_H
#define KESTRELON_KELOGTARGETCONSOLE_H

#include "log/KELogTarget.h"

namespace kestrelon {

class KELogTargetConsole : public KELogTarget {
public:
    // Messages of the level stdErrLimit and more severe ones go to standard error.
    KELogTargetConsole(const char* name, KELogLevel stdErrLimit) noexcept
        : KELogTarget(name), mStdErrLimit(stdErrLimit) {}

    void OutputMessage(KELogMessage& message, const KELogger& logger,
                       const KELogMsgMetaData& metaData) override;

private:
    KELogLevel mStdErrLimit;
};

} // namespace kestrelon

#endif
