// The instances of all back ends, as one enumeration lists them.
#ifndef QUAYSIDE2_DEVICELIST_H
#define QUAYSIDE2_DEVICELIST_H

#include <string_view>

#include "common/DeviceBackend.h"

namespace quayside2 {

// Lists the instances of all back ends. The environment variable QUAYSIDE2_DEVICES selects and orders them.
[[nodiscard]] KESTATUS ListDevices(DeviceInstances& instances);

// Returns the instances that names lists, in its order. names has friendly names separated by commas. Blanks
// around a name, unknown names and repetitions are ignored. When several instances have one name, the first
// is taken. An empty text selects all.
DeviceInstances SelectByName(const DeviceInstances& instances, std::string_view names);

} // namespace quayside2

#endif
