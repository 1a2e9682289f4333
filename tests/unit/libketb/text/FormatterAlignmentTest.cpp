// Width, fill, alignment, sign, prefix and grouping.
#include "text/FormatExpect.h"

#include <cstdint>
#include <string>

using namespace kestrelon;
using testsupport::ExpectText;

namespace {

TEST(FormatterAlignmentTest, Texts) {
    const struct {
        const char* format;
        const char* text;
    } cases[] = {
        {"{:5}", "   ab"},   {"{:<5}", "ab   "},  {"{:>5}", "   ab"},  {"{:=5}", "   ab"},
        {"{:*<5}", "ab***"}, {"{:*>5}", "***ab"}, {"{:*=5}", "***ab"}, {"{:05}", "000ab"},
        {"{:<05}", "ab   "}, {"{:2}", "ab"},      {"{:1}", "ab"},      {"{:0}", "ab"},
        {"{:3s}", " ab"},    {"{:}>5}", "}}}ab"}, {"{:.1}", "ab"},     {"{:+5}", "   ab"},
        {"{:#5x}", "   ab"}, {"{: 5}", "   ab"},
    };
    for (const auto& test : cases) {
        ExpectText(test.text, test.format, "ab");
    }
}

// The leading share of a centred text is half the padding, counted down in steps of two; the rest is behind.
TEST(FormatterAlignmentTest, CentredTexts) {
    const struct {
        const char* format;
        const char* text;
    } cases[] = {
        {"{:*^2}", "ab"},        {"{:*^3}", "ab*"},         {"{:*^4}", "*ab*"},     {"{:*^5}", "*ab**"},
        {"{:*^6}", "*ab**"},     {"{:*^7}", "*ab***"},      {"{:*^8}", "**ab***"},  {"{:*^9}", "**ab****"},
        {"{:*^10}", "**ab****"}, {"{:*^12}", "***ab*****"}, {"{:^10}", "  ab    "},
    };
    for (const auto& test : cases) {
        ExpectText(test.text, test.format, "ab");
    }
}

struct NumberCase {
    const char* format;
    int value;
    const char* text;
};

TEST(FormatterAlignmentTest, DecimalNumbers) {
    const NumberCase cases[] = {
        {"{:6}", 42, "    42"},    {"{:6}", -42, "   -42"},   {"{:<6}", -42, "-42   "},
        {"{:>6}", -42, "   -42"},  {"{:^6}", -42, " -42  "},  {"{:^7}", -42, "  -42  "},
        {"{:=6}", -42, "-   42"},  {"{:*=6}", -42, "-***42"}, {"{:*<6}", 42, "42****"},
        {"{:*>6}", 42, "****42"},  {"{:*^6}", 42, "**42**"},  {"{:*^5}", 42, "*42**"},
        {"{:06}", 42, "000042"},   {"{:06}", -42, "-00042"},  {"{:+06}", 42, "+00042"},
        {"{: 06}", 42, " 00042"},  {"{:<06}", -42, "-42   "}, {"{:<04}", -5, "-5  "},
        {"{:*<06}", 42, "42****"}, {"{:^06}", 42, "  42  "},  {"{:}>5}", 42, "}}}42"},
        {"{:3}", -42, "-42"},      {"{:2}", -42, "-42"},      {"{:1}", 12345, "12345"},
        {"{:0}", 42, "42"},        {"{:=+6}", 42, "+   42"},
    };
    for (const NumberCase& test : cases) {
        ExpectText(test.text, test.format, test.value);
    }
}

TEST(FormatterAlignmentTest, Signs) {
    const NumberCase cases[] = {
        {"{:+}", 5, "+5"},  {"{:+}", 0, "+0"},         {"{:+}", -5, "-5"},    {"{:-}", 5, "5"},
        {"{:-}", -5, "-5"}, {"{: }", 5, " 5"},         {"{: }", -5, "-5"},    {"{:+x}", 5, "5"},
        {"{: x}", 5, "5"},  {"{:+x}", -1, "ffffffff"}, {"{:+5}", 5, "   +5"}, {"{:<+5}", 5, "+5   "},
    };
    for (const NumberCase& test : cases) {
        ExpectText(test.text, test.format, test.value);
    }
    ExpectText("+5", "{:+}", 5u);
    ExpectText("+18446744073709551615", "{:+}", ~0ull);
}

TEST(FormatterAlignmentTest, HexadecimalNumbers) {
    const struct {
        const char* format;
        unsigned value;
        const char* text;
    } cases[] = {
        {"{:x}", 0xABCD, "abcd"},
        {"{:X}", 0xABCD, "ABCD"},
        {"{:08x}", 0xABCD, "0000abcd"},
        {"{:8x}", 0xABCD, "    abcd"},
        {"{:<8X}", 0xABCD, "ABCD    "},
        {"{:^8x}", 0xABCD, "  abcd  "},
        {"{:*=8x}", 0xABCD, "****abcd"},
        {"{:#x}", 0xABCD, "0x0000abcd"},
        {"{:#X}", 0xABCD, "0x0000ABCD"},
        {"{:#12x}", 0xABCD, "  0x0000abcd"},
        {"{:#012x}", 0xABCD, "000x0000abcd"}, // the prefix belongs to the digits
        {"{:<#12x}", 0xABCD, "0x0000abcd  "},
        {"{:#4x}", 0xABCD, "0x0000abcd"},
    };
    for (const auto& test : cases) {
        ExpectText(test.text, test.format, test.value);
    }
}

TEST(FormatterAlignmentTest, DecimalGrouping) {
    const NumberCase cases[] = {
        {"{:,}", 0, "0"},
        {"{:,}", 999, "999"},
        {"{:,}", 1000, "1,000"},
        {"{:,}", 999999, "999,999"},
        {"{:,}", 1234567, "1,234,567"},
        {"{:_}", 1234567, "1_234_567"},
        {"{:,}", -1000, "-1,000"},
        {"{:+,}", 1000, "+1,000"},
        {"{:10,}", 1234567, " 1,234,567"},
        {"{:012,}", 1234567, "0001,234,567"},
        {"{:012,}", -1234567, "-001,234,567"},
        {"{:<7,}", 1000, "1,000  "},
    };
    for (const NumberCase& test : cases) {
        ExpectText(test.text, test.format, test.value);
    }
    ExpectText("18,446,744,073,709,551,615", "{:,}", ~0ull);
    ExpectText("-9,223,372,036,854,775,808", "{:,}", INT64_MIN);
}

TEST(FormatterAlignmentTest, HexadecimalGrouping) {
    ExpectText("abcd", "{:,x}", 0xABCD);
    ExpectText("a_bcde", "{:_x}", 0xABCDE);
    ExpectText("0x0000,abcd", "{:#,x}", 0xABCDu);
    ExpectText("0x0000_0000_0000_ABCD", "{:#_X}", 0xABCDul);
    ExpectText("ffff_ffff_ffff_ffff", "{:_x}", ~0ull);
    ExpectText("0x05", "{:#_x}", static_cast<unsigned char>(5));
}

// No format letter sets this flag, a formattable object may.
struct GroupedByEight {
    int FormatObject(KEFormatterBase& fmt, KEFormatSpec spec) const {
        spec.mFlags |= KEFormatSpec::GroupByEight;
        return fmt.FmtInteger(0xFEDCBA9876543210u, spec);
    }
};

TEST(FormatterAlignmentTest, HexadecimalGroupingByEight) {
    ExpectText("fedcba98_76543210", "{:_x}", GroupedByEight());
    ExpectText("18_364_758_544_493_064_720", "{:_}", GroupedByEight()); // decimals stay with three
}

} // namespace
