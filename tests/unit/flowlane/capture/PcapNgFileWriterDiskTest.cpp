// The files that the writer makes: the sets that it begins, and what it does on a full disk.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "CaptureFixture.h"
#include "FileSizeLimit.h"
#include "WaitUntil.h"
#include "capture/PcapNgFileWriter.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using PcapNgFileWriterDiskTest = CaptureTest;

// --- File sets -----------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterDiskTest, FileEndsWithThePacketThatTakesItBeyondTheLimit) {
    // The headers take 112 bytes, each packet 100.
    ASSERT_EQ(Start(1012), KESTATUS_SUCCESS);
    for (std::uint32_t number = 0; number < 21; ++number) {
        ASSERT_TRUE(Take(ReceivedFrame(number, 64)));
    }
    mWriter.StopFileWriter();
    // 112 + 9 x 100 is the limit, the tenth goes beyond it.
    EXPECT_THAT(FilesOnDisk(),
                ElementsAre("capture_00001.pcapng", "capture_00002.pcapng", "capture_00003.pcapng"));
    std::uint32_t number = 0;
    for (const auto& [file, count] : {std::pair{1u, 10u}, {2u, 10u}, {3u, 1u}}) {
        const CapturedFile contents = ReadCapturedFile(NameOf(file));
        ASSERT_EQ(contents.packets.size(), count);
        for (const CapturedPacket& packet : contents.packets) {
            EXPECT_EQ(packet.timestamp, cReceiveNanoseconds + number++);
        }
        EXPECT_NE(contents.interface.LookupOptionByCode(2), nullptr);
    }
}

TEST_F(PcapNgFileWriterDiskTest, NextFileIsOpenedAtOnce) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS); // less than the headers: a packet in each file
    ASSERT_TRUE(Take(ReceivedFrame(0)));
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(),
                ElementsAre("capture_00001.pcapng", "capture_00002.pcapng", "capture_00003.pcapng"));
    EXPECT_EQ(ReadCapturedFile(NameOf(1)).packets.size(), 1u);
    EXPECT_EQ(ReadCapturedFile(NameOf(2)).packets.size(), 1u);
    EXPECT_THAT(ReadCapturedFile(NameOf(3)).packets, IsEmpty());
}

TEST_F(PcapNgFileWriterDiskTest, NumbersBeginAnewWithEachStart) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
        EXPECT_EQ(Statistics().infFramesWritten, 0u);
        ASSERT_TRUE(Take(ReceivedFrame(77))); // any first number will do
        mWriter.StopFileWriter();
        EXPECT_EQ(Statistics().infFramesWritten, 1u);
        EXPECT_EQ(Statistics().errMissingFrames, 0u);
    }
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture_00001.pcapng", "capture_00002.pcapng"));
}

TEST_F(PcapNgFileWriterDiskTest, NextFileThatCannotBeOpenedEndsTheWriter) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    ASSERT_EQ(mkdir(NameOf(2).c_str(), 0700), 0);
    ASSERT_TRUE(Take(ReceivedFrame(0)));
    EXPECT_EQ(WaitForThreadStatus(), 0xE0010015);
    EXPECT_EQ(mLog.Count(KEERROR, "OpenForWrite(file='" + NameOf(2) +
                                      "') failed, st=0xe0010015(KESTATUS_LINUX_EISDIR)"),
              1u);
    EXPECT_EQ(mLog.Count(KEFATAL,
                         "WriteAllFramesToFile failed, st=0xe0010015(KESTATUS_LINUX_EISDIR), terminate "
                         "thread"),
              1u);
    mLog.Clear();
    RawFrame* const frame = mWriter.GetRawFrame();
    frame->mFrameSize = 60;
    EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_NOT_POSSIBLE); // and it is back in the pool
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{
                    KEERROR, "internal thread terminates with status 0xe0010015(KESTATUS_LINUX_EISDIR)"}));
    mLog.Clear();
    mWriter.StopFileWriter();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    EXPECT_EQ(Statistics().infFramesWritten, 1u);
    EXPECT_EQ(ReadCapturedFile(NameOf(1)).packets.size(), 1u);
}

