// Runs the formatter once over a large buffer and takes its diagnostics apart.
#ifndef FLOWLANE_TESTS_FORMATEXPECT_H
#define FLOWLANE_TESTS_FORMATEXPECT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "kert_debug.h"
#include "text/KEFormatter.h"

namespace testsupport {

// The faults in the diagnostics of a call with this format and so many arguments: "WARNING: text", up to and
// without "FormatString follows, %u arguments.". What is not built like a diagnostic of the formatter, or is
// not followed by the format string, comes back as "malformed: ...".
std::vector<std::string> FaultsOf(const std::vector<std::string>& messages, const std::string& format,
                                  std::size_t argumentCount);

struct Formatted {
    std::string text;
    std::size_t length;
    std::vector<std::string> faults;
};

template <typename... Args>
Formatted Format(const char* format, const Args&... args) {
    const DebugOutputCapture output;
    const kestrelon::fmtimpl::ArgumentArray<Args...> holders(args...);
    char buffer[16384];
    Formatted formatted;
    formatted.length =
        kestrelon::KEFormatter(buffer, sizeof buffer).FormatArgs(format, holders.mHolders, holders.cCount);
    formatted.text = buffer;
    formatted.faults = FaultsOf(output.Messages(), format, holders.cCount);
    return formatted;
}

// Expects this text and no fault.
template <typename... Args>
void ExpectText(const std::string& text, const char* format, const Args&... args) {
    const Formatted formatted = Format(format, args...);
    EXPECT_EQ(formatted.text, text) << format;
    EXPECT_EQ(formatted.length, text.size()) << format;
    EXPECT_EQ(formatted.faults, std::vector<std::string>{}) << format;
}

// Expects this text and these faults, in order.
template <typename... Args>
void ExpectFaults(const std::vector<std::string>& faults, const std::string& text, const char* format,
                  const Args&... args) {
    const Formatted formatted = Format(format, args...);
    EXPECT_EQ(formatted.text, text) << format;
    EXPECT_EQ(formatted.length, text.size()) << format;
    EXPECT_EQ(formatted.faults, faults) << format;
}

} // namespace testsupport

#endif
