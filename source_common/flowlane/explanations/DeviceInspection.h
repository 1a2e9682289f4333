// A look at the devices that takes none of them, for the explanation of a failure. With a device library that
// knows no such look, a device in use tells nothing.
//
// On the main thread, while no other thread runs: the environment is changed for a moment. The functions
// throw std::bad_alloc.
#ifndef FLOWLANE_DEVICEINSPECTION_H
#define FLOWLANE_DEVICEINSPECTION_H

#include <string>
#include <vector>

#include "device/QuaysideDevice.h"
#include "device/QuaysideEnumerator.h"

namespace flowlane {

class DeviceInspection {
public:
    // Which devices are listed: those that QUAYSIDE2_DEVICES selects, or all.
    enum class Selection { AsSet, All };

    explicit DeviceInspection(Selection selection);

    // The status of listing the devices.
    KESTATUS Status() const noexcept { return mStatus; }
    unsigned Count() const noexcept { return mCount; }
    // The text of a property; empty when the library does not tell it. index may be any number.
    std::string Text(unsigned index, unsigned property) const;
    std::string Name(unsigned index) const { return Text(index, QBX_PROPERTY_FRIENDLY_NAME); }
    // The names of all devices in the order of their indexes; empty ones for those that have none.
    std::vector<std::string> Names() const;
    // The status with which the device cannot be opened, as far as that can be told without taking it.
    KESTATUS OpenStatus(unsigned index) const;
    // Whether somebody holds all of the device.
    bool IsInUse(unsigned index) const;
    // The index of the first device of this name; Count() when there is none.
    unsigned Find(const std::string& name) const;

private:
    QuaysideEnumerator mEnumerator;
    KESTATUS mStatus;
    unsigned mCount = 0;
};

} // namespace flowlane

#endif
