// The prefix of a log line: its parts, their order, its limit.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "LogCapture.h"
#include "log/KELogging.h"
#include "log/RecordingTarget.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::IsDiagnostic;
using testsupport::ModuleName;

namespace {

constexpr KELogMsgMetaData cMetaData{1234000056, 99, 4711, KEWARN};

std::string PrefixOf(std::uint32_t options, const char* text = "text", const char* loggerName = "Log") {
    const ModuleName module("mod");
    const KELogger logger(loggerName, KEINFO);
    KELogMsgPrefixLayout layout;
    layout.mOptions = options;
    KELogMessage message;
    message.AppendText(text);
    message.CreatePrefix(layout, &logger, cMetaData);
    EXPECT_STREQ(message.Text(), text);
    return message.Prefix();
}

struct Part {
    std::uint32_t option;
    const char* text;
};
constexpr Part cParts[] = {
    {0x008, "1234.000056 "}, {0x010, "[99] "}, {0x020, "(4711) "},
    {0x100, "mod: "},        {0x200, "Log: "}, {0x400, "WARN: "},
};

// All combinations, in the order of the table.
TEST(LogPrefixTest, EveryCombinationOfParts) {
    for (unsigned chosen = 0; chosen < 1u << std::size(cParts); ++chosen) {
        std::uint32_t options = 0;
        std::string expected;
        for (std::size_t i = 0; i < std::size(cParts); ++i) {
            if (chosen & 1u << i) {
                options |= cParts[i].option;
                expected += cParts[i].text;
            }
        }
        EXPECT_EQ(PrefixOf(options), expected);
    }
}

TEST(LogPrefixTest, OtherBitsHaveNoPart) {
    const std::uint32_t used = 0x8 | 0x10 | 0x20 | 0x100 | 0x200 | 0x400;
    EXPECT_EQ(PrefixOf(~used), "");
    EXPECT_EQ(PrefixOf(0x1 | 0x2 | 0x4 | 0x40 | 0x80 | 0x20), "(4711) ");
}

TEST(LogPrefixTest, EmptyTextHasNeitherLoggerNorLevel) {
    EXPECT_EQ(PrefixOf(0x738, ""), "1234.000056 [99] (4711) mod: ");
    EXPECT_EQ(PrefixOf(0x600, ""), "");
}

TEST(LogPrefixTest, NoLoggerAndNoNameAreEmptyNames) {
    EXPECT_EQ(PrefixOf(0x200, "text", nullptr), ": ");
    KELogMsgPrefixLayout layout;
    layout.mOptions = 0x200;
    KELogMessage message;
    message.AppendText("text");
    message.CreatePrefix(layout, nullptr, cMetaData);
    EXPECT_STREQ(message.Prefix(), ": ");
}

TEST(LogPrefixTest, TimeStampsHaveSixMicrosecondDigits) {
    const struct {
        std::int64_t time;
        const char* text;
    } cases[] = {
        {0, "0.000000 "},
        {1, "0.000001 "},
        {999999, "0.999999 "},
        {1000000, "1.000000 "},
        {86400123456, "86400.123456 "},
    };
    KELogMsgPrefixLayout layout;
    layout.mOptions = KELogMsgPrefixLayout::TimeStamp;
    for (const auto& test : cases) {
        KELogMessage message;
        message.CreatePrefix(layout, nullptr, {test.time, 0, 0, KEINFO});
        EXPECT_STREQ(message.Prefix(), test.text);
    }
}

TEST(LogPrefixTest, LevelNames) {
    const struct {
        KELogLevel level;
        const char* name;
    } cases[] = {
        {KEOFF, "INFO"},
        {KEALWAYS, "INFO"},
        {KEFATAL, "FATAL"},
        {KEERROR, "ERROR"},
        {KEWARN, "WARN"},
        {KEINFO, "INFO"},
        {KEVERBOSE, "INFO"},
        {KETRACE, "INFO"},
        {KEDUMP, "INFO"},
        {KEMAXLEVEL, "INFO"},
        {static_cast<KELogLevel>(-1), "INFO"},
    };
    for (const auto& test : cases) {
        EXPECT_STREQ(KEGetLogLevelName(test.level), test.name) << test.level;
    }
}

TEST(LogPrefixTest, OfSeventyNineCharactersFits) {
    const DebugOutputCapture output;
    const std::string name(77, 'n');
    EXPECT_EQ(PrefixOf(0x200, "text", name.c_str()), name + ": ");
    EXPECT_TRUE(output.Messages().empty());
}

TEST(LogPrefixTest, LongerOnesAreCutAndReported) {
    const DebugOutputCapture output;
    EXPECT_EQ(PrefixOf(0x200, "text", std::string(78, 'n').c_str()), std::string(78, 'n') + ":");
    ASSERT_EQ(output.Messages().size(), 1u);
    EXPECT_TRUE(IsDiagnostic(output.Messages()[0], "mod: ERROR: ", "CreatePrefix(",
                             ": prefix length 80 exceeds 79\n"))
        << output.Messages()[0];
}

TEST(LogPrefixTest, TheReportedLengthIsThatOfAllParts) {
    const DebugOutputCapture output;
    const std::string name(100, 'n');
    EXPECT_EQ(PrefixOf(0x738, "text", name.c_str()), "1234.000056 [99] (4711) mod: " + name.substr(0, 50));
    ASSERT_EQ(output.Messages().size(), 1u);
    EXPECT_TRUE(IsDiagnostic(output.Messages()[0], "mod: ERROR: ", "CreatePrefix(",
                             ": prefix length 137 exceeds 79\n"))
        << output.Messages()[0];
}

TEST(LogPrefixTest, LayoutOperations) {
    KELogMsgPrefixLayout layout;
    EXPECT_EQ(layout.mOptions, 0u);
    layout.SetPrefixOptions(0x8 | 0x20);
    layout.SetPrefixOptions(0x400);
    EXPECT_EQ(layout.mOptions, 0x428u);
    EXPECT_TRUE(layout.IsOption(0x20));
    EXPECT_FALSE(layout.IsOption(0x10));
    layout.RemovePrefixOptions(0x20 | 0x10);
    EXPECT_EQ(layout.mOptions, 0x408u);
    layout.Clear();
    EXPECT_EQ(layout.mOptions, 0u);
}

} // namespace
