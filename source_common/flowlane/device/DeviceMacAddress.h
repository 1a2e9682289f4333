// Reading a device's own MAC address, for the stages that need it.
#ifndef FLOWLANE_DEVICEMACADDRESS_H
#define FLOWLANE_DEVICEMACADDRESS_H

#include "device/QuaysideDevice.h"
#include "kestatus.h"
#include "values/TNetAddress.h"

namespace flowlane {

// Failures are logged on Global and leave address unchanged: the device's status, or
//   KESTATUS_LENGTH_MISMATCH  the device's address does not have 6 bytes
[[nodiscard]] KESTATUS ReadDeviceMacAddress(QuaysideDevice& device,
                                            kestrelon::TNET_EthernetMacAddress& address);
// With texts of the caller: readFailed has one field, for the status; sizeMismatch has two, for the size
// found and the size expected.
[[nodiscard]] KESTATUS ReadDeviceMacAddress(QuaysideDevice& device,
                                            kestrelon::TNET_EthernetMacAddress& address,
                                            const char* readFailed, const char* sizeMismatch);

} // namespace flowlane

#endif
