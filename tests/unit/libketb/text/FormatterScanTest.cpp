// The scanner of format strings: literals, fields, indexes, and every fault it reports.
#include "text/FormatExpect.h"

#include <string>
#include <vector>

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::ExpectFaults;
using testsupport::ExpectText;

namespace {

const std::string cStray = "WARNING: Discarding unexpected closing bracket }.";
const std::string cNoArgument = "ERROR: No argument for {} replacement field.";
const std::string cMoreArguments = "ERROR: More arguments than {} replacement fields.";
const std::string cMissingBracket = "ERROR: Missing closing bracket }.";
const std::string cIncomplete = "ERROR: Incomplete format specification.";

std::string BadIndex(const std::string& index) {
    return "ERROR: Index=" + index + " is an invalid index specification.";
}
std::string BadSpecifier(int code) {
    return "WARNING: Ignoring unsupported format specifier " + std::to_string(code) + ".";
}
std::string BadCharacter(int code) {
    return "WARNING: Ignoring unexpected character " + std::to_string(code) + " within {} replacement field.";
}

TEST(FormatterScanTest, Literals) {
    ExpectText("", "");
    ExpectText("abc", "abc");
    ExpectText("{}", "{{}}");
    ExpectText("{{}}", "{{{{}}}}");
    ExpectText("a{b}c", "a{{b}}c");
    ExpectText("{5}", "{{{}}}", 5);
    ExpectText("%s%n\\\x80\xff\n", "%s%n\\\x80\xff\n");
}

// Every place of a bracket, in texts of other characters that are close to one.
TEST(FormatterScanTest, BracketsAreFoundBehindTextOfEveryLength) {
    for (const char filler : {'a', 'y', 'z', '|', '~', '\x01', '\x7f', '\x80', '\xfb', '\xfd', '\xff'}) {
        for (std::size_t length = 0; length <= 40; ++length) {
            const std::string text(length, filler);
            ExpectText(text, text.c_str());
            ExpectText(text + "{" + text, (text + "{{" + text).c_str());
            ExpectText(text + "}" + text, (text + "}}" + text).c_str());
            ExpectText(text + "7" + text, (text + "{}" + text).c_str(), 7);
            ExpectFaults({cStray}, text, (text + "}").c_str());
        }
    }
}

TEST(FormatterScanTest, StrayClosingBracketTakesTheNextCharacterAlong) {
    ExpectFaults({cStray}, "a", "a}b");
    ExpectFaults({cStray}, "ac", "a}bc");
    ExpectFaults({cStray}, "a", "a}");
    ExpectFaults({cStray}, "}", "}}}");
    ExpectFaults({cStray}, "", "}");
    ExpectFaults({cStray, cStray}, "ad", "a}b}cd");
    // The field's own opening bracket is skipped, so that its closing one is stray as well.
    ExpectFaults({cStray, cStray, cMoreArguments}, "", "}{}", 1);
}

TEST(FormatterScanTest, AutomaticAndExplicitIndexes) {
    ExpectText("5 6 7", "{} {} {}", 5, 6, 7);
    ExpectText("6 5", "{1} {0}", 5, 6);
    ExpectText("6 7", "{1} {}", 5, 6, 7); // the automatic index goes on behind the used one
    ExpectText("5 6 5 6", "{} {} {0} {}", 5, 6);
    ExpectText("7 7", "{2} {2}", 5, 6, 7);
    ExpectText("6", "{001}", 5, 6);
    ExpectText("16", "{0}{1:}", 1, 6);
}

TEST(FormatterScanTest, BlanksInsideAField) {
    ExpectText("5", "{ }", 5);
    ExpectText("5", "{ \t\n\v\f\r}", 5);
    ExpectText("6 5", "{ 1 } {\t0\t}", 5, 6);
    ExpectText("   5", "{ 0 :4 }", 5);
    ExpectText(" 5", "{: }", 5); // right behind the colon a blank is the sign
}

TEST(FormatterScanTest, MissingArguments) {
    ExpectFaults({cNoArgument}, "", "{}");
    ExpectFaults({cNoArgument}, "a|", "a{:5x}|");
    ExpectFaults({cNoArgument}, "1 ", "{} {}", 1);
    ExpectFaults({cNoArgument, cNoArgument}, "1  ", "{} {} {}", 1);
}

TEST(FormatterScanTest, SurplusArguments) {
    ExpectFaults({cMoreArguments}, "abc", "abc", 1);
    ExpectFaults({cMoreArguments}, "", "", 1);
    ExpectFaults({cMoreArguments}, "1 2", "{} {}", 1, 2, 3);
    ExpectFaults({cMoreArguments}, "2 1", "{1} {0}", 1, 2, 3);
    ExpectText("3", "{2}", 1, 2, 3); // it is the highest index that counts
    ExpectText("3 1", "{2} {0}", 1, 2, 3);
}

TEST(FormatterScanTest, InvalidIndexFallsBackToTheAutomaticOne) {
    ExpectFaults({BadIndex("5")}, "1", "{5}", 1);
    ExpectFaults({BadIndex("2")}, "1 2", "{2} {}", 1, 2);
    ExpectFaults({BadIndex("0"), cNoArgument}, "", "{0}");
    ExpectFaults({BadIndex("4294967295")}, "1", "{4294967295}", 1);
    ExpectFaults({BadIndex("4294967295")}, "1", "{4294967296}", 1);
    ExpectFaults({BadIndex("4294967295")}, "1", "{99999999999999999999999999}", 1);
}

TEST(FormatterScanTest, UnexpectedCharactersInsideAField) {
    ExpectFaults({BadCharacter('a')}, "1", "{a}", 1);
    ExpectFaults({BadCharacter('-')}, "2 ", "{-1} ", 1, 2);
    ExpectFaults({BadCharacter('{')}, "1", "{ {}", 1);
    ExpectFaults({BadCharacter(0x80), BadCharacter(0xFF)}, "1", "{\x80\xff}", 1);
    ExpectFaults({BadCharacter(8), BadCharacter(14)}, "1", "{\x08\x0e}", 1); // around the blanks
    ExpectFaults({BadCharacter('x')}, "  1", "{:3dx}", 1);
}

TEST(FormatterScanTest, UnsupportedSpecifiers) {
    ExpectFaults({BadSpecifier(113)}, "1", "{:q}", 1);
    ExpectFaults({BadSpecifier('b')}, "5", "{:b}", 5);
    ExpectFaults({BadSpecifier('o')}, "   8", "{:4o}", 8); // what was parsed so far stays
    ExpectFaults({BadSpecifier(0xE4)}, "1", "{:\xe4}", 1);
    ExpectFaults({BadSpecifier('q')}, "0xe0000001(KESTATUS_FAILED)", "{:q}",
                 KEFormatArgKEStatus(KESTATUS_FAILED));
    // The scan goes on behind the offending character, inside the field.
    ExpectFaults({BadSpecifier('b'), BadCharacter('x')}, "16", "{:bx}", 16);
    ExpectFaults({BadSpecifier('{')}, "1", "{:{}", 1);
}

TEST(FormatterScanTest, TwoSpecificationsInAField) {
    // The first one ends at the second colon, which it does not support.
    ExpectFaults({BadSpecifier(':'), BadCharacter('x')}, " 255", "{:4:x}", 255);
    // Behind a complete one the second adds to the first.
    ExpectText("  ff", "{:4 :x}", 255);
    ExpectText("  FF", "{:X:4}", 255);
    // Digits behind a format spec select the argument.
    ExpectText("  2", "{:3 1}", 1, 2);
}

TEST(FormatterScanTest, EndInsideAField) {
    ExpectFaults({cMoreArguments, cMissingBracket}, "", "{", 1);
    ExpectFaults({cMissingBracket}, "", "{");
    ExpectFaults({cMissingBracket}, "a", "a{");
    ExpectFaults({cMoreArguments, cMissingBracket}, "", "{0", 1);
    ExpectFaults({cIncomplete, cMissingBracket}, "", "{:");
    ExpectFaults({cIncomplete, cMoreArguments, cMissingBracket}, "", "{:", 1);
    ExpectFaults({cIncomplete, cMissingBracket}, "1", "{}{:5", 1);
    ExpectFaults({cMoreArguments, cMissingBracket}, "", "{:x", 1); // the format spec itself is complete
    ExpectFaults({cMissingBracket}, "{", "{{{");
}

TEST(FormatterScanTest, SeveralFaultsKeepTheirOrder) {
    ExpectFaults(
        {cStray, BadIndex("9"), BadCharacter('!'), BadSpecifier('?'), cMoreArguments, cMissingBracket}, "1",
        "}x{9!:?}{", 1, 2, 3);
}

// The whole line of every diagnostic: module name, then the function, then the number of arguments.
TEST(FormatterScanTest, DiagnosticsToTheLetter) {
    const std::string oldName = KEModuleName();
    KESetModuleName("a module");
    const struct {
        const char* format;
        const char* level;
        const char* text;
    } cases[] = {
        {"{}}x", "WARNING", "Discarding unexpected closing bracket }. FormatString follows, 1 arguments.\n"},
        {"{7}", "ERROR", "Index=7 is an invalid index specification. FormatString follows, 1 arguments.\n"},
        {"{:q}", "WARNING",
         "Ignoring unsupported format specifier 113. FormatString follows, 1 arguments.\n"},
        {"{}{}", "ERROR", "No argument for {} replacement field. FormatString follows, 1 arguments.\n"},
        {"{}{:", "ERROR", "Incomplete format specification. FormatString follows, 1 arguments.\n"},
        {"{z}", "WARNING",
         "Ignoring unexpected character 122 within {} replacement field. FormatString follows, 1 "
         "arguments.\n"},
        {"", "ERROR", "More arguments than {} replacement fields. FormatString follows, 1 arguments.\n"},
        {"{}{", "ERROR", "Missing closing bracket }. FormatString follows, 1 arguments.\n"},
    };
    const int value = 1;
    const fmtimpl::ArgumentArray<int> holders(value);
    for (const auto& test : cases) {
        const DebugOutputCapture output;
        KEFormatter().FormatArgs(test.format, holders.mHolders, 1);
        const auto messages = output.Messages();
        ASSERT_GE(messages.size(), 2u) << test.format;
        EXPECT_TRUE(messages[0].starts_with(std::string("a module: ") + test.level + ": ")) << messages[0];
        EXPECT_TRUE(messages[0].ends_with(std::string(": ") + test.text)) << messages[0];
        EXPECT_NE(messages[0].find("KEFormatterT"), std::string::npos) << messages[0];
        EXPECT_NE(messages[0].find("FormatArgs("), std::string::npos) << messages[0];
        EXPECT_EQ(messages[1], std::string(test.format) + "\n");
    }
    KESetModuleName(oldName.c_str());
}

struct Failing {
    int FormatObject(KEFormatterBase&, const KEFormatSpec&) const { return 1; }
};

TEST(FormatterScanTest, FailedConversionNamesTheArgument) {
    const std::string failed0 = "ERROR: Conversion of argument 0 failed.";
    const std::string failed1 = "ERROR: Conversion of argument 1 failed.";
    ExpectFaults({failed1, failed0}, "-3", "{1}-{0}{2}", Failing(), Failing(), 3);
    ExpectFaults({failed0}, "5", "{}{}", Failing(), 5); // the automatic index goes on
}

TEST(FormatterScanTest, PercentSignsDoNotUpsetTheDiagnostics) {
    ExpectFaults({cMoreArguments}, "100%s%n", "100%s%n", 1);
}

std::vector<std::string> FaultsOfStdStringFormat(const char* format, const std::string& expectedText) {
    const DebugOutputCapture output;
    EXPECT_EQ(KEStdStringFormat(format, 1), expectedText);
    return testsupport::FaultsOf(output.Messages(), format, 1);
}

TEST(FormatterScanTest, FormattingIntoAStringReportsTwice) {
    using Faults = std::vector<std::string>;
    EXPECT_EQ(FaultsOfStdStringFormat("{}", "1"), Faults{});
    EXPECT_EQ(FaultsOfStdStringFormat("{} {}", "1 "), (Faults{cNoArgument, cNoArgument}));
    EXPECT_EQ(FaultsOfStdStringFormat("a{", "a"),
              (Faults{cMoreArguments, cMissingBracket, cMoreArguments, cMissingBracket}));
    // Without a single character there is no second pass.
    EXPECT_EQ(FaultsOfStdStringFormat("", ""), Faults{cMoreArguments});
    EXPECT_EQ(FaultsOfStdStringFormat("{", ""), (Faults{cMoreArguments, cMissingBracket}));
}

} // namespace
