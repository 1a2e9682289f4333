// quayside2-devices: lists the instances of the device library, for people and for scripts. It sees the
// devices through the public device interface, has the texts of statuses from the toolbox, and disturbs
// nobody who uses a device.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kestatus_util.h"
#include "quayside2_api.h"

namespace {

constexpr int cExitFailure = 1;
constexpr int cExitUsage = 2;

struct DeviceLine {
    std::uint32_t index = 0;
    std::string name;
    std::string product;
    std::string macAddress;
    std::string state; // one of a few words, or the status of opening it
    std::string use;   // "sending" or "receiving" when a device is in use in that direction alone
};

void PrintUsage(FILE* to) {
    std::fputs("usage: quayside2-devices [--json]\n"
               "Lists the devices that flowlane can use: index, friendly name, MAC address, state, product.\n"
               "  --json         an array of objects\n"
               "  -V, --version  the version of the device interface\n"
               "  -h, --help     this text\n"
               "States: free, in use, in use (sending), in use (receiving), link down, no privilege (opening "
               "it needs\n"
               "CAP_NET_RAW), removed; otherwise the status of the failure.\n",
               to);
}

// As flowlane prints it.
std::string StatusText(KESTATUS st) {
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", static_cast<unsigned>(st));
    return std::string(number) + "(" + kestrelon::KEStringForStatusCode(st) + ")";
}

std::string ReadText(QBXDeviceHandle device, std::uint32_t property) {
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    return QBX_GetDevicePropertyString(device, property, text, sizeof text) == KESTATUS_SUCCESS ? text : "";
}

std::string ReadMacAddress(QBXDeviceHandle device) {
    unsigned char address[6] = {};
    if (QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, address, sizeof address, nullptr) !=
        KESTATUS_SUCCESS) {
        return "";
    }
    char text[18];
    std::snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", address[0], address[1], address[2],
                  address[3], address[4], address[5]);
    return text;
}

// A word, or the status with which the device cannot be opened.
std::string ReadState(QBXDeviceHandle device) {
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    const KESTATUS st = QBX_GetDevicePropertyString(device, QBX_PROPERTY_STATE, text, sizeof text);
    if (st == KESTATUS_SUCCESS) {
        return text;
    }
    // Another library, which has no such property: the device could be opened.
    return st == KESTATUS_NOT_FOUND ? "free" : StatusText(st);
}

// Takes "sending" out of "in use (sending)".
void SplitState(DeviceLine& line) {
    const std::size_t open = line.state.find(" (");
    if (open != std::string::npos && line.state.back() == ')') {
        line.use = line.state.substr(open + 2, line.state.size() - open - 3);
        line.state.resize(open);
    }
}

DeviceLine ReadDevice(QBXEnumerationHandle devices, std::uint32_t index) {
    DeviceLine line;
    line.index = index;
    QBXDeviceHandle device = 0;
    const KESTATUS st = QBX_OpenControlDevice(devices, index, &device);
    if (st != KESTATUS_SUCCESS) {
        line.state = st == KESTATUS_IN_USE ? "in use" : StatusText(st);
        return line;
    }
    line.name = ReadText(device, QBX_PROPERTY_FRIENDLY_NAME);
    line.product = ReadText(device, QBX_PROPERTY_PRODUCT_STRING);
    line.macAddress = ReadMacAddress(device);
    line.state = ReadState(device);
    SplitState(line);
    QBX_CloseDevice(device);
    return line;
}

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

// The name of an interface may have any bytes. A terminal must not obey them.
std::string Printable(std::string text) {
    std::replace_if(text.begin(), text.end(), IsControl, '?');
    return text;
}

