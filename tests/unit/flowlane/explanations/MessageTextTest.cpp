// Names, lists of names and words of commands as a terminal and a shell can take them.

#include "explanations/MessageText.h"

#include <gtest/gtest.h>

#include <string>

namespace flowlane {
namespace {

TEST(MessageTextTest, ATerminalObeysNoName) {
    EXPECT_EQ(Printable("eth0"), "eth0");
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f"), "a?[31m??");
    EXPECT_EQ(Printable("\xc3\xa9t\xc3\xa9"), "\xc3\xa9t\xc3\xa9");
    EXPECT_EQ(Quoted("a\nb"), "'a?b'");
}

TEST(MessageTextTest, ALongNameIsCutBetweenCharacters) {
    EXPECT_EQ(Printable(std::string(81, 'a')), std::string(80, 'a') + "...");
    EXPECT_EQ(Printable("abcdef", 6), "abcdef");
    EXPECT_EQ(Printable("abcdefg", 6), "abcdef...");
    EXPECT_EQ(Printable("ab\xc3\xa9t", 3), "ab...");
    EXPECT_EQ(Printable("ab\xc3\xa9t", 4), "ab\xc3\xa9...");
    EXPECT_EQ(Printable("\x80\x80\x80", 1), "...");
}

TEST(MessageTextTest, AShellReadsAWordAsItWas) {
    EXPECT_EQ(ShellWord("/usr/bin/flowlane-1.2_x"), "/usr/bin/flowlane-1.2_x");
    EXPECT_EQ(ShellWord(""), "''");
    EXPECT_EQ(ShellWord("/my files/flowlane"), "'/my files/flowlane'");
    EXPECT_EQ(ShellWord("it's"), "'it'\\''s'");
    EXPECT_EQ(ShellWord("$HOME;*"), "'$HOME;*'");
    EXPECT_EQ(ShellWord("~"), "'~'");
    EXPECT_EQ(ShellWord("\xc3\xa9"), "'\xc3\xa9'");
    EXPECT_EQ(ShellWord("a\nb\x1b'\\"), "$'a\\012b\\033\\'\\\\'");
}

TEST(MessageTextTest, ALongWordIsCut) {
    EXPECT_EQ(ShortShellWord("a b\n"), "$'a b\\012'");
    EXPECT_EQ(ShortShellWord(std::string(80, 'x')), std::string(80, 'x'));
    EXPECT_EQ(ShortShellWord(std::string(81, 'x')), std::string(80, 'x') + "...");
}

TEST(MessageTextTest, APathIsNoOption) {
    EXPECT_EQ(ShellWord("-F"), "-F");
    EXPECT_EQ(ShellPath("-F.pcap"), "./-F.pcap");
    EXPECT_EQ(ShellPath("a/-F b"), "'a/-F b'");
    EXPECT_EQ(ShellPath(""), "''");
    EXPECT_EQ(QuotedShellPath("a.ts"), "'a.ts'");
    EXPECT_EQ(QuotedShellPath("-it's.ts"), "'./-it'\\''s.ts'");
    EXPECT_EQ(QuotedShellPath("a\nb"), "$'a\\012b'");
}

TEST(MessageTextTest, WordsAreJoined) {
    EXPECT_EQ(JoinedBy(" or ", {}), "");
    EXPECT_EQ(JoinedBy(" or ", {"a"}), "a");
    EXPECT_EQ(JoinedBy(" or ", {"a", "b"}), "a or b");
    EXPECT_EQ(JoinedBy(" and ", {"a", "b", "c"}), "a, b and c");
}

TEST(MessageTextTest, AListSaysHowMuchItLeavesOut) {
    EXPECT_EQ(JoinedList({}), "");
    EXPECT_EQ(JoinedList({"a"}), "a");
    EXPECT_EQ(JoinedList({"a", "b", "c"}), "a, b, c");
    EXPECT_EQ(JoinedList({"aa", "bb", "cc"}, 10), "aa, bb, cc");
    EXPECT_EQ(JoinedList({"aa", "bb", "cc"}, 9), "aa, bb and 1 more");
    EXPECT_EQ(JoinedList({"long name", "bb", "cc"}, 3), "long name and 2 more");
}

} // namespace
} // namespace flowlane
