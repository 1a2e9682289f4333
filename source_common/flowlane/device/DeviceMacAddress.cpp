#include "device/DeviceMacAddress.h"

#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

KESTATUS ReadDeviceMacAddress(QuaysideDevice& device, TNET_EthernetMacAddress& address) {
    TNET_EthernetMacAddress found{};
    constexpr unsigned cSize = sizeof found.mac;
    unsigned length = 0;
    const KESTATUS st = device.GetDevicePropertyBinary(QBX_PROPERTY_MAC_ADDRESS, found.mac, cSize, &length);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "GetDevicePropertyBinary failed, st={}", st);
    }
    if (length != cSize) {
        KEOutputLogMessage(logger::Global, KEERROR, "MAC address length mismatch, got {}, exp {}", length,
                           cSize);
        return KESTATUS_LENGTH_MISMATCH;
    }
    address = found;
    return KESTATUS_SUCCESS;
}

} // namespace flowlane
