// The first bytes of a file, and of what is no regular file none.

#include "explanations/FileHead.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

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

} // namespace
} // namespace flowlane
