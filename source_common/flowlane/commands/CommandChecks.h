// The checks of arguments and options that several commands share. All lines go to the Cons logger; all
// settings come from gCmdLine. Called from the main thread.
#ifndef FLOWLANE_COMMANDCHECKS_H
#define FLOWLANE_COMMANDCHECKS_H

#include "device/QuaysideDevice.h"
#include "kestatus.h"
#include "values/KEEthernetMacAddress.h"

namespace flowlane {

//   KESTATUS_INVALID_PARAMETER  there is no positional argument
[[nodiscard]] KESTATUS CheckArgumentsPresent();

// The checks of the two commands for streams. address gets the value of option -m, or the broadcast address
// without the option.
//   KESTATUS_INVALID_PARAMETER  there is no positional argument, or the unique ID does not fit 16 bits
// An address that is not valid gives the status of KEEthernetMacAddress::InitFromString.
[[nodiscard]] KESTATUS CheckStreamArguments(kestrelon::KEEthernetMacAddress& address);

// Says once per run which words and options are not used as their user probably meant. A command calls it
// when its device is open, before it starts threads. The program calls it without a device when the command
// has failed before.
void ExplainCommandLine(const QuaysideDevice* device);

// The name of option -n; null without the option. Valid as long as gCmdLine is not changed.
const char* FriendlyNameOption();

} // namespace flowlane

#endif
