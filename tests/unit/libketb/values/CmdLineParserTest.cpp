// The command-line parser: options, positional arguments, and the line that each error prints.
#include "values/KECmdLineParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"

using namespace kestrelon;
using testsupport::CapturedMessage;
using testsupport::LogCapture;

namespace {

using Parser = KECmdLineParserT<char>;
using Words = std::vector<std::string>;

std::vector<std::string> sErrors;

void KeepError(const char* text) {
    sErrors.emplace_back(text);
}

// Two positional arguments, a switch, an option with a text and one with a number.
class CmdLineParserTest : public testing::Test {
protected:
    CmdLineParserTest() {
        sErrors.clear();
        mParser.DefineArgument(mFirst, {mIsFirstRequired}, &mHasFirst);
        mParser.DefineArgument(mSecond, {false}, &mHasSecond);
        mParser.DefineOption(mVerbose, {"v", "verbose", false}, &mHasVerbose);
        mParser.DefineOptionWithValue(mName, {"n", "name", false}, &mHasName);
        mParser.DefineOptionWithValue(mNumber, {"d", "number", false}, &mHasNumber);
    }

    KESTATUS Parse(const Words& words) { return ParseWith(mParser, words); }

    static KESTATUS ParseWith(Parser& parser, const Words& words) {
        std::vector<const char*> argv = {"/path/of/program"};
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        return parser.ParseCommandLine(static_cast<int>(argv.size()), argv.data());
    }

