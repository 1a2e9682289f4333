// What the user is told about a device: why it could not be opened, that its link is down, that it is gone.
// Each function prints one line behind the message of the failure. On the main thread, while no other thread
// runs, except where it says otherwise. When there is no memory for the line, there is no line.
#ifndef FLOWLANE_DEVICEEXPLANATION_H
#define FLOWLANE_DEVICEEXPLANATION_H

#include "device/QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

enum class DeviceUse { Send, Receive };

struct WantedDevice {
    const char* name; // null: the index decides
    unsigned index;
    DeviceUse use;
};

// Why opening a device has failed with a status. Looks at the devices once more and takes none. The list may
// have changed since, which the line then does not show.
void ExplainFailedOpening(KESTATUS st, const WantedDevice& wanted) noexcept;

// Says that the link of an opened device is down, if it is. Costs the reading of a property.
void ExplainLinkDown(const QuaysideDevice& device, DeviceUse use) noexcept;

// Why a device has failed while it was used: that it was removed. Nothing for other statuses. Other threads
// may run, but none that uses the device.
void ExplainDeviceFailure(KESTATUS st, const QuaysideDevice& device) noexcept;

} // namespace flowlane

#endif
