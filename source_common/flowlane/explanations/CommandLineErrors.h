// What is behind a command line that was refused: the word that was probably meant, or what an option takes.
// Each function returns the line for the user, or an empty text when there is nothing to add.
#ifndef FLOWLANE_COMMANDLINEERRORS_H
#define FLOWLANE_COMMANDLINEERRORS_H

#include <string>
#include <vector>

#include "explanations/CommandLineOptions.h"
#include "kestatus.h"

namespace flowlane {

// command: the word where the command is expected; empty when there is none. arguments: the positional words
// behind it.
std::string WordsForUnknownCommand(const std::string& command, const std::vector<std::string>& arguments);

// For a command without its file or host.
std::string WordsForMissingArgument(const std::string& command);

// word: with its dashes.
std::string WordsForUnknownOption(const std::string& word);

// For a value that is missing or no number. deviceNames: those of the connected devices.
std::string WordsForRefusedValue(const GivenOption& option, const std::vector<std::string>& deviceNames);

// The form that option -m takes, for a text that is no such address.
std::string WordsForRefusedMacAddress(const std::string& text);

} // namespace flowlane

#endif
