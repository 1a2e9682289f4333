#include "explanations/CommandLineDevices.h"

#include <cstdlib>

#include "device/QuaysideDevice.h"
#include "device/QuaysideEnumerator.h"
#include "explanations/DeviceName.h"

namespace flowlane {

namespace {

// Lets the device library open devices without taking them.
class Inspection {
public:
    Inspection() : mWasSet(std::getenv(cVariable) != nullptr) {
        if (!mWasSet) {
            setenv(cVariable, "1", 1);
        }
    }
    ~Inspection() {
        if (!mWasSet) {
            unsetenv(cVariable);
        }
    }
    Inspection(const Inspection&) = delete;
    Inspection& operator=(const Inspection&) = delete;

private:
    static constexpr const char* cVariable = "QUAYSIDE2_INSPECT";
    bool mWasSet;
};

} // namespace

std::vector<std::string> ConnectedDeviceNames() {
    const Inspection inspection;
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    std::vector<std::string> names;
    if (enumerator.EnumerateDevices(QBXDeviceType_any, count) != KESTATUS_SUCCESS) {
        return names;
    }
    for (unsigned index = 0; index < count; ++index) {
        QuaysideDevice device;
        const bool isOpen = device.OpenControlDevice(enumerator, index) == KESTATUS_SUCCESS;
        names.push_back(isOpen ? DeviceName(device) : "");
    }
    return names;
}

} // namespace flowlane
