// Choosing a device by index or by friendly name, and opening it for raw transmission or reception.
// The index is that of gCmdLine. All lines go to the Cons logger. Called from the main thread.
#ifndef FLOWLANE_DEVICESELECTION_H
#define FLOWLANE_DEVICESELECTION_H

#include <string>

#include "device/QuaysideDevice.h"
#include "device/QuaysideEnumerator.h"
#include "explanations/DeviceExplanation.h"
#include "kestatus.h"

namespace flowlane {

// Finds the first of count instances whose friendly name equals name. Instances in use are skipped.
//   KESTATUS_NOT_FOUND  there is none; index is unchanged
// An instance that cannot be opened for another reason ends the search with its status.
[[nodiscard]] KESTATUS LookupDeviceIndexForFriendlyName(const QuaysideEnumerator& enumerator, unsigned count,
                                                        const char* name, unsigned& index);

// Open the device with this friendly name, or the one with the index of the settings when friendlyName is
// null. A device that is open is closed first. description gets the text that stands for the device in
// messages: the index, or name(index). headerType: what precedes each received frame. A link that is down is
// no failure, and told on Cons.
//   KESTATUS_NO_DEVICES  there is no device at all
//   KESTATUS_NOT_FOUND   there is none with this name
// Other failures are those of the device library.
[[nodiscard]] KESTATUS OpenRawTxDevice(QuaysideDevice& device, const char* friendlyName,
                                       std::string& description);
[[nodiscard]] KESTATUS OpenRawRxDevice(QuaysideDevice& device, const char* friendlyName,
                                       std::string& description, QBXRawHeaderType headerType);

// Tells that opening the device of the settings has failed, and why. Returns st, the status of the opening.
KESTATUS ReportFailedOpening(DeviceUse use, KESTATUS st);

} // namespace flowlane

#endif
