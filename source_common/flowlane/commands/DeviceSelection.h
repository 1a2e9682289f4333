// Choosing a device by index or by friendly name, and opening it for raw transmission or reception.
// The index is that of gCmdLine. All lines go to the Cons logger. Called from the main thread.
#ifndef FLOWLANE_DEVICESELECTION_H
#define FLOWLANE_DEVICESELECTION_H

#include <string>

#include "device/QuaysideDevice.h"
#include "device/QuaysideEnumerator.h"
#include "kestatus.h"

namespace flowlane {

// Finds the first of count instances whose friendly name equals name. Instances in use are skipped.
//   KESTATUS_NOT_FOUND  there is none; index is unchanged
// Another failure to open an instance ends the search with its status.
KESTATUS LookupDeviceIndexForFriendlyName(const QuaysideEnumerator& enumerator, unsigned count,
                                          const char* name, unsigned& index);

// Opens the device called friendlyName, or the one with the index of the settings when friendlyName is
// null. description gets the text by which messages name the device: the index, or name(index). A device
// that was open is closed first.
//   KESTATUS_NO_DEVICES  there is no device at all
KESTATUS OpenRawTxDevice(QuaysideDevice& device, const char* friendlyName, std::string& description);
KESTATUS OpenRawRxDevice(QuaysideDevice& device, const char* friendlyName, std::string& description,
                         QBXRawHeaderType headerType);

} // namespace flowlane

#endif
