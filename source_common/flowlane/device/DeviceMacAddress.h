// Reading a device's own MAC address, for the stages that need it.
#ifndef FLOWLANE_DEVICEMACADDRESS_H
#define FLOWLANE_DEVICEMACADDRESS_H

#include "device/QuaysideDevice.h"
#include "kestatus.h"
#include "values/TNetAddress.h"

namespace flowlane {

// Failures are logged on Global and leave address alone: the device's status, or
//   KESTATUS_LENGTH_MISMATCH  what the device has for an address is not 6 bytes long
KESTATUS ReadDeviceMacAddress(QuaysideDevice& device, kestrelon::TNET_EthernetMacAddress& address);

} // namespace flowlane

#endif
