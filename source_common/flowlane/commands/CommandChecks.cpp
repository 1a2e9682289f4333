#include "commands/CommandChecks.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "explanations/CommandLineErrors.h"
#include "explanations/CommandLineNotes.h"
#include "explanations/DeviceInspection.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cMaxUniqueId = 0xFFFF;

KESTATUS ReadMacAddressOption(KEEthernetMacAddress& address) {
    if (gCmdLine.mMacAddress.empty()) {
        address.mMacAddr = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
        return KESTATUS_SUCCESS;
    }
    const KESTATUS st = address.InitFromString(gCmdLine.mMacAddress.c_str());
    if (st != KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Cons, KEERROR, "InitFromString('{}') failed, st={}.", gCmdLine.mMacAddress,
                           KEFormatArgKEStatus(st));
        Explain("{}", WordsForRefusedMacAddress(gCmdLine.mMacAddress));
    }
    return st;
}

KESTATUS CheckUniqueIdOption() {
    if (gCmdLine.mUniqueId <= cMaxUniqueId) {
        return KESTATUS_SUCCESS;
    }
    KEOutputLogMessage(logger::Cons, KEERROR, "unique ID {:#X} exceeds max. 0xFFFF.", gCmdLine.mUniqueId);
    return KESTATUS_INVALID_PARAMETER;
}

} // namespace

KESTATUS CheckArgumentsPresent() {
    if (!gCmdLine.mArgs.empty()) {
        return KESTATUS_SUCCESS;
    }
    KEOutputLogMessage(logger::Cons, KEERROR, "Missing arguments.");
    PrintUsageHint();
    Explain("{}", WordsForMissingArgument(gCmdLine.mCommand));
    return KESTATUS_INVALID_PARAMETER;
}

KESTATUS CheckStreamArguments(KEEthernetMacAddress& address) {
    KESTATUS st = CheckArgumentsPresent();
    if (st == KESTATUS_SUCCESS) {
        st = ReadMacAddressOption(address);
    }
    return st == KESTATUS_SUCCESS ? CheckUniqueIdOption() : st;
}

void ExplainCommandLine(const QuaysideDevice* device) {
    static bool sIsExplained = false;
    if (std::exchange(sIsExplained, true)) {
        return;
    }
    const CommandLineWords words = {gCmdLine.mCommand, gCmdLine.mArgs, gCmdLine.mGivenOptions};
    DevicesSeen devices;
    if (NeedsDeviceNames(words)) {
        devices = {DeviceInspection(DeviceInspection::Selection::AsSet).Names(),
                   device ? DeviceName(*device) : ""};
    }
    for (const std::vector<std::string>& notes : {NotesOnOptions(words), NotesOnArguments(words, devices)}) {
        for (const std::string& note : notes) {
            Explain("{}", note);
        }
    }
}

const char* FriendlyNameOption() {
    return gCmdLine.mFriendlyName.empty() ? nullptr : gCmdLine.mFriendlyName.c_str();
}

} // namespace flowlane