void PrintTable(const std::vector<DeviceLine>& lines) {
    std::size_t nameWidth = 1;
    std::size_t stateWidth = 1;
    const auto stateOf = [](const DeviceLine& line) {
        return line.use.empty() ? line.state : line.state + " (" + line.use + ")";
    };
    const auto orDash = [](const std::string& text) {
        return text.empty() ? std::string("-") : Printable(text);
    };
    for (const DeviceLine& line : lines) {
        nameWidth = std::max(nameWidth, line.name.size());
        stateWidth = std::max(stateWidth, stateOf(line).size());
    }
    for (const DeviceLine& line : lines) {
        std::printf("%3u  %-*s  %-17s  %-*s  %s\n", line.index, static_cast<int>(nameWidth),
                    orDash(line.name).c_str(), orDash(line.macAddress).c_str(), static_cast<int>(stateWidth),
                    stateOf(line).c_str(), orDash(line.product).c_str());
    }
}

// The length of the UTF-8 sequence (RFC 3629) at a place of a text, 0 when there is none.
std::size_t Utf8Length(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned first = byte(at);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first <= 0xDF ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (byte(at + i) >> 6 != 2) {
            return 0;
        }
    }
    // Longer than it needs to be, a surrogate, or beyond the last character.
    const unsigned second = byte(at + 1);
    const bool isWrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return isWrong ? 0 : length;
}

// RFC 8259. Unknown text is null. A byte that is not part of UTF-8 becomes the replacement character.
std::string JsonText(const std::string& text) {
    if (text.empty()) {
        return "null";
    }
    std::string quoted = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = Utf8Length(text, at);
        if (length == 0) {
            quoted += "\\ufffd";
            ++at;
            continue;
        }
        if (IsControl(text[at])) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(text[at]));
            quoted += escape;
        } else {
            if (text[at] == '"' || text[at] == '\\') {
                quoted += '\\';
            }
            quoted.append(text, at, length);
        }
        at += length;
    }
    return quoted + "\"";
}

void PrintJson(const std::vector<DeviceLine>& lines) {
    std::puts("[");
    for (const DeviceLine& line : lines) {
        std::printf(
            "  {\"index\": %u, \"name\": %s, \"mac\": %s, \"state\": %s, \"use\": %s, \"product\": %s}%s\n",
            line.index, JsonText(line.name).c_str(), JsonText(line.macAddress).c_str(),
            JsonText(line.state).c_str(), JsonText(line.use).c_str(), JsonText(line.product).c_str(),
            &line == &lines.back() ? "" : ",");
    }
    std::puts("]");
}

int ListDevices(bool json) {
    setenv("QUAYSIDE2_INSPECT", "1", 1); // look without taking
    QBXEnumerationHandle devices = 0;
    std::uint32_t count = 0;
    const KESTATUS st = QBX_EnumerateDevices(QBXDeviceType_any, &devices, &count);
    if (st != KESTATUS_SUCCESS) {
        std::fprintf(stderr, "quayside2-devices: the devices cannot be listed: %s\n", StatusText(st).c_str());
        return cExitFailure;
    }
    std::vector<DeviceLine> lines;
    lines.reserve(count);
    for (std::uint32_t index = 0; index < count; ++index) {
        lines.push_back(ReadDevice(devices, index));
    }
    QBX_CloseEnumeration(devices);
    json ? PrintJson(lines) : PrintTable(lines);
    // An earlier write may have failed too.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("quayside2-devices: standard output");
        return cExitFailure;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    const std::string argument = argc > 1 ? argv[1] : "";
    if (argc > 2 || (argc == 2 && argument != "--json" && argument != "--version" && argument != "-V" &&
                     argument != "--help" && argument != "-h")) {
        PrintUsage(stderr);
        return cExitUsage;
    }
    if (argument == "--help" || argument == "-h") {
        PrintUsage(stdout);
        return EXIT_SUCCESS;
    }
    if (argument == "--version" || argument == "-V") {
        const std::uint32_t version = QBX_GetApiVersion();
        std::printf("quayside2-devices, device interface %u.%u\n", version >> 16, version & 0xFFFFu);
        return EXIT_SUCCESS;
    }
    return ListDevices(argument == "--json");
}
