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
    FormatSpecError error = cSuccess;
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

TEST(FormatterSpecTest, FillAndAlignment) {
    const SpecCase cases[] = {
        {.text = "}", .consumed = 0},
        {.text = "<}", .consumed = 1, .fill = ' ', .align = '<'},
        {.text = ">}", .consumed = 1, .fill = ' ', .align = '>'},
        {.text = "^}", .consumed = 1, .fill = ' ', .align = '^'},
        {.text = "=}", .consumed = 1, .fill = ' ', .align = '='},
        {.text = "*<}", .consumed = 2, .fill = '*', .align = '<'},
        {.text = "x=}", .consumed = 2, .fill = 'x', .align = '='},
        {.text = "<<}", .consumed = 2, .fill = '<', .align = '<'},
        {.text = "^=5}", .consumed = 3, .width = 5, .fill = '^', .align = '='},
        {.text = "}>5}",
         .consumed = 3,
         .width = 5,
         .fill = '}',
         .align = '>'}, // the second character is looked at first
        {.text = " <}", .consumed = 2, .fill = ' ', .align = '<'},
        {.text = "0<4}", .consumed = 3, .width = 4, .fill = '0', .align = '<'},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatterSpecTest, SignAlternateFormAndZero) {
    const SpecCase cases[] = {
        {.text = "+}", .consumed = 1, .sign = '+'},
        {.text = "-}", .consumed = 1, .sign = '-'},
        {.text = " }", .consumed = 1, .sign = ' '}, // a blank here is the sign
        {.text = "  }", .consumed = 1, .sign = ' '},
        {.text = "#}", .consumed = 1, .flags = cAlternate},
        {.text = "0}", .consumed = 1, .fill = '0', .align = '='},
        {.text = "04}", .consumed = 2, .width = 4, .fill = '0', .align = '='},
        {.text = "<04}", .consumed = 3, .width = 4, .fill = ' ', .align = '<'},
        {.text = "*^012}", .consumed = 5, .width = 12, .fill = '*', .align = '^'},
        {.text = "+#08}",
         .consumed = 4,
         .flags = cAlternate,
         .width = 8,
         .fill = '0',
         .align = '=',
         .sign = '+'},
        {.text = "00}", .consumed = 2, .fill = '0', .align = '='},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatterSpecTest, WidthGroupingAndPrecision) {
    const SpecCase cases[] = {
        {.text = "7}", .consumed = 1, .width = 7},
        {.text = "120}", .consumed = 3, .width = 120},
        {.text = "4294967295}", .consumed = 10, .width = 4294967295u},
        {.text = "4294967296}", .consumed = 10, .width = 4294967295u},
        {.text = "99999999999999999999999}", .consumed = 23, .width = 4294967295u},
        {.text = ",}", .consumed = 1, .grouping = ','},
        {.text = "_}", .consumed = 1, .grouping = '_'},
        {.text = "9,}", .consumed = 2, .width = 9, .grouping = ','},
        {.text = ".}", .consumed = 1, .flags = cPrecision},
        {.text = ".17}", .consumed = 3, .flags = cPrecision},
        {.text = ".99999999999999999999}", .consumed = 21, .flags = cPrecision},
        {.text = "8_.3x}", .consumed = 5, .flags = cPrecision | cHex, .width = 8, .grouping = '_'},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatterSpecTest, TypeLetters) {
    const SpecCase cases[] = {
        {.text = "x}", .consumed = 1, .flags = cHex},
        {.text = "X}", .consumed = 1, .flags = cHex | cUpper},
        {.text = "#x}", .consumed = 2, .flags = cAlternate | cHex | cFull},
        {.text = "#X}", .consumed = 2, .flags = cAlternate | cHex | cUpper | cFull},
        {.text = "d}", .consumed = 1},
        {.text = "n}", .consumed = 1},
        {.text = "#d}", .consumed = 2, .flags = cAlternate},
        {.text = "c}", .consumed = 1, .flags = cChar},
        {.text = "s}", .consumed = 1, .flags = cString},
        {.text = "e}", .consumed = 1},
        {.text = "f}", .consumed = 1},
        {.text = "g}", .consumed = 1},
        {.text = "E}", .consumed = 1},
        {.text = "F}", .consumed = 1},
        {.text = "G}", .consumed = 1},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatterSpecTest, DefaultFlagsStayUnlessALetterClearsThem) {
    KEFormatSpec status;
    status.mFlags = cHex | cAlternate | cFull;
    ExpectSpec({.text = "}", .consumed = 0, .flags = cHex | cAlternate | cFull}, status);
    ExpectSpec({.text = "d}", .consumed = 1, .flags = cAlternate | cFull}, status);
    ExpectSpec({.text = "n}", .consumed = 1, .flags = cAlternate | cFull}, status);
    ExpectSpec({.text = "X}", .consumed = 1, .flags = cHex | cAlternate | cFull | cUpper}, status);
    ExpectSpec({.text = "q}", .error = cUnsupported, .consumed = 1, .flags = cHex | cAlternate | cFull},
               status);
}

TEST(FormatterSpecTest, ABlankEndsTheSpecification) {
    for (const char* text : {"5 }", "5\t}", "5\n}", "5\v}", "5\f}", "5\r}"}) {
        ExpectSpec({.text = text, .consumed = 1, .width = 5});
    }
    ExpectSpec({.text = "\t}", .consumed = 0});
    ExpectSpec({.text = "+ }", .consumed = 1, .sign = '+'});
}

TEST(FormatterSpecTest, UnsupportedTypesAreConsumed) {
    const SpecCase cases[] = {
        {.text = "q}", .error = cUnsupported, .consumed = 1},
        {.text = "b}", .error = cUnsupported, .consumed = 1},
        {.text = "o}", .error = cUnsupported, .consumed = 1},
        {.text = "5b}", .error = cUnsupported, .consumed = 2, .width = 5},
        {.text = "{}", .error = cUnsupported, .consumed = 1},
        {.text = ":x}", .error = cUnsupported, .consumed = 1},
        {.text = "#+}",
         .error = cUnsupported,
         .consumed = 2,
         .flags = cAlternate}, // the order of the parts is fixed
        {.text = "5#}", .error = cUnsupported, .consumed = 2, .width = 5},
        {.text = ",5}", .error = cUnsupported, .consumed = 2, .grouping = ','},
        {.text = ".3,}", .error = cUnsupported, .consumed = 3, .flags = cPrecision},
        {.text = "\x80}", .error = cUnsupported, .consumed = 1},
        {.text = "\x0e}", .error = cUnsupported, .consumed = 1}, // just behind the blanks
        {.text = "\x08}", .error = cUnsupported, .consumed = 1}, // just before them
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
}

TEST(FormatterSpecTest, EndOfTheStringIsIncompleteAndNotPassed) {
    const SpecCase cases[] = {
        {.text = "", .error = cIncomplete, .consumed = 0},
        {.text = "<", .error = cIncomplete, .consumed = 1, .fill = ' ', .align = '<'},
        {.text = "}>", .error = cIncomplete, .consumed = 2, .fill = '}', .align = '>'},
        {.text = "+", .error = cIncomplete, .consumed = 1, .sign = '+'},
        {.text = "#", .error = cIncomplete, .consumed = 1, .flags = cAlternate},
        {.text = "0", .error = cIncomplete, .consumed = 1, .fill = '0', .align = '='},
        {.text = "12", .error = cIncomplete, .consumed = 2, .width = 12},
        {.text = ",", .error = cIncomplete, .consumed = 1, .grouping = ','},
        {.text = ".", .error = cIncomplete, .consumed = 1, .flags = cPrecision},
        {.text = ".3", .error = cIncomplete, .consumed = 2, .flags = cPrecision},
    };
    for (const SpecCase& test : cases) {
        ExpectSpec(test);
    }
    // Behind a type letter the format spec is complete.
    ExpectSpec({.text = "x", .consumed = 1, .flags = cHex});
}

} // namespace
