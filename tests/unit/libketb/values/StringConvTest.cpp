// Conversions between encodings, silent and with a log line.
#include "values/KEStringConv.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "text/KEUtfConvert.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::LogCapture;

namespace {

struct Sample {
    const char* utf8;
    const char16_t* utf16;
    const wchar_t* wide;
};

// From one to four bytes, at the borders of each length.
constexpr Sample cSamples[] = {
    {"", u"", L""},
    {"plain", u"plain", L"plain"},
    {"\x7f\xc2\x80", u"\u007f\u0080", L"\u007f\u0080"},
    {"\xdf\xbf\xe0\xa0\x80", u"\u07ff\u0800", L"\u07ff\u0800"},
    {"\xef\xbf\xbd\xf0\x90\x80\x80", u"\ufffd\U00010000", L"\ufffd\U00010000"},
    {"a\xf0\x9f\x98\x80z", u"a\U0001f600z", L"a\U0001f600z"},
    {"\xf4\x8f\xbf\xbf", u"\U0010ffff", L"\U0010ffff"},
};

TEST(StringConvTest, ValidTexts) {
    const LogCapture log;
    for (const Sample& sample : cSamples) {
        EXPECT_EQ(KEConvToWString(sample.utf8), sample.wide);
        EXPECT_EQ(KEConvToU16String(sample.utf8), sample.utf16);
        EXPECT_EQ(KEConvToString(sample.wide), sample.utf8);
        EXPECT_EQ(KEConvToString(sample.utf16), sample.utf8);
        EXPECT_EQ(KEConvToUnicodeString(sample.utf16), sample.utf8);
    }
    EXPECT_TRUE(log.Messages().empty());
}

TEST(StringConvTest, InvalidUtf8IsLoggedAndEmpty) {
    // A stray continuation byte, a wrong one, an overlong form, bytes that never occur, a character cut off.
    for (const char* text :
         {"a\x80", "\xc3(", "\xc0\x80", "\xff", "\xf5\x80\x80\x80", "abc\xc3", "\xe2\x82", "\xf0\x9f\x98"}) {
        const LogCapture log;
        const DebugOutputCapture output;
        EXPECT_EQ(KEConvToWString(text), L"");
        EXPECT_EQ(KEConvToU16String(text), u"");
        const std::string line = std::string("Conversion of string '") + text + "' failed.";
        EXPECT_EQ(log.Texts(), (std::vector<std::string>{line, line}));
        EXPECT_EQ(log.Count(KEERROR, line), 2u);
        EXPECT_TRUE(output.Messages().empty());
    }
}

// The text in the message cannot be converted either.
TEST(StringConvTest, InvalidWiderTextsAreLoggedAndEmpty) {
    const char16_t loneSurrogate[] = {u'a', 0xD800, u'b', 0};
    const char16_t cutPair[] = {u'a', 0xD83D, 0};
    const char16_t wrongOrder[] = {0xDC00, 0xD800, 0};
    for (const char16_t* text : {loneSurrogate, cutPair, wrongOrder}) {
        const LogCapture log;
        const DebugOutputCapture output;
        EXPECT_EQ(KEConvToString(text), "");
        EXPECT_EQ(KEConvToUnicodeString(text), "");
        EXPECT_EQ(log.Count(KEERROR, "Conversion of string '' failed."), 2u);
        ASSERT_EQ(output.Messages().size(), 4u);
        EXPECT_NE(output.Messages()[0].find("Conversion of argument 0 failed."), std::string::npos);
    }
    const LogCapture log;
    const DebugOutputCapture output;
    const wchar_t tooLarge[] = {L'a', static_cast<wchar_t>(0x110000), 0};
    EXPECT_EQ(KEConvToString(tooLarge), "");
    EXPECT_EQ(log.Count(KEERROR, "Conversion of string '' failed."), 1u);
}

TEST(StringConvTest, NullIsEmptyWithoutAMessage) {
    const LogCapture log;
    EXPECT_EQ(KEConvToWString(nullptr), L"");
    EXPECT_EQ(KEConvToU16String(nullptr), u"");
    EXPECT_EQ(KEConvToString(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(KEConvToString(static_cast<const char16_t*>(nullptr)), "");
    EXPECT_EQ(KEConvToUnicodeString(nullptr), "");
    EXPECT_TRUE(log.Messages().empty());
}

TEST(UtfConvertTest, FailuresEmptyTheResultSilently) {
    const LogCapture log;
    const DebugOutputCapture output;
    std::wstring wide = L"old";
    std::u16string utf16 = u"old";
    std::string utf8 = "old";
    EXPECT_FALSE(KEUtf8ToWide("a\xff", wide));
    EXPECT_FALSE(KEUtf8ToUtf16("a\xff", utf16));
    EXPECT_EQ(wide, L"");
    EXPECT_EQ(utf16, u"");
    const char16_t surrogate[] = {0xDC00, 0};
    EXPECT_FALSE(KEUtf16ToUtf8(surrogate, utf8));
    EXPECT_EQ(utf8, "");
    utf8 = "old";
    const wchar_t tooLarge[] = {static_cast<wchar_t>(0x110000), 0};
    EXPECT_FALSE(KEWideToUtf8(tooLarge, utf8));
    EXPECT_EQ(utf8, "");
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_TRUE(output.Messages().empty());
}

// Single surrogates are not valid. Older standard libraries take them all the same, but for UTF-16.
TEST(UtfConvertTest, SingleSurrogatesAreRefusedOrComeBack) {
    const char* const utf8 = "\xed\xa0\x80";
    std::wstring wide = L"old";
    std::string back;
    if (KEUtf8ToWide(utf8, wide)) {
        EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0xD800)));
        EXPECT_TRUE(KEWideToUtf8(wide.c_str(), back));
        EXPECT_EQ(back, utf8);
    } else {
        EXPECT_EQ(wide, L"");
    }
    std::u16string utf16 = u"old";
    const bool isTaken = KEUtf8ToUtf16(utf8, utf16);
    EXPECT_EQ(utf16, isTaken ? std::u16string(1, char16_t{0xD800}) : std::u16string());
    const char16_t single[] = {0xD800, 0};
    EXPECT_FALSE(KEUtf16ToUtf8(single, back));
    const wchar_t pair[] = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00), 0};
    const bool isPairTaken = KEWideToUtf8(pair, back);
    EXPECT_EQ(back, isPairTaken ? "\xed\xa0\xbd\xed\xb8\x80" : "")
        << "a wide character is a whole code point";
}

TEST(UtfConvertTest, SuccessReplacesTheResult) {
    std::wstring wide = L"old";
    std::string utf8 = "old";
    EXPECT_TRUE(KEUtf8ToWide("new", wide));
    EXPECT_EQ(wide, L"new");
    EXPECT_TRUE(KEWideToUtf8(L"", utf8));
    EXPECT_EQ(utf8, "");
}

} // namespace
