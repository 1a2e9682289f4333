// Streams of the C library: reading, writing, positions, failures.
#include "files/KEStdFileStream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <type_traits>
#include <utility>

#include "LogExpect.h"
#include "TemporaryFolder.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

static_assert(std::is_nothrow_move_constructible_v<KEStdFileStream> &&
              std::is_nothrow_move_assignable_v<KEStdFileStream>);
static_assert(!std::is_copy_constructible_v<KEStdFileStream>);

class StdFileStreamTest : public testing::Test {
protected:
    KESTATUS Open(const std::string& name, const char* mode) {
        return mStream.OpenFile((mDirectory / name).c_str(), mode);
    }
    // A stream that cannot be positioned.
    KESTATUS OpenPipe() {
        EXPECT_EQ(pipe2(mPipe, O_CLOEXEC), 0);
        const KESTATUS st = mStream.OpenFile(("/proc/self/fd/" + std::to_string(mPipe[0])).c_str(), "rb");
        close(mPipe[0]);
        close(mPipe[1]);
        return st;
    }

    LogCapture mLog;
    TemporaryFolder mDirectory;
    KEStdFileStream mStream;
    int mPipe[2] = {-1, -1};
};

TEST_F(StdFileStreamTest, KeepsWhyReadingOrWritingFailed) {
    mDirectory.Write("file", "0123456789");
    char data[20] = {};
    ASSERT_EQ(Open("file", "rb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.ReadFromFile(data, sizeof data), 10u);
    EXPECT_EQ(mStream.LastError(), KESTATUS_SUCCESS); // the end is no failure
    ASSERT_EQ(Open(".", "rb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.ReadFromFile(data, 1), 0u);
    EXPECT_EQ(mStream.LastError(), KEStatusFromErrno(EISDIR));
    ASSERT_EQ(mStream.OpenFile("/dev/full", "wb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.LastError(), KESTATUS_SUCCESS);
    mStream.DisableBuffering();
    EXPECT_EQ(mStream.WriteToFile(data, 1), 0u);
    EXPECT_EQ(mStream.LastError(), KEStatusFromErrno(ENOSPC));
    mStream.CloseFile();
    EXPECT_EQ(mStream.LastError(), KEStatusFromErrno(ENOSPC));
    ASSERT_EQ(Open("file", "wb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.WriteToFile(data, 1), 1u);
    EXPECT_EQ(mStream.LastError(), KESTATUS_SUCCESS);
}

TEST_F(StdFileStreamTest, ReadsUpToTheEnd) {
    mDirectory.Write("file", "0123456789");
    EXPECT_FALSE(mStream.IsOpen());
    ASSERT_EQ(Open("file", "rb"), KESTATUS_SUCCESS);
    EXPECT_TRUE(mStream.IsOpen());
    char data[8] = {};
    EXPECT_EQ(mStream.ReadFromFile(data, 6), 6u);
    EXPECT_EQ(std::string(data, 6), "012345");
    EXPECT_EQ(mStream.ReadFromFile(data, 4), 4u);
    EXPECT_FALSE(mStream.IsEndOfFile()); // nothing was missing yet
    EXPECT_EQ(mStream.ReadFromFile(data, 6), 0u);
    EXPECT_TRUE(mStream.IsEndOfFile());
    EXPECT_TRUE(mStream.IsEndOfFile()); // it stays

    EXPECT_EQ(mStream.RewindFile(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mStream.IsEndOfFile());
    EXPECT_EQ(mStream.ReadFromFile(data, 8), 8u);
    EXPECT_EQ(mStream.ReadFromFile(data, 8), 2u); // a short read at the end
    EXPECT_TRUE(mStream.IsEndOfFile());
    EXPECT_EQ(std::string(data, 2), "89");
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(StdFileStreamTest, SeeksAndTells) {
    mDirectory.Write("file", "0123456789");
    ASSERT_EQ(Open("file", "rb"), KESTATUS_SUCCESS);
    struct Step {
        long offset;
        int whence;
        std::size_t position;
    };
    for (const Step& step : {Step{3, SEEK_SET, 3}, Step{4, SEEK_CUR, 7}, Step{-2, SEEK_END, 8},
                             Step{0, SEEK_SET, 0}, Step{20, SEEK_SET, 20}}) {
        std::size_t position = 99;
        EXPECT_EQ(mStream.Seek(step.offset, step.whence), KESTATUS_SUCCESS);
        EXPECT_EQ(mStream.Tell(position), KESTATUS_SUCCESS);
        EXPECT_EQ(position, step.position);
    }
    std::size_t size = 0;
    EXPECT_EQ(mStream.SeekToEnd(), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.Tell(size), KESTATUS_SUCCESS);
    EXPECT_EQ(size, 10u);
    EXPECT_FALSE(mStream.IsEndOfFile()); // only a read tells
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(StdFileStreamTest, WritesFlushesAndPrints) {
    ASSERT_EQ(Open("file", "wb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.WriteToFile("abc\0d", 5), 5u);
    EXPECT_EQ(mStream.Printf("-%d-%s", 17, "x"), 5);
    EXPECT_EQ(mDirectory.Read("file"), "");
    EXPECT_EQ(mStream.FlushFile(), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("file"), std::string("abc\0d-17-x", 10));
    EXPECT_EQ(mStream.WriteToFile("end", 3), 3u);
    mStream.CloseFile();
    EXPECT_FALSE(mStream.IsOpen());
    EXPECT_EQ(mDirectory.Read("file"), std::string("abc\0d-17-xend", 13));
    mStream.CloseFile();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(StdFileStreamTest, OpeningClosesTheOpenFileFirst) {
    ASSERT_EQ(Open("first", "wb"), KESTATUS_SUCCESS);
    ASSERT_EQ(mStream.WriteToFile("text", 4), 4u);
    // The same file again: what was buffered must be in it by now.
    ASSERT_EQ(Open("first", "rb"), KESTATUS_SUCCESS);
    char data[8] = {};
    EXPECT_EQ(mStream.ReadFromFile(data, 8), 4u);

    EXPECT_EQ(Open("missing", "rb"), KESTATUS{0xE0010002});
    EXPECT_FALSE(mStream.IsOpen());
    EXPECT_THAT(mLog.Messages(), IsEmpty()); // for the caller to report
}

TEST_F(StdFileStreamTest, RefusesNullArguments) {
    EXPECT_EQ(mStream.OpenFile(nullptr, "rb"), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mStream.OpenFile("/dev/null", nullptr), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mStream.OpenFile("/dev/null", "?"), KESTATUS{0xE0010016});
}

TEST_F(StdFileStreamTest, AClosedStreamMovesNothing) {
    char data[4] = {};
    std::size_t position = 99;
    EXPECT_EQ(mStream.ReadFromFile(data, 4), 0u);
    EXPECT_EQ(mStream.WriteToFile(data, 4), 0u);
    EXPECT_EQ(mStream.RewindFile(), KESTATUS_NOT_OPENED);
    EXPECT_FALSE(mStream.IsEndOfFile());
    EXPECT_EQ(mStream.Seek(0, SEEK_SET), KESTATUS_NOT_OPENED);
    EXPECT_EQ(mStream.SeekToEnd(), KESTATUS_NOT_OPENED);
    EXPECT_EQ(mStream.Tell(position), KESTATUS_NOT_OPENED);
    EXPECT_EQ(position, 99u);
    EXPECT_EQ(mStream.FlushFile(), KESTATUS_NOT_OPENED);
    EXPECT_LT(mStream.Printf("x"), 0);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(StdFileStreamTest, AFailingSeekIsLogged) {
    ASSERT_EQ(OpenPipe(), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.Seek(0, SEEK_SET), KESTATUS{0xE001001D});
    EXPECT_EQ(mStream.SeekToEnd(), KESTATUS{0xE001001D});
    EXPECT_EQ(mStream.RewindFile(), KESTATUS{0xE001001D});
    const auto message = IsMessageOf(KEERROR, "KEStdFileStream::Seek", "fseek failed, 29");
    EXPECT_THAT(mLog.Messages(), ElementsAre(message, message, message));
}

TEST_F(StdFileStreamTest, AFailingTellIsLogged) {
    ASSERT_EQ(OpenPipe(), KESTATUS_SUCCESS);
    std::size_t position = 99;
    EXPECT_EQ(mStream.Tell(position), KESTATUS{0xE001001D});
    EXPECT_EQ(position, 99u);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEStdFileStream::Tell", "ftell failed, 29")));
}

TEST_F(StdFileStreamTest, AFullDiskShowsWhenFlushed) {
    ASSERT_EQ(mStream.OpenFile(mDirectory.FullDisk("full").c_str(), "wb"), KESTATUS_SUCCESS);
    EXPECT_EQ(mStream.WriteToFile("x", 1), 1u);
    EXPECT_EQ(mStream.FlushFile(), KESTATUS{0xE001001C});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEStdFileStream::FlushFile", "fflush failed, 28")));
}

TEST_F(StdFileStreamTest, AFullDiskShowsInALongWrite) {
    ASSERT_EQ(mStream.OpenFile(mDirectory.FullDisk("full").c_str(), "wb"), KESTATUS_SUCCESS);
    const std::string data(1 << 20, 'x');
    EXPECT_LT(mStream.WriteToFile(data.data(), data.size()), data.size());
    EXPECT_LT(mStream.Printf("%s", data.c_str()), 0);
}

TEST_F(StdFileStreamTest, AFailingCloseIsAWarning) {
    ASSERT_EQ(mStream.OpenFile(mDirectory.FullDisk("full").c_str(), "wb"), KESTATUS_SUCCESS);
    ASSERT_EQ(mStream.WriteToFile("x", 1), 1u);
    mStream.CloseFile();
    EXPECT_FALSE(mStream.IsOpen());
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEWARN, "KEStdFileStreamCloseFunction", "fclose failed, err=28")));
}

TEST_F(StdFileStreamTest, MovesWithItsFile) {
    mDirectory.Write("file", "text");
    ASSERT_EQ(Open("file", "rb"), KESTATUS_SUCCESS);
    KEStdFileStream taker(std::move(mStream));
    EXPECT_FALSE(mStream.IsOpen()); // NOLINT: moving invalidates
    char data[4] = {};
    EXPECT_EQ(taker.ReadFromFile(data, 4), 4u);
}

TEST_F(StdFileStreamTest, RenamesAndRemovesFiles) {
    mDirectory.Write("old", "content");
    mDirectory.Write("new", "replaced");
    EXPECT_EQ(KEStdFileRename((mDirectory / "old").c_str(), (mDirectory / "new").c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("new"), "content");
    EXPECT_FALSE(mDirectory.Exists("old"));
    EXPECT_EQ(KEStdFileRename((mDirectory / "old").c_str(), (mDirectory / "new").c_str()),
              KESTATUS{0xE0010002});
    EXPECT_EQ(KEStdFileRemove((mDirectory / "new").c_str()), KESTATUS_SUCCESS);
    EXPECT_FALSE(mDirectory.Exists("new"));
    EXPECT_EQ(KEStdFileRemove((mDirectory / "new").c_str()), KESTATUS{0xE0010002});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

} // namespace
