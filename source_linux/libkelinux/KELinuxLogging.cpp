#include "KELinuxLogging.h"

#include <cstdint>

#include <time.h>
#include <unistd.h>

#include "KELinuxModuleFileName.h"
#include "KELinuxThreadId.h"
#include "kert_debug.h"
#include "log/KELogging.h"

namespace kestrelon {

void KEInitLogMsgMetaData(KELogMsgMetaData& metaData, KELogLevel level) noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    metaData.mTimestamp = static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
    metaData.mProcessID = getpid();
    metaData.mThreadID = KELinuxGetKernelThreadId();
    metaData.mMsgLevel = level;
}

KESTATUS KELinuxInitLoggingFacility(const char* /*configSource*/, const char* moduleName) {
    KELinuxModuleFileName programFile;
    if (!moduleName) {
        const KESTATUS st = programFile.InitWithProcessId(getpid());
        if (st != KESTATUS_SUCCESS) {
            KEOutputDebugString("ERROR: %s: Cannot get module file name, st=0x%08x.\n", __PRETTY_FUNCTION__,
                                st);
            return st;
        }
        moduleName = programFile.BaseName().c_str();
    }
    KESetLogModuleName(moduleName);
    KELogConfiguration configuration;
    return KEStartLogging(&configuration);
}

} // namespace kestrelon
