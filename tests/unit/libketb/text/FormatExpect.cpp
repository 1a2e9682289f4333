#include "text/FormatExpect.h"

namespace testsupport {

namespace {

std::string FaultOf(const std::string& message, std::size_t argumentCount) {
    std::string malformed = "malformed: " + message;
    const std::string module = std::string(kestrelon::KEModuleName()) + ": ";
    const std::string end = " FormatString follows, " + std::to_string(argumentCount) + " arguments.\n";
    if (!message.starts_with(module) || !message.ends_with(end)) {
        return malformed;
    }
    const std::size_t functionStart = message.find(": ", module.size());
    const std::size_t functionEnd = message.find(": ", functionStart + 2);
    if (functionStart == std::string::npos || functionEnd == std::string::npos) {
        return malformed;
    }
    const std::string function = message.substr(functionStart + 2, functionEnd - functionStart - 2);
    if (function.find("FormatArgs(") == std::string::npos) {
        return malformed;
    }
    const std::string level = message.substr(module.size(), functionStart - module.size());
    return level + ": " + message.substr(functionEnd + 2, message.size() - end.size() - functionEnd - 2);
}

} // namespace

std::vector<std::string> FaultsOf(const std::vector<std::string>& messages, const std::string& format,
                                  std::size_t argumentCount) {
    std::vector<std::string> faults;
    for (std::size_t i = 0; i < messages.size(); i += 2) {
        faults.push_back(FaultOf(messages[i], argumentCount));
        if (i + 1 == messages.size() || messages[i + 1] != format + "\n") {
            faults.emplace_back("malformed: not followed by the format string");
        }
    }
    return faults;
}

} // namespace testsupport
