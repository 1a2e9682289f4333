// What a command does otherwise than its user probably meant: words and options that it does not use, and
// values that are read in another way than they look. Each function returns the lines for the user, one for
// each fault; none for a command line without any.
#ifndef FLOWLANE_COMMANDLINENOTES_H
#define FLOWLANE_COMMANDLINENOTES_H

#include <string>
#include <vector>

#include "explanations/CommandLineOptions.h"

namespace flowlane {

struct CommandLineWords {
    std::string command;
    std::vector<std::string> arguments; // the positional words behind the command
    std::vector<GivenOption> options;
};

struct DevicesSeen {
    std::vector<std::string> names; // of the connected devices; needed when NeedsDeviceNames
    std::string used;               // the name of the opened one; empty when none is open or it has no name
};

std::vector<std::string> NotesOnOptions(const CommandLineWords& words);
std::vector<std::string> NotesOnArguments(const CommandLineWords& words, const DevicesSeen& devices);

// Whether the notes on arguments depend on the names of the devices.
bool NeedsDeviceNames(const CommandLineWords& words);

} // namespace flowlane

#endif
