// The name of a device, for messages.
#ifndef FLOWLANE_DEVICENAME_H
#define FLOWLANE_DEVICENAME_H

#include <string>

#include "device/QuaysideDevice.h"

namespace flowlane {

// The friendly name of an opened device; empty when the device library does not tell it. It may have any
// bytes but zero. Ask while no other thread uses the device. Throws std::bad_alloc.
std::string DeviceName(const QuaysideDevice& device);

// "Device 'x'", or "The device" when it has no name: the start of a sentence. The same rules.
std::string DeviceSubject(const QuaysideDevice& device);

} // namespace flowlane

#endif
