// Diagnostics in the system log: their channel, its redirection, the text of a failed assertion, the module
// name.
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <vector>

#include "LibraryCallFaults.h"
#include "LogCapture.h"
#include "kert_debug.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::TakeSystemLog;

namespace {

constexpr int cUserError = 11; // LOG_USER | LOG_ERR

TEST(DebugOutputTest, GoesToTheSystemLogAsAUserError) {
    TakeSystemLog();
    KEOutputDebugString("%s: WARNING: %d%%\n", "module", 42);
    const auto lines = TakeSystemLog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, cUserError);
    EXPECT_EQ(lines[0].text, "module: WARNING: 42%\n");
}

void ViaVaList(const char* format, ...) {
    va_list args;
    va_start(args, format);
    KEOutputDebugStringV(format, args);
    va_end(args);
}

TEST(DebugOutputTest, VaListForm) {
    TakeSystemLog();
    ViaVaList("%s-%u", "a", 7u);
    const auto lines = TakeSystemLog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, cUserError);
    EXPECT_EQ(lines[0].text, "a-7");
}

std::vector<std::string> sMessages;
void Keep(const char* message) {
    sMessages.emplace_back(message);
}

TEST(DebugOutputTest, RedirectionTakesTheSystemLogsPlace) {
    TakeSystemLog();
    sMessages.clear();
    EXPECT_EQ(KESetDebugOutputFunction(&Keep), nullptr);
    KEOutputDebugString("%d", 1);
    EXPECT_EQ(KESetDebugOutputFunction(nullptr), &Keep);
    KEOutputDebugString("%d", 2);
    EXPECT_EQ(sMessages, std::vector<std::string>{"1"});
    const auto lines = TakeSystemLog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "2");
}

TEST(DebugOutputTest, RedirectedMessagesAreCut) {
    const DebugOutputCapture output;
    KEOutputDebugString("%s", std::string(5000, 'x').c_str());
    ASSERT_EQ(output.Messages().size(), 1u);
    EXPECT_EQ(output.Messages()[0], std::string(4095, 'x'));
}

TEST(AssertionMessageTest, WithAndWithoutModuleName) {
    const DebugOutputCapture output;
    KEOutputAssertionFailedMessage("a == b", "dir/file.cpp", 17, "module");
    KEOutputAssertionFailedMessage("a == b", "dir/file.cpp", 17, nullptr);
    KEOutputAssertionFailedMessage(nullptr, nullptr, -1, "");
    KEOutputAssertionFailedMessage(nullptr, "f", 0, nullptr);
    const std::vector<std::string> expected = {
        "\nmodule: FATAL: ASSERTION FAILED: (a == b)\n  dir/file.cpp(17)\n",
        "\nFATAL: ASSERTION FAILED: (a == b)\n  dir/file.cpp(17)\n",
        "\n: FATAL: ASSERTION FAILED: ()\n  (-1)\n",
        "\nFATAL: ASSERTION FAILED: ()\n  f(0)\n",
    };
    EXPECT_EQ(output.Messages(), expected);
}

TEST(ModuleNameTest, IsCutAt31Characters) {
    const std::string old = KEModuleName();
    KESetModuleName("1234567890123456789012345678901");
    EXPECT_STREQ(KEModuleName(), "1234567890123456789012345678901");
    KESetModuleName("12345678901234567890123456789012");
    EXPECT_STREQ(KEModuleName(), "1234567890123456789012345678901");
    const std::string begin(28, 'x');
    KESetModuleName((begin + "\xc3\xa4"
                             "ab")
                        .c_str());
    EXPECT_EQ(KEModuleName(), begin + "\xc3\xa4"
                                      "a");
    KESetModuleName((begin + "ab\xc3\xa4").c_str());
    EXPECT_EQ(KEModuleName(), begin + "ab") << "no character is divided";
    KESetModuleName((begin + "\xf0\x9f\x98\x80").c_str());
    EXPECT_EQ(KEModuleName(), begin);
    KESetModuleName((begin + std::string(10, '\x80')).c_str());
    EXPECT_EQ(KEModuleName(), begin + "\x80\x80\x80") << "not UTF-8";
    KESetModuleName(KEModuleName());
    EXPECT_EQ(KEModuleName(), begin + "\x80\x80\x80");
    KESetModuleName("short");
    EXPECT_STREQ(KEModuleName(), "short");
    KESetModuleName(nullptr);
    EXPECT_STREQ(KEModuleName(), "");
    KESetModuleName(old.c_str());
}

} // namespace