    static constexpr bool mIsFirstRequired = false;
    std::string mFirst = "first's default";
    std::string mSecond;
    std::string mName = "name's default";
    unsigned int mNumber = 77;
    bool mVerbose = false;
    bool mHasFirst = false;
    bool mHasSecond = false;
    bool mHasVerbose = true;
    bool mHasName = true;
    bool mHasNumber = true;
    Parser mParser{"prog", nullptr, nullptr, &KeepError};
};

TEST_F(CmdLineParserTest, NoWordAtAllFails) {
    EXPECT_EQ(mParser.ParseCommandLine(0, nullptr), 0xE0000001u);
    EXPECT_TRUE(sErrors.empty());
}

TEST_F(CmdLineParserTest, TheProgramsPathAloneIsFine) {
    EXPECT_EQ(Parse({}), KESTATUS_SUCCESS);
    EXPECT_EQ(mFirst, "first's default");
    EXPECT_EQ(mName, "name's default");
    EXPECT_EQ(mNumber, 77u);
    EXPECT_FALSE(mVerbose);
    EXPECT_FALSE(mHasFirst || mHasSecond || mHasVerbose || mHasName || mHasNumber);
    EXPECT_TRUE(sErrors.empty());
}

TEST_F(CmdLineParserTest, TheProgramsPathIsNeverAnOption) {
    const char* argv[] = {"-v", "a"};
    EXPECT_EQ(mParser.ParseCommandLine(2, argv), KESTATUS_SUCCESS);
    EXPECT_FALSE(mVerbose);
    EXPECT_EQ(mFirst, "a");
}

TEST_F(CmdLineParserTest, ShortNames) {
    EXPECT_EQ(Parse({"-v", "-n", "joe", "-d", "12", "one", "two"}), KESTATUS_SUCCESS);
    EXPECT_TRUE(mVerbose);
    EXPECT_EQ(mName, "joe");
    EXPECT_EQ(mNumber, 12u);
    EXPECT_EQ(mFirst, "one");
    EXPECT_EQ(mSecond, "two");
    EXPECT_TRUE(mHasFirst && mHasSecond && mHasVerbose && mHasName && mHasNumber);
}

TEST_F(CmdLineParserTest, LongNames) {
    EXPECT_EQ(Parse({"one", "--number", "0x10", "--verbose", "two", "--name", ""}), KESTATUS_SUCCESS);
    EXPECT_TRUE(mVerbose);
    EXPECT_EQ(mName, "");
    EXPECT_EQ(mNumber, 16u);
    EXPECT_EQ(mFirst, "one");
    EXPECT_EQ(mSecond, "two");
}

TEST_F(CmdLineParserTest, WhatIsNoOptionIsPositional) {
    for (const char* word :
         {"-", "--", "-5", "--5", "-_x", "---x", "-0x1F", "", "a", "- v", "-\xe4", "--\xe4", "v"}) {
        Parser parser("prog", nullptr, nullptr, &KeepError);
        std::string target = "old";
        bool isPresent = false;
        parser.DefineArgument(target, {false}, &isPresent);
        EXPECT_EQ(ParseWith(parser, {word}), KESTATUS_SUCCESS) << word;
        EXPECT_EQ(target, word);
        EXPECT_TRUE(isPresent);
    }
    EXPECT_TRUE(sErrors.empty());
}

TEST_F(CmdLineParserTest, UnknownOptions) {
    for (const char* word : {"-x", "--v", "-verbose", "--verbos", "--verbosee", "-V", "--Verbose", "-vn",
                             "-n=joe", "--name=joe", "-vv", "--verbose "}) {
        sErrors.clear();
        EXPECT_EQ(Parse({word}), 0xE0000013u) << word;
        EXPECT_EQ(sErrors, Words{std::string("prog: Unknown option ") + word + ".\n"});
    }
    EXPECT_FALSE(mVerbose);
    EXPECT_EQ(mName, "name's default");
}

TEST_F(CmdLineParserTest, TheFirstErrorEndsTheParse) {
    EXPECT_EQ(Parse({"-d", "5", "-x", "-y", "-v"}), KESTATUS_UNKNOWN_OPTION);
    EXPECT_EQ(sErrors, Words{"prog: Unknown option -x.\n"});
    EXPECT_EQ(mNumber, 5u) << "what came before stays";
    EXPECT_TRUE(mHasNumber);
    EXPECT_FALSE(mVerbose);
}

TEST_F(CmdLineParserTest, IgnoringUnknownOptions) {
    mParser.SetIgnoreUnknownOptions(true);
    EXPECT_EQ(Parse({"-x", "value", "--yy", "-v"}), KESTATUS_SUCCESS);
    EXPECT_EQ(sErrors,
              (Words{"prog: Ignoring unknown option -x.\n", "prog: Ignoring unknown option --yy.\n"}));
    EXPECT_EQ(mFirst, "value") << "the word behind an unknown option is not its value";
    EXPECT_TRUE(mVerbose);
    mParser.SetIgnoreUnknownOptions(false);
    EXPECT_EQ(Parse({"-x"}), KESTATUS_UNKNOWN_OPTION);
}

TEST_F(CmdLineParserTest, MissingValue) {
    for (const char* word : {"-n", "--name", "-d"}) {
        sErrors.clear();
        EXPECT_EQ(Parse({"-v", word}), 0xE0000012u);
        EXPECT_EQ(sErrors, Words{std::string("prog: Missing value for option ") + word + ".\n"});
    }
    EXPECT_FALSE(mHasName);
    EXPECT_EQ(mName, "name's default");
}

TEST_F(CmdLineParserTest, AValueMayLookLikeAnOption) {
    EXPECT_EQ(Parse({"-n", "-d", "--name", "--verbose"}), KESTATUS_SUCCESS);
    EXPECT_EQ(mName, "--verbose");
    EXPECT_EQ(mNumber, 77u);
    EXPECT_FALSE(mVerbose);
}

TEST_F(CmdLineParserTest, InvalidValue) {
    EXPECT_EQ(Parse({"-d", "abc"}), 0xE0000051u);
    EXPECT_EQ(Parse({"--number", "-x"}), 0xE0000051u);
    EXPECT_EQ(Parse({"--number", ""}), 0xE0000051u);
    EXPECT_EQ(sErrors, (Words{"prog: Invalid value abc for option -d.\n",
                              "prog: Invalid value -x for option --number.\n",
                              "prog: Invalid value  for option --number.\n"}));
    EXPECT_EQ(mNumber, 77u);
    EXPECT_FALSE(mHasNumber);
}

TEST_F(CmdLineParserTest, Numbers) {
    const struct {
        const char* text;
        unsigned int value;
    } cases[] = {
        {"0", 0},          {"00", 0},         {"010", 10},
        {"0x10", 16},      {"0X1f", 31},      {"007x", 7},
        {"12abc", 12},     {"0b11", 0},       {"4294967295", 0xFFFFFFFF},
        {"4294967296", 0}, {"4294967297", 1}, {"-1", 0xFFFFFFFF},
        {"+7", 7},         {" 7", 7},         {"-010", 0xFFFFFFF8},
        {"+010", 8},       {" 010", 8},       {"99999999999999999999999", 0xFFFFFFFF},
        {"0xg", 0},        {"3.9", 3},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Parse({"-d", test.text}), KESTATUS_SUCCESS) << test.text;
        EXPECT_EQ(mNumber, test.value) << test.text;
    }
    EXPECT_TRUE(sErrors.empty());
}

