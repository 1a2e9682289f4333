// Where the formatted characters go: fixed buffers of every size, the counting range, strings.
#include "text/FormatExpect.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

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
    ExpectEverySize("18446744073709551615 -9223372036854775808", "{} {}", 18446744073709551615u,
                    std::numeric_limits<std::int64_t>::min());
    ExpectEverySize("0x0000_0001_2345_6789 -1,234,567,890", "{:#_x} {:,}", 0x123456789ull, -1234567890);
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

TEST(FormatterBufferTest, StdStringOfEveryLength) {
    for (std::size_t length = 0; length <= 600; ++length) {
        const std::string text(length, 'x');
        EXPECT_EQ(KEStdStringFormat("{}", text), text);
        EXPECT_EQ(KEStdStringFormat("{}{}", text, 18446744073709551615u), text + "18446744073709551615");
    }
}

TEST(FormatterBufferTest, StdStringReportsFaultsTwiceWhateverTheLength) {
    for (const std::size_t length : {1u, 200u, 254u, 255u, 256u, 257u, 1000u}) {
        const testsupport::DebugOutputCapture output;
        EXPECT_EQ(KEStdStringFormat("{}", std::string(length, 'x'), 1), std::string(length, 'x'));
        const std::vector<std::string> faults(2, "ERROR: More arguments than {} replacement fields.");
        EXPECT_EQ(testsupport::FaultsOf(output.Messages(), "{}", 2), faults) << length;
    }
}

TEST(FormatterBufferTest, StdStringReportsFaultsOnceWhenTheTextIsEmpty) {
    const testsupport::DebugOutputCapture output;
    EXPECT_EQ(KEStdStringFormat("", 1), "");
    EXPECT_EQ(output.Messages().size(), 2u); // the fault and the format string
}

TEST(FormatterBufferTest, StdStringLongerThanAnyFixedBuffer) {
    const std::string longText(100000, 'x');
    EXPECT_EQ(KEStdStringFormat("<{}>", longText), "<" + longText + ">");
}

} // namespace
