#include "explanations/DeviceInspection.h"

#include <cstdlib>
#include <optional>

namespace flowlane {

namespace {

// Sets an environment variable, or removes it when value is null, until the end of its life.
class EnvironmentChange {
public:
    EnvironmentChange(const char* name, const char* value) : mName(name) {
        if (const char* const old = std::getenv(name)) {
            mOld = old;
        }
        Set(value);
    }
    ~EnvironmentChange() { Set(mOld ? mOld->c_str() : nullptr); }
    EnvironmentChange(const EnvironmentChange&) = delete;
    EnvironmentChange& operator=(const EnvironmentChange&) = delete;

private:
    void Set(const char* value) const { value ? setenv(mName, value, 1) : unsetenv(mName); }

    const char* mName;
    std::optional<std::string> mOld;
};

// The text of a property, and the status of asking for it or of opening the device.
KESTATUS ReadText(const QuaysideEnumerator& enumerator, unsigned index, unsigned property,
                  std::string& text) {
    QuaysideDevice device;
    KESTATUS st = device.OpenControlDevice(enumerator, index);
    if (st == KESTATUS_SUCCESS) {
        char value[QBX_PROPERTY_STRING_SIZE] = {};
        st = device.GetDevicePropertyString(property, value, sizeof value);
        text = st == KESTATUS_SUCCESS ? value : "";
    }
    return st;
}

} // namespace

// An enumeration keeps what the environment says when it is made.
DeviceInspection::DeviceInspection(Selection selection) {
    const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1");
    std::optional<EnvironmentChange> all;
    if (selection == Selection::All) {
        all.emplace("QUAYSIDE2_DEVICES", nullptr);
    }
    mStatus = mEnumerator.EnumerateDevices(QBXDeviceType_any, mCount);
}

std::string DeviceInspection::Text(unsigned index, unsigned property) const {
    std::string text;
    static_cast<void>(ReadText(mEnumerator, index, property, text)); // empty when it fails
    return text;
}

std::vector<std::string> DeviceInspection::Names() const {
    std::vector<std::string> names;
    for (unsigned index = 0; index < mCount; ++index) {
        names.push_back(Name(index));
    }
    return names;
}

KESTATUS DeviceInspection::OpenStatus(unsigned index) const {
    std::string state;
    const KESTATUS st = ReadText(mEnumerator, index, QBX_PROPERTY_STATE, state);
    return st == KESTATUS_NOT_FOUND ? KESTATUS_SUCCESS : st; // a library without the property
}

bool DeviceInspection::IsInUse(unsigned index) const {
    std::string state;
    const KESTATUS st = ReadText(mEnumerator, index, QBX_PROPERTY_STATE, state);
    return st == KESTATUS_IN_USE || state == "in use";
}

unsigned DeviceInspection::Find(const std::string& name) const {
    unsigned index = 0;
    while (index < mCount && Name(index) != name) {
        ++index;
    }
    return index;
}

} // namespace flowlane
