// Reading a device's own MAC address, for the stages that need it.
#ifndef FLOWLANE_DEVICEMACADDRESS_H
#define FLOWLANE_DEVICEMACADDRESS_H

#include "device/QuaysideDevice.h"
#include "kestatus.h"
#include "values/TNetAddress.h"

namespace flowlane {

// The texts of the failures, which differ from stage to stage.
struct MacAddressFailureTexts {
    const char* readFailed = "GetDevicePropertyBinary failed, st={}";         // the status
    const char* sizeMismatch = "MAC address length mismatch, got {}, exp {}"; // the size found, and 6
};

// Failures are logged on Global and leave address unchanged: the device's status, or
//   KESTATUS_LENGTH_MISMATCH  the device's address does not have 6 bytes
[[nodiscard]] KESTATUS ReadDeviceMacAddress(QuaysideDevice& device,
                                            kestrelon::TNET_EthernetMacAddress& address,
                                            const MacAddressFailureTexts& texts = {});

} // namespace flowlane

#endif
