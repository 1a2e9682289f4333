// The Linux side of the logging facility. KELinuxLogging.cpp also defines KEInitLogMsgMetaData
// (log/KELogMsgMetaData.h).
#ifndef KESTRELON_KELINUXLOGGING_H
#define KESTRELON_KELINUXLOGGING_H

#include "kestatus.h"

namespace kestrelon {

// Names the module and starts logging without a configuration, before other threads run. When moduleName is
// null, the name of the program's own file is taken. configSource is not read. Returns the status of
// KEStartLogging; when the program's file cannot be found, the status of that, and logging is not started.
[[nodiscard]] KESTATUS KELinuxInitLoggingFacility(const char* configSource, const char* moduleName);

} // namespace kestrelon

#endif