TEST_F(CmdLineParserTest, TheLaterOfTwoValuesWins) {
    EXPECT_EQ(Parse({"-n", "a", "--name", "b", "-v", "-v"}), KESTATUS_SUCCESS);
    EXPECT_EQ(mName, "b");
    EXPECT_TRUE(mVerbose);
}

TEST_F(CmdLineParserTest, ASwitchTakesNoValue) {
    EXPECT_EQ(Parse({"-v", "word"}), KESTATUS_SUCCESS);
    EXPECT_EQ(mFirst, "word");
}

TEST_F(CmdLineParserTest, ExtraWords) {
    EXPECT_EQ(Parse({"one", "two", "three", "four"}), 0xE0000084u);
    EXPECT_EQ(sErrors, Words{"prog: Unexpected argument three.\n"});
    EXPECT_EQ(mSecond, "two");
}

TEST_F(CmdLineParserTest, IgnoringExtraWords) {
    mParser.SetIgnoreExtraArguments(true);
    EXPECT_EQ(Parse({"one", "two", "three", "-v", "four"}), KESTATUS_SUCCESS);
    EXPECT_TRUE(sErrors.empty());
    EXPECT_TRUE(mVerbose);
    EXPECT_EQ(mSecond, "two");
}

TEST_F(CmdLineParserTest, ExtraWordsGoToTheLists) {
    for (const bool ignore : {false, true}) {
        KEStringVectorCHAR narrow;
        KEStringVectorWCHAR wide;
        std::string first;
        Parser both("prog", &narrow, &wide, &KeepError);
        both.DefineArgument(first, {false}, nullptr);
        both.SetIgnoreExtraArguments(ignore);
        EXPECT_EQ(ParseWith(both, {"a", "b", "-", "\xc3\xa4"}), KESTATUS_SUCCESS);
        EXPECT_EQ(first, "a");
        EXPECT_EQ(narrow, (Words{"b", "-", "\xc3\xa4"}));
        EXPECT_EQ(wide, (KEStringVectorWCHAR{L"b", L"-", L"\u00e4"}));
    }
    KEStringVectorCHAR narrow;
    Parser narrowOnly("prog", &narrow, nullptr, &KeepError);
    EXPECT_EQ(ParseWith(narrowOnly, {"a"}), KESTATUS_SUCCESS);
    EXPECT_EQ(narrow, Words{"a"});
    KEStringVectorWCHAR wide;
    Parser wideOnly("prog", nullptr, &wide, &KeepError);
    EXPECT_EQ(ParseWith(wideOnly, {"a"}), KESTATUS_SUCCESS);
    EXPECT_EQ(wide, KEStringVectorWCHAR{L"a"});
    EXPECT_TRUE(sErrors.empty());
}

TEST_F(CmdLineParserTest, RequiredArguments) {
    Parser parser("prog", nullptr, nullptr, &KeepError);
    std::string one;
    std::string two;
    std::string needed;
    parser.DefineArgument(one, {true}, nullptr);
    parser.DefineArgument(two, {true}, nullptr);
    parser.DefineOptionWithValue(needed, {"r", "required", true}, nullptr);
    EXPECT_EQ(ParseWith(parser, {}), 0xE0000010u);
    EXPECT_EQ(ParseWith(parser, {"a"}), 0xE0000010u) << "arguments are looked at before options";
    EXPECT_EQ(ParseWith(parser, {"b"}), 0xE0000011u);
    EXPECT_EQ(sErrors, (Words{"prog: Missing argument.\n", "prog: Missing argument.\n",
                              "prog: Missing required option r (required).\n"}));
    EXPECT_EQ(ParseWith(parser, {"-r", "x"}), KESTATUS_SUCCESS);
    EXPECT_EQ(needed, "x");
}

