// What explanations know about the words of the command line: the commands, and the options with what they
// take and which commands use them. CmdLine defines the options for the parser; a test compares the two.
#ifndef FLOWLANE_COMMANDLINEOPTIONS_H
#define FLOWLANE_COMMANDLINEOPTIONS_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "values/KECmdLineParser.h"

namespace flowlane {

// An option as the user has given it.
using GivenOption = kestrelon::KECmdLineParserT<char>::Occurrence;

enum class OptionKind {
    Switch,
    Text,
    Number,
};

struct CommandLineOption {
    const char* shortName;
    const char* longName;
    OptionKind kind;
    std::uint32_t max;    // the largest number that the commands accept
    const char* unit;     // of the number, with a blank in front; may be empty
    const char* commands; // the commands that use it, with blanks between them; empty for all
    const char* takes;    // the end of a sentence about its value; empty for a switch
};

// All options, in the order of their definition.
std::span<const CommandLineOption> CommandLineOptions();

// The words of the commands, in the order in which a message lists them.
std::vector<std::string> CommandWords();

// Null when there is none.
const CommandLineOption* FindOption(const std::string& shortName);
// By its name as it stands on a command line, short or long.
const CommandLineOption* FindOptionWithDashes(const std::string& word);

bool IsUsedBy(const CommandLineOption& option, const std::string& command);

// The number that the parser reads from a text; 0 for none.
std::uint32_t NumberRead(const std::string& text);

// 12 hexadecimal digits that stand in a MAC address written in a usual way: with or without separators, with
// groups of one or two digits. Empty when the text is no MAC address.
std::string MacAddressDigits(const std::string& text);

} // namespace flowlane

#endif
