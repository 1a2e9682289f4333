#include "device/DeviceMacAddress.h"

#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

KESTATUS ReadDeviceMacAddress(QuaysideDevice& device, TNET_EthernetMacAddress& address) {
    return ReadDeviceMacAddress(device, address, "GetDevicePropertyBinary failed, st={}",
                                "MAC address length mismatch, got {}, exp {}");
}

KESTATUS ReadDeviceMacAddress(QuaysideDevice& device, TNET_EthernetMacAddress& address,
                              const char* readFailed, const char* sizeMismatch) {
    TNET_EthernetMacAddress found{};
    constexpr unsigned cExpectedSize = sizeof found.mac;
    unsigned size = 0;
    const KESTATUS st =
        device.GetDevicePropertyBinary(QBX_PROPERTY_MAC_ADDRESS, found.mac, cExpectedSize, &size);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, readFailed, st);
    }
    if (size != cExpectedSize) {
        KEOutputLogMessage(logger::Global, KEERROR, sizeMismatch, size, cExpectedSize);
        return KESTATUS_LENGTH_MISMATCH;
    }
    address = found;
    return KESTATUS_SUCCESS;
}

} // namespace flowlane
