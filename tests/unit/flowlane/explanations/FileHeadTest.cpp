// The first bytes of a file, and of what is no regular file none; the capture files that are known by them.

#include "explanations/FileHead.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "TemporaryFolder.h"

namespace flowlane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FileHeadTest, HasTheFirstBytes) {
    const testsupport::TemporaryFolder folder;
    folder.Write("file", "abc");
    EXPECT_THAT(ReadFileHead(folder / "file", 2), ElementsAre('a', 'b'));
    EXPECT_THAT(ReadFileHead(folder / "file", 5), ElementsAre('a', 'b', 'c'));
}

TEST(FileHeadTest, IsEmptyWhereThereIsNothingToRead) {
    const testsupport::TemporaryFolder folder;
    folder.Write("empty", "");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const char* name : {"empty", "pipe", "missing", "."}) {
        EXPECT_THAT(ReadFileHead(folder / name, 5), IsEmpty()) << name;
    }
    EXPECT_THAT(ReadFileHead("/dev/zero", 5), IsEmpty());
}

FileHead Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

TEST(FileHeadTest, BytesAreComparedWhereThereAreEnough) {
    EXPECT_TRUE(HasBytes(Bytes("abcd"), 0, "abcd"));
    EXPECT_TRUE(HasBytes(Bytes("abcd"), 2, "cd"));
    EXPECT_FALSE(HasBytes(Bytes("abcd"), 1, "cd"));
    EXPECT_FALSE(HasBytes(Bytes("abcd"), 2, "cde"));
    EXPECT_FALSE(HasBytes(Bytes("abcd"), 9, "a"));
    EXPECT_FALSE(HasBytes({}, 0, "a"));
}

TEST(FileHeadTest, CaptureFilesAreKnown) {
    for (const char* mark :
         {"\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4", "\x4D\x3C\xB2\xA1", "\xA1\xB2\x3C\x4D"}) {
        EXPECT_TRUE(IsClassicPcap(Bytes(mark)));
        EXPECT_FALSE(IsPcapNg(Bytes(mark)));
    }
    EXPECT_TRUE(IsPcapNg(Bytes("\x0A\x0D\x0D\x0A")));
    EXPECT_FALSE(IsPcapNg(Bytes("\x0A\x0D\x0D")));
    EXPECT_FALSE(IsClassicPcap(Bytes("\x0A\x0D\x0D\x0A")));
    EXPECT_FALSE(IsClassicPcap({}));
}

} // namespace
} // namespace flowlane
