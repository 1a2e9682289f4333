// What the command drivers share: the checks of common arguments and their messages. All lines go to the
// Cons logger; all settings come from gCmdLine. Called from the main thread.
#ifndef FLOWLANE_COMMANDCHECKS_H
#define FLOWLANE_COMMANDCHECKS_H

#include "kestatus.h"
#include "values/KEEthernetMacAddress.h"

namespace flowlane {

//   KESTATUS_INVALID_PARAMETER  there is no positional argument
KESTATUS CheckArgumentsPresent();

// The address of option -m, broadcast without the option. A failure is InitFromString's.
KESTATUS ReadMacAddressOption(kestrelon::KEEthernetMacAddress& address);

//   KESTATUS_INVALID_PARAMETER  the unique ID does not fit 16 bits
KESTATUS CheckUniqueIdOption();

// The name of option -n, null without the option.
const char* FriendlyNameOption();

} // namespace flowlane

#endif
