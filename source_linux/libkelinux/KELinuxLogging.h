// The Linux side of the logging facility.
#ifndef KESTRELON_KELINUXLOGGING_H
#define KESTRELON_KELINUXLOGGING_H

#include "kestatus.h"

namespace kestrelon {

// Names the module and starts logging without a configuration. A null moduleName stands for the name of
// the program's own file. configSource is not read. Returns the status of KEStartLogging, or that of
// finding the program's file.
[[nodiscard]] KESTATUS KELinuxInitLoggingFacility(const char* configSource, const char* moduleName);

} // namespace kestrelon

#endif
