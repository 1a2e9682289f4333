// Where the formatted characters go: fixed buffers of every size, the counting range, strings.
#include "text/FormatExpect.h"

#include <algorithm>
#include <string>

using namespace kestrelon;

namespace {

template <typename... Args>
std::size_t FormatInto(char* buffer, std::size_t size, const char* format, const Args&... args) {
    const fmtimpl::ArgumentArray<Args...> holders(args...);
    return KEFormatter(buffer, size).FormatArgs(format, holders.mHolders, holders.cCount);
}

// Every size from nothing to more than enough: the text is cut, terminated, and nothing lies behind it.
template <typename... Args>
void ExpectEverySize(const std::string& text, const char* format, const Args&... args) {
    for (std::size_t size = 0; size <= text.size() + 3; ++size) {
        std::string buffer(text.size() + 8, '#');
        EXPECT_EQ(FormatInto(buffer.data(), size, format, args...), text.size()) << size;
        std::string expected = size == 0 ? "" : text.substr(0, size - 1) + '\0';
        expected.resize(buffer.size(), '#');
        EXPECT_EQ(buffer, expected) << "size " << size;
    }
}

TEST(FormatterBufferTest, EverySize) {
    ExpectEverySize("", "");
    ExpectEverySize("literal text", "literal text");
    ExpectEverySize("a literal text of 34 characters...", "a literal text of 34 characters...");
    ExpectEverySize("<an argument of 28 characters>", "<{}>", "an argument of 28 characters");
    ExpectEverySize("12 abc -7", "{} {} {}", 12, "abc", -7);
    ExpectEverySize("***ab...", "{:*>5}{:.<3}", "ab", "");
    ExpectEverySize("   7|7   |-007", "{:4}|{:<4}|{:04}", 7, 7, -7);
    ExpectEverySize("0xe0000003(KESTATUS_TIMEOUT)", "{}", KEFormatArgKEStatus(KESTATUS_TIMEOUT));
    ExpectEverySize("1.500000 true", "{} {}", 1.5, true);
    ExpectEverySize("\xe2\x82\xac!", "{}!", L"\u20ac"); // cut within a character when it must be
}

TEST(FormatterBufferTest, NullBufferOnlyCounts) {
    EXPECT_EQ(FormatInto(nullptr, 0, "{:5} {}", 1, "abc"), 9u);
    EXPECT_EQ(FormatInto(nullptr, 100, "{:5} {}", 1, "abc"), 9u);
    const int value = 17;
    const fmtimpl::ArgumentArray<int> holders(value);
    EXPECT_EQ(KEFormatter().FormatArgs("<{}>", holders.mHolders, 1), 4u);
}

TEST(FormatterBufferTest, HugeWidthIsCountedButNotWritten) {
    char buffer[8];
    EXPECT_EQ(FormatInto(buffer, sizeof buffer, "{:4294967295}", "ab"), 4294967295u);
    EXPECT_STREQ(buffer, "       ");
    EXPECT_EQ(FormatInto(buffer, sizeof buffer, "{:<4294967295}{:4294967295}", 17, 1), 8589934590u);
    EXPECT_STREQ(buffer, "17     ");
    EXPECT_EQ(FormatInto(nullptr, 0, "{:^4294967294}", 7), 4294967294u);
}

TEST(FormatterBufferTest, LengthGoesOnAcrossCalls) {
    char buffer[16];
    KEFormatter formatter(buffer, sizeof buffer);
    EXPECT_EQ(formatter.FormatArgs("ab", nullptr, 0), 2u);
    EXPECT_EQ(formatter.FormatArgs("cd", nullptr, 0), 4u);
    EXPECT_STREQ(buffer, "abcd");
}

TEST(FormatterBufferTest, StdStringOfExactlyTheTextsLength) {
    const std::string text = KEStdStringFormat("{} and {:04x}", "some text", 0xABu);
    EXPECT_EQ(text, "some text and 00ab");
    EXPECT_EQ(text.size(), 18u);
    EXPECT_EQ(text.c_str()[18], '\0');
    EXPECT_EQ(KEStdStringFormat("no arguments"), "no arguments");
    EXPECT_EQ(KEStdStringFormat(""), "");
    EXPECT_EQ(KEStdStringFormat("{:c}", 0), "NUL");
}

TEST(FormatterBufferTest, StdStringLongerThanAnyFixedBuffer) {
    const std::string longText(100000, 'x');
    EXPECT_EQ(KEStdStringFormat("<{}>", longText), "<" + longText + ">");
}

} // namespace
