#include "explanations/CommandLineOptions.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>

namespace flowlane {

namespace {

constexpr std::uint32_t cMax16 = 0xFFFF;
constexpr std::uint32_t cMax32 = 0xFFFFFFFF;
constexpr std::size_t cMacDigits = 12;
constexpr const char* c16BitNumber = "a number from 0 to 65535.";

bool IsHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool IsMacSeparator(char c) {
    return c == '-' || c == ':' || c == '.' || c == ' ';
}

constexpr CommandLineOption cOptions[] = {
    {"h", "help", OptionKind::Switch, 0, "", "", ""},
    {"v", "verbose", OptionKind::Switch, 0, "", "", ""},
    {"l", "loop", OptionKind::Switch, 0, "", "ts2av playpcap", ""},
    {"flsm", "force_local_source_mac", OptionKind::Switch, 0, "", "playpcap", ""},
    {"m", "mac_address", OptionKind::Text, 0, "", "ts2av av2rtp",
     "12 hexadecimal digits, for example: -m 025142580001"},
    {"n", "friendly_name", OptionKind::Text, 0, "", "",
     "the name of a device. The devices are listed by: quayside2-devices"},
    {"u", "unique_id", OptionKind::Number, cMax16, "", "ts2av av2rtp", c16BitNumber},
    {"d", "device_instance", OptionKind::Number, cMax32, "", "",
     "the index of a device. The devices are listed by: quayside2-devices"},
    {"p", "port_number", OptionKind::Number, cMax16, "", "av2rtp", c16BitNumber},
    {"fbs", "frame_buffer_size", OptionKind::Number, cMax32, " frames", "pcap playpcap",
     "a number of frames, for example: -fbs 20000"},
    {"maxkb", "max_file_size_KB", OptionKind::Number, cMax32, " kB", "pcap",
     "a number of kilobytes from 0 to 4294967."},
    {"maxmb", "max_file_size_MB", OptionKind::Number, cMax32, " MB", "pcap",
     "a number of megabytes from 0 to 4294."},
    {"vtci", "vlan_tci", OptionKind::Number, cMax16, "", "ts2av", c16BitNumber},
    {"i", "index", OptionKind::Number, cMax32, "", "playpcap",
     "the number of the first file of a set, for example: -i 1"},
    {"es", "error_status", OptionKind::Switch, 0, "", "", ""},
    {"pt", "precise_timing", OptionKind::Switch, 0, "", "ts2av playpcap", ""},
    {"rc", "rebase_clock", OptionKind::Switch, 0, "", "ts2av", ""},
};

} // namespace

std::span<const CommandLineOption> CommandLineOptions() {
    return cOptions;
}

std::vector<std::string> CommandWords() {
    return {"ts2av", "av2rtp", "pcap", "playpcap", "help"};
}

const CommandLineOption* FindOption(const std::string& shortName) {
    const auto* const found =
        std::find_if(std::begin(cOptions), std::end(cOptions),
                     [&](const CommandLineOption& option) { return option.shortName == shortName; });
    return found != std::end(cOptions) ? found : nullptr;
}

const CommandLineOption* FindOptionWithDashes(const std::string& word) {
    const auto* const found = std::find_if(std::begin(cOptions), std::end(cOptions), [&](const auto& option) {
        return word == std::string("-") + option.shortName || word == std::string("--") + option.longName;
    });
    return found != std::end(cOptions) ? found : nullptr;
}

bool IsUsedBy(const CommandLineOption& option, const std::string& command) {
    const std::string commands = option.commands;
    return commands.empty() || (" " + commands + " ").find(" " + command + " ") != std::string::npos;
}

std::uint32_t NumberRead(const std::string& text) {
    unsigned number = 0;
    static_cast<void>(kestrelon::KECmdLineArgHandler<std::string, unsigned>::ProcessValue(number, text));
    return number; // unchanged when there is none
}

std::string MacAddressDigits(const std::string& text) {
    const bool hasPrefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::string digits;
    std::string group;
    for (const char c : text.substr(hasPrefix ? 2 : 0) + '-') {
        if (IsHexDigit(c)) {
            group += c;
            continue;
        }
        const bool isGroup =
            group.size() == 1 || group.size() == 2 || group.size() == 4 || group.size() == cMacDigits;
        if (!IsMacSeparator(c) || !isGroup) {
            return "";
        }
        digits += group.size() == 1 ? "0" + group : group;
        group.clear();
    }
    return digits.size() == cMacDigits ? digits : "";
}

} // namespace flowlane
