// Expansion of a text into words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KELinuxWordExp.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Words(const KELinuxWordExp& expansion) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < expansion.WordCount(); ++i) {
        words.emplace_back(expansion.Word(i));
    }
    return words;
}

struct ExpansionCase {
    const char* text;
    std::vector<std::string> words;
};

class WordExpTest : public testing::TestWithParam<ExpansionCase> {};

TEST_P(WordExpTest, ExpandsAsTheShellDoes) {
    setenv("WORD_EXP_TEST", "/some/where", 1);
    setenv("HOME", "/home/nobody", 1);
    const LogCapture log;
    KELinuxWordExp expansion;
    EXPECT_EQ(expansion.ExpandString(GetParam().text, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(Words(expansion), GetParam().words);
    EXPECT_EQ(expansion.Word(GetParam().words.size()), nullptr);
    EXPECT_THAT(log.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Texts, WordExpTest,
                         testing::Values(ExpansionCase{"plain.log", {"plain.log"}},
                                         ExpansionCase{"two words", {"two", "words"}},
                                         ExpansionCase{"  two \t words ", {"two", "words"}},
                                         ExpansionCase{"'two words'", {"two words"}},
                                         ExpansionCase{"two\\ words", {"two words"}},
                                         ExpansionCase{"$WORD_EXP_TEST/x.log", {"/some/where/x.log"}},
                                         ExpansionCase{"${WORD_EXP_TEST}.log", {"/some/where.log"}},
                                         ExpansionCase{"~/x.log", {"/home/nobody/x.log"}},
                                         ExpansionCase{"$(echo told).log", {"told.log"}},
                                         ExpansionCase{"$NOT_SET_ANYWHERE", {}}, ExpansionCase{"", {}}));

class WordExpFailureTest : public testing::TestWithParam<const char*> {};

TEST_P(WordExpFailureTest, IsLoggedAndLeavesNoWords) {
    const LogCapture log;
    KELinuxWordExp expansion;
    ASSERT_EQ(expansion.ExpandString("two words", 0), KESTATUS_SUCCESS);
    EXPECT_EQ(expansion.ExpandString(GetParam(), 0), KESTATUS{0xE0000001});
    EXPECT_EQ(expansion.WordCount(), 0u);
    EXPECT_EQ(expansion.Word(0), nullptr);
    const std::string ret = std::to_string(GetParam()[0] == '(' ? WRDE_BADCHAR : WRDE_SYNTAX);
    EXPECT_THAT(log.Messages(), ElementsAre(IsMessageOf(KEERROR, "KELinuxWordExp::ExpandString",
                                                        "wordexp failed, ret=" + ret)));
    EXPECT_EQ(expansion.ExpandString("more", 0), KESTATUS_SUCCESS);
    EXPECT_EQ(expansion.WordCount(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Texts, WordExpFailureTest, testing::Values("(x", "\"open", "$(open", "${open"));

TEST(WordExpTest, FlagsReachTheSystem) {
    const LogCapture log;
    KELinuxWordExp expansion;
    EXPECT_EQ(expansion.ExpandString("$(echo told)", WRDE_NOCMD), KESTATUS_FAILED);
    EXPECT_EQ(log.CountContaining(KEERROR, "wordexp failed, ret=" + std::to_string(WRDE_CMDSUB)), 1u);
}

TEST(WordExpTest, ANullTextIsRefused) {
    KELinuxWordExp expansion;
    ASSERT_EQ(expansion.ExpandString("word", 0), KESTATUS_SUCCESS);
    EXPECT_EQ(expansion.ExpandString(nullptr, 0), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(expansion.WordCount(), 0u);
}

TEST(WordExpTest, EveryResultIsFreedOnce) {
    const CallLog calls;
    {
        KELinuxWordExp expansion;
        expansion.ClearExpansion();
        EXPECT_EQ(calls.Count("wordfree"), 0u); // nothing yet
        ASSERT_EQ(expansion.ExpandString("one", 0), KESTATUS_SUCCESS);
        ASSERT_EQ(expansion.ExpandString("two", 0), KESTATUS_SUCCESS);
        EXPECT_EQ(calls.Count("wordfree"), 1u);
        ASSERT_EQ(expansion.ExpandString("(", 0), KESTATUS_FAILED);
        EXPECT_EQ(calls.Count("wordfree"), 2u);
        ASSERT_EQ(expansion.ExpandString("three", 0), KESTATUS_SUCCESS);
        EXPECT_EQ(calls.Count("wordfree"), 2u);
    }
    EXPECT_EQ(calls.Count("wordfree"), 3u);
}

TEST(WordExpTest, APartialResultIsFreedWhenMemoryRunsShort) {
    KELinuxWordExp expansion;
    const CallLog calls;
    const SystemCallFault fault("wordexp", WRDE_NOSPACE);
    EXPECT_EQ(expansion.ExpandString("one", 0), KESTATUS_FAILED);
    EXPECT_EQ(calls.Count("wordfree"), 1u);
}

} // namespace
