// What a log message is stamped with.
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

// Fills metaData for a message that the calling thread emits now. The platform's side defines it.
void KEInitLogMsgMetaData(KELogMsgMetaData& metaData, KELogLevel level) noexcept;

} // namespace kestrelon

#endif
