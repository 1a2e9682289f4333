// The instances of all back ends, as one enumeration lists them.
#ifndef QUAYSIDE2_DEVICELIST_H
#define QUAYSIDE2_DEVICELIST_H

#include <string_view>

#include "common/DeviceBackend.h"

namespace quayside2 {

// Lists what the back ends offer, narrowed and ordered by the environment variable QUAYSIDE2_DEVICES.
[[nodiscard]] KESTATUS ListDevices(DeviceInstances& instances);

// Keeps the instances that names lists, in its order. names: friendly names separated by commas, blanks
// around a name do not count; unknown names and repetitions are ignored. Of several instances with one
// name the first is taken. An empty text keeps everything.
DeviceInstances SelectByName(const DeviceInstances& instances, std::string_view names);

} // namespace quayside2

#endif
