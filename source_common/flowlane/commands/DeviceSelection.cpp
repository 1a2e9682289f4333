#include "commands/DeviceSelection.h"

#include <cstring>

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

namespace {

// The part of opening that is the same for transmission and reception: enumerates the devices, finds the
// index and the description, and closes a device that is open.
KESTATUS SelectDevice(QuaysideEnumerator& enumerator, QuaysideDevice& device, const char* friendlyName,
                      unsigned& index, std::string& description) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Enumerate available devices...");
    unsigned count = 0;
    KESTATUS st = enumerator.EnumerateDevices(QBXDeviceType_any, count);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "EnumerateDevices failed, st={}.", st);
    }
    if (count == 0) {
        KEOutputLogMessage(logger::Cons, KEINFO, "No Quayside device connected, please connect a device");
        return KESTATUS_NO_DEVICES;
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Found {} Quayside device(s)", count);

    index = gCmdLine.mDeviceIndex;
    if (friendlyName) {
        st = LookupDeviceIndexForFriendlyName(enumerator, count, friendlyName, index);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Cons, "LookupDeviceIndexForFriendlyName failed, st={}.", st);
        }
        description = KEStdStringFormat("{}({})", friendlyName, index);
    } else {
        description = KEStdStringFormat("{}", index);
    }
    if (device.Handle() != 0) {
        static_cast<void>(device.CloseDevice()); // the name is known
    }
    return KESTATUS_SUCCESS;
}

} // namespace

KESTATUS LookupDeviceIndexForFriendlyName(const QuaysideEnumerator& enumerator, unsigned count,
                                          const char* name, unsigned& index) {
    for (unsigned candidate = 0; candidate < count; ++candidate) {
        QuaysideDevice device;
        KESTATUS st = device.OpenControlDevice(enumerator, candidate);
        if (st == KESTATUS_IN_USE) {
            KEOutputLogMessage(logger::Cons, KEINFO,
                               "Ignore device with index {} because it is already in use.", candidate);
            continue;
        }
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Cons, "OpenControlDevice failed, st={}.", st);
        }
        char candidateName[QBX_PROPERTY_STRING_SIZE] = {};
        st = device.GetDevicePropertyString(QBX_PROPERTY_FRIENDLY_NAME, candidateName, sizeof candidateName);
        if (st != KESTATUS_SUCCESS) {
            KEOutputLogMessage(logger::Cons, KEERROR,
                               "GetDevicePropertyString failed (idx={}), st={}, ignore the device.",
                               candidate, KEFormatArgKEStatus(st));
            continue;
        }
        if (std::strcmp(candidateName, name) == 0) {
            index = candidate;
            return KESTATUS_SUCCESS;
        }
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "No device found for friendly name '{}'", name);
    return KESTATUS_NOT_FOUND;
}

KESTATUS OpenRawTxDevice(QuaysideDevice& device, const char* friendlyName, std::string& description) {
    QuaysideEnumerator enumerator;
    unsigned index = 0;
    KESTATUS st = SelectDevice(enumerator, device, friendlyName, index, description);
    if (st == KESTATUS_SUCCESS) {
        st = device.OpenRawTxDevice(enumerator, index, 0, QBXRawHeaderType_None, 0);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Cons, "OpenRawTxDevice failed, st={}.", st);
        }
        ExplainLinkDown(device, DeviceUse::Send);
    }
    return st;
}

KESTATUS OpenRawRxDevice(QuaysideDevice& device, const char* friendlyName, std::string& description,
                         QBXRawHeaderType headerType) {
    QuaysideEnumerator enumerator;
    unsigned index = 0;
    KESTATUS st = SelectDevice(enumerator, device, friendlyName, index, description);
    if (st == KESTATUS_SUCCESS) {
        st = device.OpenRawRxDevice(enumerator, index, 0, headerType, 0);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Cons, "OpenRawRxDevice failed, st={}.", st);
        }
        ExplainLinkDown(device, DeviceUse::Receive);
    }
    return st;
}

KESTATUS ReportFailedOpening(DeviceUse use, KESTATUS st) {
    KEOutputFailure(logger::Cons, "Open device failed, st={}.", st);
    ExplainFailedOpening(st, {FriendlyNameOption(), gCmdLine.mDeviceIndex, use});
    return st;
}

} // namespace flowlane