TEST_F(CmdLineParserTest, RequiredOptionsWithOneName) {
    bool target = false;
    Parser shortOnly("prog", nullptr, nullptr, &KeepError);
    shortOnly.DefineOption(target, {"s", "", true}, nullptr);
    EXPECT_EQ(ParseWith(shortOnly, {}), KESTATUS_MISSING_OPTION);
    Parser longOnly("prog", nullptr, nullptr, &KeepError);
    longOnly.DefineOption(target, {"", "long", true}, nullptr);
    EXPECT_EQ(ParseWith(longOnly, {}), KESTATUS_MISSING_OPTION);
    EXPECT_EQ(sErrors,
              (Words{"prog: Missing required option s ().\n", "prog: Missing required option  (long).\n"}));
    EXPECT_EQ(ParseWith(shortOnly, {"-s"}), KESTATUS_SUCCESS);
    EXPECT_EQ(ParseWith(longOnly, {"--long"}), KESTATUS_SUCCESS);
}

TEST_F(CmdLineParserTest, TheFirstMissingOptionIsNamed) {
    Parser parser("prog", nullptr, nullptr, &KeepError);
    bool a = false;
    bool b = false;
    parser.DefineOption(a, {"a", "aa", true}, nullptr);
    parser.DefineOption(b, {"b", "bb", true}, nullptr);
    EXPECT_EQ(ParseWith(parser, {}), KESTATUS_MISSING_OPTION);
    EXPECT_EQ(ParseWith(parser, {"-a"}), KESTATUS_MISSING_OPTION);
    EXPECT_EQ(sErrors,
              (Words{"prog: Missing required option a (aa).\n", "prog: Missing required option b (bb).\n"}));
}

TEST_F(CmdLineParserTest, AnEarlierErrorHidesWhatIsMissing) {
    Parser parser("prog", nullptr, nullptr, &KeepError);
    std::string one;
    parser.DefineArgument(one, {true}, nullptr);
    EXPECT_EQ(ParseWith(parser, {"-x"}), KESTATUS_UNKNOWN_OPTION);
    EXPECT_EQ(sErrors, Words{"prog: Unknown option -x.\n"});
}

TEST_F(CmdLineParserTest, InvalidPositionalWord) {
    Parser parser("prog", nullptr, nullptr, &KeepError);
    unsigned int number = 5;
    bool isPresent = false;
    parser.DefineArgument(number, {true}, &isPresent);
    EXPECT_EQ(ParseWith(parser, {"abc"}), KESTATUS_INVALID_FORMAT);
    EXPECT_EQ(sErrors, Words{"prog: Invalid argument abc.\n"});
    EXPECT_EQ(number, 5u);
    EXPECT_FALSE(isPresent);
}

TEST_F(CmdLineParserTest, DefiningAnOptionClearsItsFlag) {
    bool target = true;
    bool isPresent = true;
    mParser.DefineOption(target, {"q", "", false}, &isPresent);
    EXPECT_FALSE(isPresent);
    EXPECT_TRUE(target) << "the target keeps its default";
    isPresent = true;
    unsigned int number = 0;
    mParser.DefineOptionWithValue(number, {"w", "", false}, &isPresent);
    EXPECT_FALSE(isPresent);
}

TEST_F(CmdLineParserTest, DefiningAnArgumentDoesNot) {
    std::string target;
    bool isPresent = true;
    mParser.DefineArgument(target, {false}, &isPresent);
    EXPECT_TRUE(isPresent);
}

TEST_F(CmdLineParserTest, DefinitionErrorsAreLoggedOnly) {
    const LogCapture log;
    bool first = false;
    bool second = false;
    bool third = false;
    Parser parser("prog", nullptr, nullptr, &KeepError);
    parser.DefineOption(first, {"a", "all", false}, nullptr);
    EXPECT_TRUE(log.Messages().empty());
    parser.DefineOption(second, {"a", "all", false}, nullptr);
    parser.DefineOption(third, {"", "", false}, nullptr);
    parser.DefineOption(third, {"a", "other", false}, nullptr);
    const std::vector<CapturedMessage> expected = {
        {KEFATAL, "Long option name all already defined."}, {KEFATAL, "Short option name a already defined."},
        {KEFATAL, "At least one name must be given."},      {KEFATAL, "Short option name a already defined."},
        {KEFATAL, "Short option name a already defined."},
    };
    EXPECT_EQ(log.Messages(), expected);
    EXPECT_TRUE(sErrors.empty());
    EXPECT_EQ(ParseWith(parser, {"-a", "--all"}), KESTATUS_SUCCESS);
    EXPECT_TRUE(first) << "the first definition is the one found";
    EXPECT_FALSE(second);
    EXPECT_EQ(ParseWith(parser, {"--other"}), KESTATUS_SUCCESS) << "the option was added all the same";
    EXPECT_TRUE(third);
}

