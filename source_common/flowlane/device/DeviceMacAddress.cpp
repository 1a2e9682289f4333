#include "device/DeviceMacAddress.h"

#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

KESTATUS ReadDeviceMacAddress(QuaysideDevice& device, TNET_EthernetMacAddress& address,
                              const MacAddressFailureTexts& texts) {
    TNET_EthernetMacAddress found{};
    constexpr unsigned cExpectedSize = sizeof found.mac;
    unsigned size = 0;
    const KESTATUS st =
        device.GetDevicePropertyBinary(QBX_PROPERTY_MAC_ADDRESS, found.mac, cExpectedSize, &size);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, texts.readFailed, st);
    }
    if (size != cExpectedSize) {
        KEOutputLogMessage(logger::Global, KEERROR, texts.sizeMismatch, size, cExpectedSize);
        return KESTATUS_LENGTH_MISMATCH;
    }
    address = found;
    return KESTATUS_SUCCESS;
}

} // namespace flowlane
