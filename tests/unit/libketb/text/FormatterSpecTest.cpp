// The parser of format specs, step by step.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "text/KEFormatScanner.h"

using namespace kestrelon;
using fmtimpl::FormatSpecError;

namespace {

constexpr auto cSuccess = FormatSpecError::Success;
constexpr auto cUnsupported = FormatSpecError::UnsupportedType;
constexpr auto cIncomplete = FormatSpecError::IncompleteSpec;

constexpr std::uint32_t cHex = 0x2;
constexpr std::uint32_t cAlternate = 0x4;
constexpr std::uint32_t cUpper = 0x8;
constexpr std::uint32_t cFull = 0x10;
constexpr std::uint32_t cChar = 0x40;
constexpr std::uint32_t cString = 0x80;
constexpr std::uint32_t cPrecision = 0x400;

struct SpecCase {
    const char* text;
    FormatSpecError error;
    unsigned consumed;
    std::uint32_t flags = 0;
    std::uint32_t width = 0;
    char fill = 0;
    char align = 0;
    char sign = 0;
    char grouping = 0;
};

void ExpectSpec(const SpecCase& test, KEFormatSpec spec = {}) {
    const char* position = test.text;
    EXPECT_EQ(KEFormatScanner::ExtractFormatSpec(position, spec), test.error) << test.text;
    EXPECT_EQ(static_cast<unsigned>(position - test.text), test.consumed) << test.text;
    EXPECT_EQ(spec.mFlags, test.flags) << test.text;
    EXPECT_EQ(spec.mWidth, test.width) << test.text;
    EXPECT_EQ(spec.mFillCharacter, test.fill) << test.text;
    EXPECT_EQ(spec.mAlignCharacter, test.align) << test.text;
    EXPECT_EQ(spec.mSignCharacter, test.sign) << test.text;
    EXPECT_EQ(spec.mGroupingCharacter, test.grouping) << test.text;
}

TEST(FormatSpec, FillAndAlignment) {
    const SpecCase cases[] = {
        {"}", cSuccess, 0},
        {"<}", cSuccess, 1, 0, 0, ' ', '<'},
        {">}", cSuccess, 1, 0, 0, ' ', '>'},
        {"^}", cSuccess, 1, 0, 0, ' ', '^'},
        {"=}", cSuccess, 1, 0, 0, ' ', '='},
        {"*<}", cSuccess, 2, 0, 0, '*', '<'},
        {"x=}", cSuccess, 2, 0, 0, 'x', '='},
        {"<<}", cSuccess, 2, 0, 0, '<', '<'},
        {"^=5}", cSuccess, 3, 0, 5, '^', '='},
        {"}>5}", cSuccess, 3, 0, 5, '}', '>'}, // the second character is looked at first
        {" <}", cSuccess, 2, 0, 0, ' ', '<'},
        {"0<4}", cSuccess, 3, 0, 4, '0', '<'},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatSpec, SignAlternateFormAndZero) {
    const SpecCase cases[] = {
        {"+}", cSuccess, 1, 0, 0, 0, 0, '+'},
        {"-}", cSuccess, 1, 0, 0, 0, 0, '-'},
        {" }", cSuccess, 1, 0, 0, 0, 0, ' '}, // a blank here is the sign
        {"  }", cSuccess, 1, 0, 0, 0, 0, ' '},
        {"#}", cSuccess, 1, cAlternate},
        {"0}", cSuccess, 1, 0, 0, '0', '='},
        {"04}", cSuccess, 2, 0, 4, '0', '='},
        {"<04}", cSuccess, 3, 0, 4, ' ', '<'},
        {"*^012}", cSuccess, 5, 0, 12, '*', '^'},
        {"+#08}", cSuccess, 4, cAlternate, 8, '0', '=', '+'},
        {"00}", cSuccess, 2, 0, 0, '0', '='},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatSpec, WidthGroupingAndPrecision) {
    const SpecCase cases[] = {
        {"7}", cSuccess, 1, 0, 7},
        {"120}", cSuccess, 3, 0, 120},
        {"4294967295}", cSuccess, 10, 0, 4294967295u},
        {"4294967296}", cSuccess, 10, 0, 4294967295u},
        {"99999999999999999999999}", cSuccess, 23, 0, 4294967295u},
        {",}", cSuccess, 1, 0, 0, 0, 0, 0, ','},
        {"_}", cSuccess, 1, 0, 0, 0, 0, 0, '_'},
        {"9,}", cSuccess, 2, 0, 9, 0, 0, 0, ','},
        {".}", cSuccess, 1, cPrecision},
        {".17}", cSuccess, 3, cPrecision},
        {".99999999999999999999}", cSuccess, 21, cPrecision},
        {"8_.3x}", cSuccess, 5, cPrecision | cHex, 8, 0, 0, 0, '_'},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatSpec, TypeLetters) {
    const SpecCase cases[] = {
        {"x}", cSuccess, 1, cHex},
        {"X}", cSuccess, 1, cHex | cUpper},
        {"#x}", cSuccess, 2, cAlternate | cHex | cFull},
        {"#X}", cSuccess, 2, cAlternate | cHex | cUpper | cFull},
        {"d}", cSuccess, 1},
        {"n}", cSuccess, 1},
        {"#d}", cSuccess, 2, cAlternate},
        {"c}", cSuccess, 1, cChar},
        {"s}", cSuccess, 1, cString},
        {"e}", cSuccess, 1},
        {"f}", cSuccess, 1},
        {"g}", cSuccess, 1},
        {"E}", cSuccess, 1},
        {"F}", cSuccess, 1},
        {"G}", cSuccess, 1},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatSpec, DefaultFlagsStayUnlessALetterClearsThem) {
    KEFormatSpec status;
    status.mFlags = cHex | cAlternate | cFull;
    ExpectSpec({"}", cSuccess, 0, cHex | cAlternate | cFull}, status);
    ExpectSpec({"d}", cSuccess, 1, cAlternate | cFull}, status);
    ExpectSpec({"n}", cSuccess, 1, cAlternate | cFull}, status);
    ExpectSpec({"X}", cSuccess, 1, cHex | cAlternate | cFull | cUpper}, status);
    ExpectSpec({"q}", cUnsupported, 1, cHex | cAlternate | cFull}, status);
}

TEST(FormatSpec, ABlankEndsTheSpecification) {
    for (const char* text : {"5 }", "5\t}", "5\n}", "5\v}", "5\f}", "5\r}"}) {
        ExpectSpec({text, cSuccess, 1, 0, 5});
    }
    ExpectSpec({"\t}", cSuccess, 0});
    ExpectSpec({"+ }", cSuccess, 1, 0, 0, 0, 0, '+'});
}

TEST(FormatSpec, UnsupportedTypesAreConsumed) {
    const SpecCase cases[] = {
        {"q}", cUnsupported, 1},
        {"b}", cUnsupported, 1},
        {"o}", cUnsupported, 1},
        {"5b}", cUnsupported, 2, 0, 5},
        {"{}", cUnsupported, 1},
        {":x}", cUnsupported, 1},
        {"#+}", cUnsupported, 2, cAlternate}, // the order of the parts is fixed
        {"5#}", cUnsupported, 2, 0, 5},
        {",5}", cUnsupported, 2, 0, 0, 0, 0, 0, ','},
        {".3,}", cUnsupported, 3, cPrecision},
        {"\x80}", cUnsupported, 1},
        {"\x0e}", cUnsupported, 1}, // just behind the blanks
        {"\x08}", cUnsupported, 1}, // just before them
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatSpec, EndOfTheStringIsIncompleteAndNotPassed) {
    const SpecCase cases[] = {
        {"", cIncomplete, 0},
        {"<", cIncomplete, 1, 0, 0, ' ', '<'},
        {"}>", cIncomplete, 2, 0, 0, '}', '>'},
        {"+", cIncomplete, 1, 0, 0, 0, 0, '+'},
        {"#", cIncomplete, 1, cAlternate},
        {"0", cIncomplete, 1, 0, 0, '0', '='},
        {"12", cIncomplete, 2, 0, 12},
        {",", cIncomplete, 1, 0, 0, 0, 0, 0, ','},
        {".", cIncomplete, 1, cPrecision},
        {".3", cIncomplete, 2, cPrecision},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
    // Behind a type letter the format spec is complete.
    ExpectSpec({"x", cSuccess, 1, cHex});
}

} // namespace
