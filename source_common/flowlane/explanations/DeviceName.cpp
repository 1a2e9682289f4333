#include "explanations/DeviceName.h"

#include "explanations/MessageText.h"

namespace flowlane {

std::string DeviceName(const QuaysideDevice& device) {
    char name[QBX_PROPERTY_STRING_SIZE] = {};
    const KESTATUS st = device.GetDevicePropertyString(QBX_PROPERTY_FRIENDLY_NAME, name, sizeof name);
    return st == KESTATUS_SUCCESS ? name : "";
}

std::string DeviceSubject(const QuaysideDevice& device) {
    const std::string name = DeviceName(device);
    return name.empty() ? "The device" : "Device " + Quoted(name);
}

} // namespace flowlane
