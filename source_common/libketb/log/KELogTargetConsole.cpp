#include "log/KELogTargetConsole.h"

#include <cstdio>

namespace kestrelon {

void KELogTargetConsole::OutputMessage(KELogMessage& message, const KELogger& logger,
                                       const KELogMsgMetaData& metaData) {
    message.CreatePrefix(mPrefixLayout, &logger, metaData);
    std::FILE* stream = metaData.mMsgLevel <= mStdErrLimit ? stderr : stdout;
    // A console that cannot be written to must not stop the work: failures are ignored.
    static_cast<void>(std::fprintf(stream, "%s%s\n", message.Prefix(), message.Text()));
    static_cast<void>(std::fflush(stream));
}

} // namespace kestrelon