// The next file is a pipe, and opening it takes until somebody reads from it: the frames wait meanwhile.
TEST_F(PcapNgFileWriterDiskTest, FramesLeftByAWriterThatHasEndedAreCounted) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    ASSERT_EQ(mkfifo(NameOf(2).c_str(), 0600), 0);
    ASSERT_EQ(mkdir(NameOf(3).c_str(), 0700), 0);
    for (std::uint32_t number = 0; number < 5; ++number) {
        ASSERT_TRUE(Take(ReceivedFrame(number)));
    }
    const int reader = open(NameOf(2).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    EXPECT_EQ(WaitForThreadStatus(), 0xE0010015);
    mWriter.StopFileWriter();
    close(reader);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().errWriteFileFailed, 3u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u); // they are back in the pool
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
}

// --- A full disk ---------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterDiskTest, FileWithoutItsHeadersIsRemoved) {
    {
        const FileSizeLimit limit(50); // the headers take 112 bytes
        EXPECT_EQ(Start(), KESTATUS_WRITE_FILE_FAILED);
    }
    EXPECT_THAT(FilesOnDisk(), IsEmpty());
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    {
        const FileSizeLimit limit(50);
        ASSERT_TRUE(Take(ReceivedFrame(0)));
        EXPECT_EQ(WaitForThreadStatus(), KESTATUS_WRITE_FILE_FAILED);
    }
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture_00001.pcapng"));
    EXPECT_EQ(Statistics().errWriteFileFailed, 1u);
    EXPECT_THAT(ReadCapturedFile(NameOf(1)).packets, IsEmpty());
}

// What is in the way of a file is not.
TEST_F(PcapNgFileWriterDiskTest, FolderInThePlaceOfAFileStays) {
    ASSERT_EQ(mkdir((mBase + ".pcapng").c_str(), 0700), 0);
    EXPECT_EQ(Start(), 0xE0010015);
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
}

TEST_F(PcapNgFileWriterDiskTest, FullDiskLosesNothingUncounted) {
    ASSERT_EQ(Start(0, 3000), KESTATUS_SUCCESS);
    {
        const FileSizeLimit limit(50'000);
        for (std::uint32_t number = 0; number < 2000; ++number) {
            ASSERT_TRUE(Take(ReceivedFrame(number, 64)));
        }
        mWriter.StopFileWriter();
    }
    const CapturedFile contents = SingleFile(); // valid to its end
    EXPECT_EQ(contents.packets.size(), (50'000u - 112) / 100);
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(Statistics().errWriteFileFailed, 2000 - contents.packets.size());
    EXPECT_GT(mLog.CountContaining(KEERROR, "WriteBlock failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED)."),
              0u);
}

TEST_F(PcapNgFileWriterDiskTest, DiskThatWasFullForAWhile) {
    ASSERT_EQ(Start(0, 3000), KESTATUS_SUCCESS);
    std::uint32_t number = 0;
    {
        const FileSizeLimit limit(1000);
        for (; number < 2500; ++number) {
            ASSERT_TRUE(Take(ReceivedFrame(number, 64)));
        }
        const auto done = [&] { return Statistics().infFramesWritten + Statistics().errWriteFileFailed; };
        ASSERT_TRUE(WaitUntil([&] { return done() == 2500; }, done));
    }
    for (; number < 2600; ++number) {
        ASSERT_TRUE(Take(ReceivedFrame(number, 64)));
    }
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(Statistics().infFramesWritten + Statistics().errWriteFileFailed, 2600u);
    EXPECT_GT(Statistics().errWriteFileFailed, 0u);
    std::uint64_t next = 0;
    for (const CapturedPacket& packet : contents.packets) {
        next += packet.dropCount.value_or(0);
        ASSERT_EQ(packet.timestamp, cReceiveNanoseconds + next); // the file tells where they are missing
        ++next;
    }
    EXPECT_EQ(next, 2600u);
}

} // namespace
