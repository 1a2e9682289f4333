// Names and lists of names as a terminal and a shell can take them.

#include "explanations/DeviceText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace flowlane::devicetext;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DeviceTextTest, ATerminalObeysNoName) {
    EXPECT_EQ(Printable("eth0"), "eth0");
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f"), "a?[31m??");
    EXPECT_EQ(Printable("\xc3\xa9t\xc3\xa9"), "\xc3\xa9t\xc3\xa9");
}

TEST(DeviceTextTest, ALongNameIsCutBetweenCharacters) {
    EXPECT_EQ(Printable("abcdef", 6), "abcdef");
    EXPECT_EQ(Printable("abcdefg", 6), "abcdef...");
    EXPECT_EQ(Printable("ab\xc3\xa9t", 3), "ab...");
    EXPECT_EQ(Printable("ab\xc3\xa9t", 4), "ab\xc3\xa9...");
    EXPECT_EQ(Printable("\x80\x80\x80", 1), "...");
}

TEST(DeviceTextTest, AShellReadsAWordAsItWas) {
    EXPECT_EQ(ShellWord("/usr/bin/flowlane-1.2_x"), "/usr/bin/flowlane-1.2_x");
    EXPECT_EQ(ShellWord(""), "''");
    EXPECT_EQ(ShellWord("/my files/flowlane"), "'/my files/flowlane'");
    EXPECT_EQ(ShellWord("it's"), "'it'\\''s'");
    EXPECT_EQ(ShellWord("$HOME;*"), "'$HOME;*'");
    EXPECT_EQ(ShellWord("~"), "'~'");
    EXPECT_EQ(ShellWord("\xc3\xa9"), "'\xc3\xa9'");
    EXPECT_EQ(ShellWord("a\nb\x1b'\\"), "$'a\\012b\\033\\'\\\\'");
}

TEST(DeviceTextTest, AListSaysHowMuchItLeavesOut) {
    EXPECT_EQ(JoinedList({}), "");
    EXPECT_EQ(JoinedList({"a"}), "a");
    EXPECT_EQ(JoinedList({"a", "b", "c"}), "a, b, c");
    EXPECT_EQ(JoinedList({"aa", "bb", "cc"}, 10), "aa, bb, cc");
    EXPECT_EQ(JoinedList({"aa", "bb", "cc"}, 9), "aa, bb and 1 more");
    EXPECT_EQ(JoinedList({"long name", "bb", "cc"}, 3), "long name and 2 more");
}

TEST(DeviceTextTest, TheNearestNamesComeFirst) {
    EXPECT_THAT(NearestFirst({}, "eth0"), IsEmpty());
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "nowhere"), ElementsAre(0, 1, 2));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "LANE-2"), ElementsAre(1, 0, 2));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "eht0"), ElementsAre(2, 0, 1));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "et"), ElementsAre(2, 0, 1));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "eth0.100"), ElementsAre(0, 1, 2));
    // All letters of a short name are wrong.
    EXPECT_THAT(NearestFirst({"eth0", "lo"}, "xy"), ElementsAre(0, 1));
    // The name of a device in use may be unknown.
    EXPECT_THAT(NearestFirst({"", "ab"}, "ab"), ElementsAre(1, 0));
}
