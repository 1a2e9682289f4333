#include "explanations/CommandLineErrors.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>

#include "explanations/MessageText.h"
#include "explanations/WordMatch.h"

namespace flowlane {

namespace {

using Words = std::vector<std::string>;

// Words that users try first because other tools have them.
struct FirstTry {
    const char* words; // with a blank before and behind each
    const char* line;
};

constexpr FirstTry cTriedCommands[] = {
    {" version ", "The version is shown by: flowlane help"},
    {" list devices interfaces ", "The devices are listed by: quayside2-devices"},
    {" capture record dump sniff write ", "Did you mean 'pcap'?"},
    {" play replay send ", "Did you mean 'playpcap'?"},
    {" stream ", "Did you mean 'ts2av'?"},
    {" receive forward rtp ", "Did you mean 'av2rtp'?"},
};

constexpr FirstTry cTriedOptions[] = {
    {" version V ", "The version is shown by: flowlane help"},
    {" list devices interfaces list-interfaces list_devices ",
     "The devices are listed by: quayside2-devices"},
    {" interface iface dev device name ",
     "A device is chosen with -n and its name, or with -d and its index."},
    {" w r o f file filename output input write read ",
     "The file name stands behind the command without an option, for example: flowlane pcap record"},
    {" host address destination ",
     "The host stands behind the command without an option, for example: flowlane av2rtp 192.0.2.1"},
};

template <std::size_t Count>
const char* FindFirstTry(const FirstTry (&tries)[Count], const std::string& word) {
    const auto* const found = std::find_if(std::begin(tries), std::end(tries), [&](const FirstTry& tried) {
        return std::string(tried.words).find(" " + word + " ") != std::string::npos;
    });
    return found != std::end(tries) ? found->line : nullptr;
}

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The command that takes a file with such a name; empty for any other word.
std::string CommandForFile(const std::string& word) {
    const std::string name = LowerCase(word);
    if (EndsWith(name, ".ts") || EndsWith(name, ".m2t")) {
        return "ts2av";
    }
    return EndsWith(name, ".pcapng") || EndsWith(name, ".pcap") ? "playpcap" : "";
}

std::string DidYouMean(Words words) {
    std::transform(words.begin(), words.end(), words.begin(),
                   [](const std::string& word) { return "'" + word + "'"; });
    return words.empty() ? "" : "Did you mean " + JoinedBy(" or ", words) + "?";
}

// The options that a word without its dashes may stand for, with their dashes.
Words NearestOptions(std::string name) {
    std::replace(name.begin(), name.end(), '-', '_');
    Words names;
    for (const CommandLineOption& option : CommandLineOptions()) {
        names.emplace_back(option.shortName);
        names.emplace_back(option.longName);
    }
    Words nearest = NearestWords(name, names);
    for (std::string& found : nearest) {
        found.insert(0, FindOption(found) ? "-" : "--");
    }
    return nearest;
}

// For a name and a value in one word. Empty when it cannot be told which option is meant.
std::string ValueInSameWord(const std::string& name, const std::string& value) {
    const Words nearest = NearestOptions(name);
    const CommandLineOption* const option =
        nearest.size() == 1 ? FindOptionWithDashes(nearest.front()) : nullptr;
    if (!option) {
        return DidYouMean(nearest);
    }
    if (option->kind == OptionKind::Switch) {
        return "'" + nearest.front() + "' takes no value.";
    }
    return "The value is a word of its own: " + nearest.front() + " " +
           (value.empty() ? "" : ShortShellWord(value));
}

// "-vl" for "-v -l".
std::string SeveralSwitches(const std::string& name) {
    std::string words;
    for (const char letter : name) {
        const CommandLineOption* const option = FindOption(std::string(1, letter));
        if (!option || option->kind != OptionKind::Switch) {
            return "";
        }
        words += std::string(" -") + letter;
    }
    return "Each option is a word of its own:" + words;
}

// "-p5004" for "-p 5004", "-nlane-1" for "-n lane-1".
std::string ValueBehindName(const std::string& name) {
    const auto firstDigit = std::find_if(name.begin(), name.end(), IsDigit);
    if (firstDigit == name.end()) {
        return "";
    }
    const std::string head(name.begin(), firstDigit);
    if (FindOption(head)) {
        return ValueInSameWord(head, std::string(firstDigit, name.end()));
    }
    if (name[0] == 'n') {
        return ValueInSameWord("n", name.substr(1));
    }
    return "";
}

std::string CommandList(const Words& commands) {
    return "The commands are: " + JoinedBy(", ", commands) + ".";
}

} // namespace

std::string WordsForUnknownCommand(const std::string& command, const std::vector<std::string>& arguments) {
    const Words commands = CommandWords();
    const auto isCommand = [&](const std::string& word) {
        return std::find(commands.begin(), commands.end(), word) != commands.end();
    };
    const auto found = std::find_if(arguments.begin(), arguments.end(), isCommand);
    if (found != arguments.end()) {
        return "The command comes first: flowlane " + *found + " " + ShortShellWord(command);
    }
    if (const char* const line = FindFirstTry(cTriedCommands, LowerCase(command))) {
        return line;
    }
    const std::string commandForFile = CommandForFile(command);
    if (!commandForFile.empty()) {
        return "A command comes first: flowlane " + commandForFile + " " + ShortShellWord(command);
    }
    const std::string nearest = DidYouMean(NearestWords(command, commands));
    return nearest.empty() ? CommandList(commands) : nearest;
}

std::string WordsForMissingArgument(const std::string& command) {
    if (command == "av2rtp") {
        return "av2rtp takes the host that gets the stream, for example: flowlane av2rtp 192.0.2.1";
    }
    const char* const example = command == "ts2av"  ? " my.ts"
                                : command == "pcap" ? " record"
                                                    : " record.pcapng";
    return command + " takes the name of a file, for example: flowlane " + command + example;
}

std::string WordsForUnknownOption(const std::string& word) {
    const std::size_t dashes = word.rfind("--", 0) == 0 ? 2 : 1;
    const std::string name = word.substr(dashes);
    if (const char* const line = FindFirstTry(cTriedOptions, name)) {
        return line;
    }
    const std::size_t equals = name.find('=');
    if (equals != std::string::npos) {
        return ValueInSameWord(name.substr(0, equals), name.substr(equals + 1));
    }
    if (dashes == 1 && name.size() > 1) {
        std::string switches = SeveralSwitches(name);
        if (!switches.empty()) {
            return switches;
        }
    }
    const std::string nearest = DidYouMean(NearestOptions(name));
    return nearest.empty() && dashes == 1 ? ValueBehindName(name) : nearest;
}

std::string WordsForRefusedValue(const GivenOption& option, const std::vector<std::string>& deviceNames) {
    const CommandLineOption* const known = FindOption(option.mShortName);
    if (!known) {
        return "";
    }
    const bool isDeviceName =
        std::find(deviceNames.begin(), deviceNames.end(), option.mValue) != deviceNames.end();
    if (isDeviceName && !option.mValue.empty()) {
        return Quoted(option.mValue) + " is the name of a device. A name goes with -n: -n " +
               ShortShellWord(option.mValue);
    }
    return option.mWord + " takes " + known->takes;
}

std::string WordsForRefusedMacAddress(const std::string& text) {
    const std::string digits = MacAddressDigits(text);
    return "-m takes 12 hexadecimal digits" +
           (digits.empty() ? ", for example: -m 025142580001" : ": -m " + digits);
}

} // namespace flowlane
