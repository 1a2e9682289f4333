// The name of a device, for messages.
#ifndef FLOWLANE_DEVICENAME_H
#define FLOWLANE_DEVICENAME_H

#include <string>

#include "device/QuaysideDevice.h"

namespace flowlane {

// The friendly name of an opened device; empty when the device library does not tell it. It may have any
// bytes but zero. Ask while no other thread uses the device. Throws std::bad_alloc.
std::string DeviceName(const QuaysideDevice& device);

} // namespace flowlane

#endif
