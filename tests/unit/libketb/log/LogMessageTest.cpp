// The message buffer: headers, text and its limit, newlines, the compact line.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "LogCapture.h"
#include "log/KELogging.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;

namespace {

constexpr std::size_t cMaxText = 511;
const KELogMsgHeaderTag cTag1{"Class"};
const KELogMsgHeaderTag cTag2{"void f(int) {}"};

std::string TextOf(const KELogFunctionParams& params) {
    KELogMessage message;
    message.AppendText("old text");
    message.ResetMsg(params);
    EXPECT_EQ(message.TextLength(), std::string(message.Text()).size());
    EXPECT_STREQ(message.Prefix(), "");
    return message.Text();
}

TEST(LogMessageTest, Headers) {
    const KELogger& logger = logger::Global;
    EXPECT_EQ(TextOf({logger, KEINFO}), "");
    EXPECT_EQ(TextOf({logger, KEINFO, &cTag1}), "Class: ");
    EXPECT_EQ(TextOf({logger, KEINFO, nullptr, &cTag1}), "Class: ");
    EXPECT_EQ(TextOf({logger, KEINFO, &cTag1, &cTag1}), "Class:Class: ");
    EXPECT_EQ(TextOf({logger, KEINFO, nullptr, nullptr, "more"}), "more");
    EXPECT_EQ(TextOf({logger, KEINFO, &cTag1, &cTag1, "more"}), "Class:Class: more");
}

TEST(LogMessageTest, HeadersAreNoFormatStrings) {
    const DebugOutputCapture output;
    EXPECT_EQ(TextOf({logger::Global, KEINFO, &cTag1, &cTag2, "{{}"}), "Class:void f(int) {}: {{}");
    EXPECT_TRUE(output.Messages().empty());
}

TEST(LogMessageTest, OverlongHeadersAreCut) {
    const std::string longText(600, 'h');
    const KELogMsgHeaderTag tag{longText.c_str()};
    EXPECT_EQ(TextOf({logger::Global, KEINFO, &tag, &cTag1}), longText.substr(0, cMaxText));
}

TEST(LogMessageTest, TextIsCutAtItsLimit) {
    for (const std::size_t length : {0u, 1u, 510u, 511u, 512u, 600u}) {
        const std::string text(length, 'x');
        KELogMessage message;
        message.AppendText(text.c_str());
        EXPECT_EQ(message.Text(), text.substr(0, cMaxText));
        EXPECT_EQ(message.TextLength(), std::min(length, cMaxText));
    }
}

template <typename Arg>
void Append(KELogMessage& message, const char* format, const Arg& arg) {
    const fmtimpl::ArgumentHolder holder = fmtimpl::MakeArgument(arg);
    message.AppendFormatted(format, &holder, 1);
}

TEST(LogMessageTest, FormattedTextIsCutAtItsLimit) {
    KELogMessage message;
    message.AppendText("head: ");
    Append(message, "{:<504}|", 17);
    EXPECT_EQ(message.Text(), "head: 17" + std::string(502, ' ') + "|");
    EXPECT_EQ(message.TextLength(), cMaxText);
    Append(message, "{}", 5);
    EXPECT_EQ(message.TextLength(), cMaxText);
    message.ResetMsg({logger::Global, KEINFO});
    Append(message, "{}", std::string(600, 'z'));
    EXPECT_EQ(message.Text(), std::string(cMaxText, 'z'));
    EXPECT_EQ(message.TextLength(), cMaxText);
}

TEST(LogMessageTest, AppendNewline) {
    KELogMessage message;
    EXPECT_TRUE(message.AppendNewline());
    EXPECT_STREQ(message.Text(), "\n");
    EXPECT_FALSE(message.AppendNewline());
    EXPECT_STREQ(message.Text(), "\n");
    message.AppendText("abc");
    EXPECT_TRUE(message.AppendNewline());
    EXPECT_STREQ(message.Text(), "\nabc\n");
    EXPECT_EQ(message.TextLength(), 5u);
}

TEST(LogMessageTest, AppendNewlineTakesTheLastPlaceOfAFullText) {
    KELogMessage message;
    message.AppendText(std::string(cMaxText, 'x').c_str());
    EXPECT_TRUE(message.AppendNewline());
    EXPECT_EQ(message.Text(), std::string(cMaxText - 1, 'x') + "\n");
    EXPECT_EQ(message.TextLength(), cMaxText);
    EXPECT_FALSE(message.AppendNewline());
    KELogMessage nearlyFull;
    nearlyFull.AppendText(std::string(cMaxText - 1, 'x').c_str());
    EXPECT_TRUE(nearlyFull.AppendNewline());
    EXPECT_EQ(nearlyFull.Text(), std::string(cMaxText - 1, 'x') + "\n");
}

TEST(LogMessageTest, RemoveNewlineRemovesOne) {
    KELogMessage message;
    EXPECT_FALSE(message.RemoveNewline());
    message.AppendText("a\n\n");
    EXPECT_TRUE(message.RemoveNewline());
    EXPECT_STREQ(message.Text(), "a\n");
    EXPECT_TRUE(message.RemoveNewline());
    EXPECT_STREQ(message.Text(), "a");
    EXPECT_FALSE(message.RemoveNewline());
    EXPECT_STREQ(message.Text(), "a");
    EXPECT_EQ(message.TextLength(), 1u);
}

TEST(LogMessageTest, CompactLineOfPrefixesOfEveryLength) {
    KELogMsgPrefixLayout layout;
    layout.SetPrefixOptions(KELogMsgPrefixLayout::LoggerName);
    for (std::size_t length = 2; length <= 79; ++length) {
        const std::string name(length - 2, 'n'); // ": " follows
        const KELogger logger(name.c_str(), KEINFO);
        KELogMessage message;
        message.AppendText("the text");
        message.CreatePrefix(layout, &logger, {});
        const char* line = message.CompactMessage();
        EXPECT_EQ(line, name + ": the text");
        EXPECT_EQ(line + length, message.Text());
        EXPECT_EQ(message.CompactMessage(), line) << "a second time changes nothing";
        EXPECT_EQ(line, name + ": the text");
        message.CreatePrefix(layout, &logger, {});
        EXPECT_EQ(message.Prefix(), name + ": ");
        EXPECT_STREQ(message.Text(), "the text");
    }
}

TEST(LogMessageTest, CompactLineWithoutPrefix) {
    KELogMessage message;
    message.AppendText(std::string(cMaxText, 't').c_str());
    EXPECT_EQ(message.CompactMessage(), message.Text());
    EXPECT_EQ(message.CompactMessage(), message.Text());
    EXPECT_EQ(message.Text(), std::string(cMaxText, 't'));
    KELogMessage empty;
    EXPECT_STREQ(empty.CompactMessage(), "");
}

} // namespace
