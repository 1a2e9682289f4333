// A matcher for one captured log message: its level, the function whose signature it begins with, and its
// text.
#ifndef FLOWLANE_TESTS_LOGEXPECT_H
#define FLOWLANE_TESTS_LOGEXPECT_H

#include <gmock/gmock.h>

#include <string>

#include "LogCapture.h"

namespace testsupport {

// Matches a message "...function(...): text".
MATCHER_P3(IsMessageOf, level, function, text, "") {
    const std::string tail = std::string(": ") + text;
    const std::string call = std::string(function) + "(";
    return arg.level == level && arg.text.size() > tail.size() &&
           arg.text.compare(arg.text.size() - tail.size(), tail.size(), tail) == 0 &&
           arg.text.find(call) < arg.text.size() - tail.size();
}

} // namespace testsupport

#endif
