// The time, process, thread and level of a log message.
#ifndef KESTRELON_KELOGMSGMETADATA_H
#define KESTRELON_KELOGMSGMETADATA_H

#include <cstdint>

#include "log/KELogLevel.h"

namespace kestrelon {

struct KELogMsgMetaData {
    std::int64_t mTimestamp = 0; // microseconds of the monotonic clock
    std::int64_t mProcessID = 0;
    std::int64_t mThreadID = 0; // the kernel's thread id
    KELogLevel mMsgLevel = KEOFF;
};

// Fills metaData for a message that the calling thread emits now. Never fails.
//
// Defined in source_linux/libkelinux/KELinuxLogging.cpp, since clock, process and thread ids are the
// platform's. So the logging needs libkelinux when it is linked, though it includes nothing of it. That is
// why all toolbox libraries are linked as one archive.
void KEInitLogMsgMetaData(KELogMsgMetaData& metaData, KELogLevel level) noexcept;

} // namespace kestrelon

#endif