TEST_F(CmdLineParserTest, ErrorsWithoutAProgramName) {
    Parser parser("", nullptr, nullptr, &KeepError);
    EXPECT_EQ(ParseWith(parser, {"-x"}), KESTATUS_UNKNOWN_OPTION);
    parser.PrintError("{} and {}", 1, "two");
    parser.PrintErrorText("{}");
    mParser.PrintErrorText("text");
    EXPECT_EQ(sErrors, (Words{"Unknown option -x.\n", "1 and two", "{}", "prog: text"}));
}

TEST_F(CmdLineParserTest, TheDefaultPrinterWritesToStandardErrorAsItIs) {
    Parser parser("prog%s", nullptr, nullptr);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const KESTATUS st = ParseWith(parser, {"-x%n"});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "prog%s: Unknown option -x%n.\n");
    EXPECT_EQ(st, KESTATUS_UNKNOWN_OPTION);
}

TEST(CmdLineParserItemsTest, NamesAndKinds) {
    bool flag = false;
    std::string text;
    using Switch = Parser::Option<bool, &Parser::ProcessSwitchOption>;
    using Text = Parser::Argument<std::string, &KECmdLineArgHandler<std::string, std::string>::ProcessValue>;
    Switch option(flag, {"s", "long", true}, false, nullptr);
    Text argument(text, {false}, nullptr);
    EXPECT_EQ(option.GetShortName(), "s");
    EXPECT_EQ(option.GetLongName(), "long");
    EXPECT_TRUE(option.mIsRequired);
    EXPECT_FALSE(option.mIsPresent);
    EXPECT_FALSE(option.HasValue());
    EXPECT_EQ(option.Process("ignored"), KESTATUS_SUCCESS);
    EXPECT_TRUE(flag);
    EXPECT_EQ(&argument.GetShortName(), &Parser::ArgBase::sEmptyString);
    EXPECT_EQ(&argument.GetLongName(), &Parser::ArgBase::sEmptyString);
    EXPECT_EQ(Parser::ArgBase::sEmptyString, "");
    EXPECT_FALSE(argument.HasValue());
    EXPECT_FALSE(argument.mIsRequired);
    EXPECT_EQ(argument.Process("word"), KESTATUS_SUCCESS);
    EXPECT_EQ(text, "word");
}

// --- What was given ------------------------------------------------------------------------------

std::vector<Words> Occurrences(const Parser& parser) {
    std::vector<Words> all;
    for (const Parser::Occurrence& option : parser.Occurrences()) {
        all.push_back({option.mWord, option.mShortName, option.mValue});
    }
    return all;
}

TEST_F(CmdLineParserTest, KeepsTheOptionsAsTheyWereGiven) {
    EXPECT_EQ(Parse({"one", "--number", "5k", "-v", "two", "-n", "-v", "--number", "7"}), KESTATUS_SUCCESS);
    EXPECT_EQ(Occurrences(mParser),
              (std::vector<Words>{
                  {"--number", "d", "5k"}, {"-v", "v", ""}, {"-n", "n", "-v"}, {"--number", "d", "7"}}));
    EXPECT_EQ(mParser.OptionCount(), 3u);
    EXPECT_EQ(Parse({}), KESTATUS_SUCCESS);
    EXPECT_TRUE(mParser.Occurrences().empty());
}

TEST_F(CmdLineParserTest, ARejectedOptionIsTheLastOfThem) {
    EXPECT_EQ(Parse({"-v", "-x", "-n", "a"}), KESTATUS_UNKNOWN_OPTION);
    EXPECT_EQ(Occurrences(mParser), (std::vector<Words>{{"-v", "v", ""}, {"-x", "", ""}}));
    EXPECT_EQ(Parse({"-d", "abc"}), KESTATUS_INVALID_FORMAT);
    EXPECT_EQ(Occurrences(mParser), (std::vector<Words>{{"-d", "d", "abc"}}));
    EXPECT_EQ(Parse({"--name"}), KESTATUS_MISSING_VALUE);
    EXPECT_EQ(Occurrences(mParser), (std::vector<Words>{{"--name", "n", ""}}));
}

} // namespace
