// Every kind of argument, with its default and with the type letters that matter to it.
#include "text/FormatExpect.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "files/KEStdPath.h"
#include "values/KEEthernetMacAddress.h"

using namespace kestrelon;
using testsupport::ExpectFaults;
using testsupport::ExpectText;

namespace {

template <typename T>
constexpr T cMin = std::numeric_limits<T>::min();
template <typename T>
constexpr T cMax = std::numeric_limits<T>::max();

TEST(FormatterArgumentsTest, IntegersPrintDecimal) {
    ExpectText("97", "{}", 'a'); // a char is a number, too
    ExpectText("-128", "{}", cMin<signed char>);
    ExpectText("127", "{}", cMax<signed char>);
    ExpectText("255", "{}", cMax<unsigned char>);
    ExpectText("-32768", "{}", cMin<short>);
    ExpectText("65535", "{}", cMax<unsigned short>);
    ExpectText("-2147483648", "{}", cMin<int>);
    ExpectText("2147483647", "{}", cMax<int>);
    ExpectText("4294967295", "{}", cMax<unsigned int>);
    ExpectText("-9223372036854775808", "{}", cMin<long>);
    ExpectText("18446744073709551615", "{}", cMax<unsigned long>);
    ExpectText("-9223372036854775808", "{}", cMin<long long>);
    ExpectText("9223372036854775808", "{}", 9223372036854775808ull);
    ExpectText("0", "{}", 0);
    ExpectText("65", "{}", u'A');
    ExpectText("65", "{}", U'A');
    ExpectText("65", "{}", L'A');
}

TEST(FormatterArgumentsTest, IntegersOfEveryLength) {
    std::uint64_t power = 1;
    for (unsigned digits = 1; digits <= 20; ++digits, power *= 10) {
        for (const std::uint64_t number : {power - 1, power, power + 1, power * 9 / 8}) {
            const std::string text = std::to_string(number);
            ExpectText(text, "{}", number);
            ExpectText("+" + text, "{:+}", number);
            const auto negative = static_cast<std::int64_t>(0 - number);
            ExpectText(std::to_string(negative), "{}", negative);
        }
    }
}

TEST(FormatterArgumentsTest, PlainCharFollowsThePlatformsSign) {
    ExpectText(std::is_signed_v<char> ? "-1" : "255", "{}", static_cast<char>(0xFF));
}

TEST(FormatterArgumentsTest, HexadecimalIsCutToTheTypesWidth) {
    ExpectText("ff", "{:x}", static_cast<signed char>(-1));
    ExpectText("ffff", "{:x}", static_cast<short>(-1));
    ExpectText("ffffffff", "{:x}", -1);
    ExpectText("ffffffffffffffff", "{:x}", -1l);
    ExpectText("FFFFFFFFFFFFFFFE", "{:X}", -2ll);
    ExpectText("80000000", "{:x}", cMin<int>);
    ExpectText("0", "{:x}", 0);
    ExpectText("ffffffffffffffff", "{:x}", cMax<unsigned long>);
}

TEST(FormatterArgumentsTest, AlternateHexadecimalHasTheTypesFullWidth) {
    ExpectText("0x05", "{:#x}", static_cast<unsigned char>(5));
    ExpectText("0x0800", "{:#X}", static_cast<unsigned short>(0x800));
    ExpectText("0x0000ABCD", "{:#X}", 0xABCDu);
    ExpectText("0x00000FFF", "{:#X}", 0xFFF);
    ExpectText("0x000000000000abcd", "{:#x}", 0xABCDul);
    ExpectText("0xffffffff", "{:#x}", -1);
}

TEST(FormatterArgumentsTest, AlternateFormHasNoEffectOnDecimals) {
    ExpectText("5", "{:#}", 5);
    ExpectText("5", "{:#d}", 5);
}

TEST(FormatterArgumentsTest, CharacterType) {
    const struct {
        int code;
        const char* text;
    } cases[] = {
        {0, "NUL"}, {1, "?"},   {31, "?"},  {32, " "},    {65, "A"}, {126, "~"},  {127, "\x7f"},
        {128, "?"}, {255, "?"}, {256, "?"}, {0x141, "A"}, {-1, "?"}, {-191, "A"},
    };
    for (const auto& test : cases) {
        ExpectText(test.text, "{:c}", test.code);
    }
    ExpectText("A", "{:c}", 'A');
    ExpectText("A", "{:c}", static_cast<unsigned char>('A'));
    ExpectText("A", "{:c}", static_cast<short>('A'));
    ExpectText("A", "{:c}", 65ull);
    ExpectText("?", "{:c}", 0x100000000ull); // not zero, only its low byte is
}

TEST(FormatterArgumentsTest, CharacterTypeIsPaddedAsAText) {
    ExpectText("    A", "{:5c}", 'A');
    ExpectText("A....", "{:.<5c}", 'A');
    ExpectText("  NUL", "{:5c}", 0);
    ExpectText("0000A", "{:05c}", 'A');
}

TEST(FormatterArgumentsTest, Bool) {
    ExpectText("true false", "{} {}", true, false);
    ExpectText("  true|false ", "{:6}|{:<6}", true, false);
    ExpectText("true", "{:x}", true);
    ExpectText("true", "{:d}", true);
}

TEST(FormatterArgumentsTest, FloatingPointHasSixDecimals) {
    ExpectText("1.500000", "{}", 1.5f);
    ExpectText("3.141590", "{}", 3.14159);
    ExpectText("-0.250000", "{}", -0.25l);
    ExpectText("3.141590", "{:.2}", 3.14159);
    ExpectText("3.141590", "{:.2f}", 3.14159);
    ExpectText("1000000.000000", "{:,}", 1e6);
    ExpectText("1.500000", "{:+}", 1.5);
    ExpectText("   1.500000", "{:11}", 1.5);
    ExpectText("1.500000   ", "{:<11}", 1.5);
    ExpectText("0001.500000", "{:011}", 1.5);
    ExpectText("inf", "{}", std::numeric_limits<double>::infinity());
    ExpectText("-inf", "{}", -std::numeric_limits<float>::infinity());
}

TEST(FormatterArgumentsTest, LargestFloatingPointNumbersAreWhole) {
    const std::string largestDouble = std::to_string(cMax<double>); // "%f" as well
    ASSERT_EQ(largestDouble.size(), 316u);
    ExpectText(largestDouble, "{}", cMax<double>);
    ExpectText("-" + largestDouble, "{}", -cMax<double>);
    const std::string largestLongDouble = std::to_string(cMax<long double>);
    ASSERT_GE(largestLongDouble.size(), 316u);
    ExpectText(largestLongDouble, "{}", cMax<long double>);
    ExpectText("-" + largestLongDouble, "{}", -cMax<long double>);
}

TEST(FormatterArgumentsTest, NarrowTexts) {
    const char* text = "abc";
    char array[8] = "def";
    ExpectText("abc def ghi", "{} {} {}", text, array, "ghi");
    ExpectText("", "{}", "");
    ExpectText("   ab", "{:5}", "ab");
    ExpectText("a{}b", "{}", "a{}b"); // the arguments are no format strings
    const KEFormatArgChar argument = text;
    ExpectText("abc", "{}", argument);
    char* changeable = array;
    ExpectText("def", "{}", changeable);
}

TEST(FormatterArgumentsTest, CharArrayWithoutTerminatorIsBounded) {
    const char array[3] = {'a', 'b', 'c'};
    ExpectText("abc|", "{}|", array);
    struct {
        char first[2] = {'x', 'y'};
        char second[4] = "zzz";
    } neighbours;
    ExpectText("  xy", "{:4}", neighbours.first);
}

TEST(FormatterArgumentsTest, StringUpToItsFirstZero) {
    ExpectText("abc", "{}", std::string("abc"));
    ExpectText("     abc", "{:8}", std::string("abc"));
    ExpectText("a|", "{}|", std::string("a\0b", 3));
    ExpectText("   a|", "{:4}|", std::string("a\0b", 3));
    ExpectText("", "{}", std::string());
}

TEST(FormatterArgumentsTest, WiderTextsBecomeUtf8) {
    const KEFormatArgChar16 utf16 = u"a\u00e4\u20ac\U0001f600";
    const KEFormatArgWChar wide = L"a\u00e4\u20ac\U0001f600";
    ExpectText("a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "{}", utf16);
    ExpectText("a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "{}", wide);
    ExpectText("  ab", "{:4}", u"ab");
    ExpectText("ab  ", "{:<4}", L"ab");
}

TEST(FormatterArgumentsTest, UnconvertibleWiderTextIsAFault) {
    const std::vector<std::string> faults = {"ERROR: Conversion of argument 1 failed."};
    const char16_t loneSurrogate[] = {0xD800, u'a', 0};
    const char16_t cutPair[] = {u'a', 0xD83D, 0};
    const wchar_t tooLarge[] = {static_cast<wchar_t>(0x110000), 0};
    ExpectFaults(faults, "1||2", "{}|{}|{}", 1, static_cast<const char16_t*>(loneSurrogate), 2);
    ExpectFaults(faults, "1||2", "{}|{}|{}", 1, static_cast<const char16_t*>(cutPair), 2);
    ExpectFaults(faults, "1||2", "{}|{}|{}", 1, static_cast<const wchar_t*>(tooLarge), 2);
}

TEST(FormatterArgumentsTest, NullTexts) {
    const char* narrow = nullptr;
    const char16_t* utf16 = nullptr;
    const wchar_t* wide = nullptr;
    ExpectText("<<nullptr>>", "{}", narrow);
    ExpectText("<<nullptr>>", "{}", utf16);
    ExpectText("<<nullptr>>", "{}", wide);
    ExpectText("  <<nullptr>>", "{:13}", narrow);
    ExpectText("<<nullptr>>  ", "{:<13}", utf16);
    ExpectText("**<<nullptr>>", "{:*>13}", wide);
}

TEST(FormatterArgumentsTest, PointerIsAnUnsignedEightByteInteger) {
    const auto* pointer = std::bit_cast<const int*>(std::uintptr_t{0xFFFFFFFFFFFF1234});
    ExpectText("18446744073709490740", "{}", pointer);
    ExpectText("ffffffffffff1234", "{:x}", pointer);
    const auto* low = std::bit_cast<const void*>(std::uintptr_t{0x1234});
    ExpectText("4660", "{}", low);
    ExpectText("0x0000000000001234", "{:#x}", low);
    ExpectText("0", "{}", static_cast<void*>(nullptr));
    ExpectText("A", "{:c}", std::bit_cast<const void*>(std::uintptr_t{0x41}));
}

TEST(FormatterArgumentsTest, Status) {
    const KEFormatArgKEStatus timeout(KESTATUS_TIMEOUT);
    ExpectText("0xe0000003(KESTATUS_TIMEOUT)", "{}", timeout);
    ExpectText("0xe0000003(KESTATUS_TIMEOUT)", "{0}", timeout);
    ExpectText("0x00000000(KESTATUS_SUCCESS)", "{}", KEFormatArgKEStatus(KESTATUS_SUCCESS));
    ExpectText("0xe0010023(unknown)", "{}", KEFormatArgKEStatus(0xE0010023));
    ExpectText("3758096387(KESTATUS_TIMEOUT)", "{:d}", timeout);
    ExpectText("3758096387(KESTATUS_TIMEOUT)", "{:n}", timeout);
    ExpectText("0xE0000003(KESTATUS_TIMEOUT)", "{:X}", timeout);
    ExpectText("0xe0000003(KESTATUS_TIMEOUT)", "{:}", timeout);
    ExpectText("0xe0000003(KESTATUS_TIMEOUT)", "{:s}", timeout);
    ExpectText("0x0000000b(unknown)", "{}", KEFormatArgKEStatus(0xB));
}

TEST(FormatterArgumentsTest, StatusPadsTheNumberOnly) {
    const KEFormatArgKEStatus timeout(KESTATUS_TIMEOUT);
    ExpectText("  0xe0000003(KESTATUS_TIMEOUT)", "{:12}", timeout);
    ExpectText("0xe0000003**(KESTATUS_TIMEOUT)", "{:*<12}", timeout);
    ExpectText("000xe0000003(KESTATUS_TIMEOUT)", "{:012}", timeout);
    ExpectText("0xe000_0003(KESTATUS_TIMEOUT)", "{:_}", timeout);
    ExpectText("?(KESTATUS_FAILED)", "{:c}", KEFormatArgKEStatus(KESTATUS_FAILED));
}

TEST(FormatterArgumentsTest, StatusDefaultsDoNotReachTheNextField) {
    ExpectText("0xe0000001(KESTATUS_FAILED) 17", "{} {}", KEFormatArgKEStatus(KESTATUS_FAILED), 17);
}

TEST(FormatterArgumentsTest, Path) {
    ExpectText("a/b.pcapng", "{}", KEStdPath("a/b.pcapng"));
    ExpectText("  a/b", "{:5}", KEStdPath("a/b"));
}

struct Failing {
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec&) const {
        fmt.PutString("part");
        return 5;
    }
};

TEST(FormatterArgumentsTest, ObjectsOwnFailureIsReported) {
    ExpectFaults({"ERROR: Conversion of argument 0 failed."}, "part.", "{}.", Failing());
}

// An object that uses every operation a formattable object has.
struct Everything {
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const {
        fmt.FmtHexByte(0x0A, false);
        fmt.PutCharacter(' ');
        fmt.FmtHexWord(0x0ABC, true);
        fmt.PutCharacter(' ');
        fmt.FmtHexDword(0xABCDE, false);
        fmt.PutCharacter(' ');
        fmt.FmtHexQword(0xFEDCBA987, true);
        fmt.PutString(" 1 ");
        fmt.FmtCharacter('c', spec);
        fmt.FmtCharacter(u'\u00e4', spec);
        fmt.FmtCharacter(L'\u20ac', spec);
        fmt.FmtBool(true, spec);
        fmt.FmtInteger(static_cast<unsigned short>(7), spec);
        fmt.FmtIntNumber({-1, 2, true}, spec);
        fmt.FmtPointer(nullptr, spec);
        return fmt.FmtFloatingPoint(0.5f, spec);
    }
};

TEST(FormatterArgumentsTest, OperationsOfFormattableObjects) {
    ExpectText("0a 0ABC 000abcde 0000000FEDCBA987 1 c\xc3\xa4\xe2\x82\xactrue7-100.500000", "{}",
               Everything());
    ExpectText("0a 0ABC 000abcde 0000000FEDCBA987 1  c\xc3\xa4\xe2\x82\xactrue 7ffff 00.500000", "{:2x}",
               Everything());
}

} // namespace
