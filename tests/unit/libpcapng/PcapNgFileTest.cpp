// Files written and read block by block: buffering, sizes, full disks, and files that are not whole.

#include "PcapNgFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <utility>

#include "ByteList.h"
#include "FileSizeLimit.h"
#include "LogExpect.h"
#include "PcapNgEnhPacketBlock.h"
#include "TemporaryFolder.h"

// The executable is linked so that fread comes here first.
extern "C" std::size_t __real_fread(void* data, std::size_t size, std::size_t count, std::FILE* file);
extern "C" std::size_t __wrap_fread(void* data, std::size_t size, std::size_t count, std::FILE* file);

namespace {

// How many bytes the next reading gets before the device fails; none: it does not fail.
std::optional<std::size_t> sReadFailure;

} // namespace

std::size_t __wrap_fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
    const std::optional<std::size_t> failure = std::exchange(sReadFailure, std::nullopt);
    return __real_fread(data, size, failure ? *failure / size : count, file);
}

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

// So many blocks of 100 bytes are gathered before anything is written: 32 times 40 of them fit into the
// larger buffer, and 40 into the one of 4096 bytes.
constexpr unsigned cBlocksGathered = 33 * 40;
constexpr unsigned cBytesGathered = cBlocksGathered * 100;

class PcapNgFileTest : public testing::Test {
protected:
    PcapNgFileTest() {
        mSection.InitSectionHeaderBlock();
        mInterface.InitInterfaceDescBlock(1, 0);
    }

    void OpenForWrite() {
        ASSERT_EQ(mFile.OpenForWrite(mPath.c_str(), mSection, mInterface), KESTATUS_SUCCESS);
    }

    // A packet whose block takes 36 bytes and its data.
    KESTATUS WritePacket(std::size_t dataLength, unsigned first = 1) {
        const ByteList data = Counting(dataLength, first);
        PcapNgEnhPacketBlock packet;
        EXPECT_EQ(packet.InitEnhPacketBlock(View(data), first, 0), KESTATUS_SUCCESS);
        return mFile.WriteBlock(packet);
    }
    static ByteList PacketBlock(std::size_t dataLength, unsigned first = 1) {
        const ByteList data = Counting(dataLength, first);
        PcapNgEnhPacketBlock packet;
        EXPECT_EQ(packet.InitEnhPacketBlock(View(data), first, 0), KESTATUS_SUCCESS);
        KEBufferBlock buffer;
        EXPECT_EQ(packet.AddToBuffer(buffer), KESTATUS_SUCCESS);
        return Contents(buffer);
    }
    ByteList HeaderBlocks() const {
        KEBufferBlock buffer;
        EXPECT_EQ(mSection.AddToBuffer(buffer), KESTATUS_SUCCESS);
        EXPECT_EQ(mInterface.AddToBuffer(buffer), KESTATUS_SUCCESS);
        return Contents(buffer);
    }

    ByteList OnDisk() const {
        std::ifstream file(mPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    void PutOnDisk(const ByteList& bytes) const {
        std::ofstream file(mPath, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    TemporaryFolder mFolder;
    std::string mPath = mFolder / "capture.pcapng";
    LogCapture mLog;
    PcapNgSectionHeaderBlock mSection;
    PcapNgInterfaceDescBlock mInterface;
    PcapNgFile mFile;
    KEBufferBlock mBlock;
};

// --- Writing -------------------------------------------------------------------------------------

TEST_F(PcapNgFileTest, HeadersAreOnDiskAsSoonAsTheFileIsOpen) {
    OpenForWrite();
    EXPECT_EQ(OnDisk(), HeaderBlocks());
    EXPECT_EQ(OnDisk().size(), 56u);
    EXPECT_EQ(mFile.FileSize(), 56u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileTest, OptionsOfTheHeadersCount) {
    PcapNgOption name;
    ASSERT_EQ(name.CreateStringOption(2, "lane-1"), KESTATUS_SUCCESS);
    mInterface.AddOption(std::move(name));
    OpenForWrite();
    EXPECT_EQ(OnDisk().size(), 68u);
    EXPECT_EQ(mFile.FileSize(), 68u);
}

TEST_F(PcapNgFileTest, BlocksAreGathered) {
    OpenForWrite();
    ASSERT_EQ(WritePacket(64), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.FileSize(), 56u + 100);
    EXPECT_EQ(OnDisk().size(), 56u);
    // 40 blocks of 100 bytes are 4000; the 41st would not fit.
    for (unsigned i = 1; i < 40; ++i) {
        ASSERT_EQ(WritePacket(64), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(OnDisk().size(), 56u);
    // What fills the buffer exactly is kept.
    ASSERT_EQ(WritePacket(60), KESTATUS_SUCCESS);
    EXPECT_EQ(OnDisk().size(), 56u);
    EXPECT_EQ(mFile.FileSize(), 56u + 4096);
    ASSERT_EQ(WritePacket(0), KESTATUS_SUCCESS);
    EXPECT_EQ(OnDisk().size(), 56u); // the first buffer is in the larger one
    EXPECT_EQ(mFile.FileSize(), 56u + 4096 + 36);
    ASSERT_EQ(mFile.FlushFileBuffer(), KESTATUS_SUCCESS);
    EXPECT_EQ(OnDisk().size(), 56u + 4096 + 36);
    mFile.CloseFile();
    EXPECT_EQ(OnDisk().size(), 56u + 4096 + 36);
    EXPECT_EQ(mFile.FileSize(), 0u);
    EXPECT_EQ(mFile.BlocksLost(), 0u);
}

TEST_F(PcapNgFileTest, LargerBufferIsWrittenWhenItIsFull) {
    OpenForWrite();
    for (unsigned i = 0; i < cBlocksGathered; ++i) {
        ASSERT_EQ(WritePacket(64), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(OnDisk().size(), 56u);
    ASSERT_EQ(WritePacket(64), KESTATUS_SUCCESS);
    EXPECT_EQ(OnDisk().size(), 56u + 128'000); // whole blocks
}

TEST_F(PcapNgFileTest, UnroundedLengthsCountRounded) {
    OpenForWrite();
    ASSERT_EQ(WritePacket(61), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.FileSize(), 56u + 100);
    ASSERT_EQ(mFile.FlushFileBuffer(), KESTATUS_SUCCESS);
    EXPECT_EQ(OnDisk(), Concat({HeaderBlocks(), PacketBlock(61)}));
}

TEST_F(PcapNgFileTest, LargeBlocksAreWrittenWhole) {
    OpenForWrite();
    ByteList expected = HeaderBlocks();
    for (const std::size_t length : {4u, 5000u, 300'000u, 8u, 400'000u}) {
        ASSERT_EQ(WritePacket(length), KESTATUS_SUCCESS);
        expected = Concat({expected, PacketBlock(length)});
    }
    mFile.CloseFile();
    EXPECT_EQ(OnDisk(), expected);
}

TEST_F(PcapNgFileTest, FlushOfNothingIsASuccess) {
    EXPECT_EQ(mFile.FlushFileBuffer(), KESTATUS_SUCCESS);
    OpenForWrite();
    EXPECT_EQ(mFile.FlushFileBuffer(), KESTATUS_SUCCESS);
    mFile.CloseFile();
    mFile.CloseFile();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileTest, OpeningAgainClosesTheFileBefore) {
    OpenForWrite();
    ASSERT_EQ(WritePacket(4), KESTATUS_SUCCESS);
    const std::string second = mFolder / "second.pcapng";
    ASSERT_EQ(mFile.OpenForWrite(second.c_str(), mSection, mInterface), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.FileSize(), 56u);
    EXPECT_EQ(OnDisk().size(), 56u + 40);
}

TEST_F(PcapNgFileTest, DestructorFlushes) {
    {
        PcapNgFile file;
        ASSERT_EQ(file.OpenForWrite(mPath.c_str(), mSection, mInterface), KESTATUS_SUCCESS);
        PcapNgEnhPacketBlock packet;
        ASSERT_EQ(file.WriteBlock(packet), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(OnDisk().size(), 56u + 36);
}

TEST_F(PcapNgFileTest, MovesWithWhatItGathered) {
    OpenForWrite();
    ASSERT_EQ(WritePacket(4), KESTATUS_SUCCESS);
    PcapNgFile moved(std::move(mFile));
    EXPECT_EQ(moved.FileSize(), 56u + 40);
    EXPECT_EQ(mFile.FileSize(), 0u); // NOLINT(bugprone-use-after-move): it is closed
    mFile.CloseFile();
    EXPECT_EQ(OnDisk().size(), 56u);
    mFile = std::move(moved);
    mFile.CloseFile();
    EXPECT_EQ(OnDisk().size(), 56u + 40);
}

TEST_F(PcapNgFileTest, FileThatCannotBeCreated) {
    mPath = mFolder / "missing/capture";
    EXPECT_EQ(mFile.OpenForWrite(mPath.c_str(), mSection, mInterface), 0xE0010002);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "OpenForWrite",
                                        "OpenFile failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)")));
}

TEST_F(PcapNgFileTest, HeadersThatCannotBeWritten) {
    EXPECT_EQ(mFile.OpenForWrite("/dev/full", mSection, mInterface), KESTATUS_WRITE_FILE_FAILED);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(IsMessageOf(KEERROR, "FlushFileBuffer", "WriteToFile failed"),
                    IsMessageOf(KEERROR, "OpenForWrite",
                                "FlushFileBuffer failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED)")));
    mFile.CloseFile();
    OpenForWrite(); // usable again, without anything of before
    EXPECT_EQ(OnDisk(), HeaderBlocks());
}

TEST_F(PcapNgFileTest, BlockTooLongForTheFormat) {
    OpenForWrite();
    const unsigned char byte = 0;
    PcapNgEnhPacketBlock packet;
    ASSERT_EQ(packet.InitEnhPacketBlock({&byte, 0xFFFFFFFF}, 0, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.WriteBlock(packet), KESTATUS_NOT_POSSIBLE);
    EXPECT_EQ(mFile.FileSize(), 56u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, ": AddToBuffer failed, st="), 1u);
    ASSERT_EQ(WritePacket(4), KESTATUS_SUCCESS);
    mFile.CloseFile();
    EXPECT_EQ(OnDisk(), Concat({HeaderBlocks(), PacketBlock(4)}));
}

// --- A full disk ---------------------------------------------------------------------------------

// All blocks are 100 bytes long. The disk takes so many of their bytes at first.
class FileSizeLimitTest : public PcapNgFileTest, public testing::WithParamInterface<unsigned> {
protected:
    void SetUp() override {
        OpenForWrite();
        for (unsigned i = 0; i < cBlocksGathered; ++i) {
            ASSERT_EQ(WritePacket(64, i), KESTATUS_SUCCESS);
        }
    }
    ByteList AllBlocks(unsigned count) const {
        ByteList all = HeaderBlocks();
        for (unsigned i = 0; i < count; ++i) {
            const ByteList block = PacketBlock(64, i);
            all.insert(all.end(), block.begin(), block.end());
        }
        return all;
    }
};

TEST_P(FileSizeLimitTest, BlockIsRefusedAndNothingIsWrittenTwice) {
    {
        const FileSizeLimit full(56 + GetParam());
        EXPECT_EQ(WritePacket(100, 77), KESTATUS_WRITE_FILE_FAILED);
        EXPECT_EQ(mFile.FileSize(), 56u + cBytesGathered); // without the refused one
        EXPECT_EQ(OnDisk().size(), 56u + GetParam());
    }
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(IsMessageOf(KEERROR, "FlushFileBuffer", "WriteToFile failed"),
                    IsMessageOf(KEERROR, "WriteBlock",
                                "FlushFileBuffer failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED)")));
    // There is room again.
    ASSERT_EQ(WritePacket(64, cBlocksGathered), KESTATUS_SUCCESS);
    mFile.CloseFile();
    EXPECT_EQ(mFile.BlocksLost(), 0u);
    EXPECT_EQ(OnDisk(), AllBlocks(cBlocksGathered + 1));
}

TEST_P(FileSizeLimitTest, ClosingCutsBehindTheLastWholeBlock) {
    const FileSizeLimit full(56 + GetParam());
    mFile.CloseFile();
    const unsigned whole = GetParam() / 100;
    EXPECT_EQ(mFile.BlocksLost(), cBlocksGathered - whole);
    EXPECT_EQ(OnDisk(), AllBlocks(whole));
    EXPECT_EQ(mLog.CountContaining(KEERROR, "CloseFile()"), 1u);
}

TEST_P(FileSizeLimitTest, SpaceThatComesByAndBy) {
    unsigned onDisk = GetParam();
    {
        const FileSizeLimit full(56 + onDisk);
        ASSERT_EQ(mFile.FlushFileBuffer(), KESTATUS_WRITE_FILE_FAILED);
    }
    for (unsigned step = 1; onDisk + step < cBytesGathered; onDisk += step, step += 7) {
        const FileSizeLimit full(56 + onDisk + step);
        ASSERT_EQ(mFile.FlushFileBuffer(), KESTATUS_WRITE_FILE_FAILED);
        ASSERT_EQ(OnDisk().size(), 56u + onDisk + step);
    }
    const ByteList all = AllBlocks(cBlocksGathered);
    EXPECT_EQ(OnDisk(), ByteList(all.begin(), all.begin() + 56 + onDisk));
    {
        const FileSizeLimit full(56 + onDisk);
        mFile.CloseFile();
    }
    EXPECT_EQ(mFile.BlocksLost(), cBlocksGathered - onDisk / 100);
    EXPECT_EQ(OnDisk(), AllBlocks(onDisk / 100));
}

INSTANTIATE_TEST_SUITE_P(Room, FileSizeLimitTest, testing::Values(0, 1, 8, 99, 100, 101, 250, 3900, 127'999));

// --- Reading -------------------------------------------------------------------------------------

TEST_F(PcapNgFileTest, ReadsBlockAfterBlock) {
    const ByteList all = Concat({HeaderBlocks(), PacketBlock(61), PacketBlock(6000, 9)});
    PutOnDisk(all);
    for (int round = 0; round < 2; ++round) {
        if (round == 0) {
            ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
            EXPECT_EQ(mFile.FileSize(), all.size());
        } else {
            EXPECT_TRUE(mFile.IsEndOfFile());
            ASSERT_EQ(mFile.RewindFile(), KESTATUS_SUCCESS);
            EXPECT_FALSE(mFile.IsEndOfFile());
        }
        ByteList read;
        for (const std::size_t length : {32u, 24u, 100u, 6036u}) {
            ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
            EXPECT_EQ(mBlock.mDataLength, length);
            const ByteList block = Contents(mBlock);
            read.insert(read.end(), block.begin(), block.end());
        }
        EXPECT_EQ(read, all);
        EXPECT_EQ(mBlock.mBufferSize, 6036u); // exactly the longest
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_NO_DATA);
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_NO_DATA);
    }
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileTest, StrayBytesAtTheEndAreTheEnd) {
    for (std::size_t stray = 1; stray < 8; ++stray) {
        PutOnDisk(Concat({HeaderBlocks(), ByteList(stray, 6)}));
        ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
        ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
        ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_NO_DATA);
    }
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileTest, LastBlockCutShort) {
    const ByteList packet = PacketBlock(64);
    for (std::size_t length = 8; length < packet.size(); ++length) {
        SCOPED_TRACE(length);
        mLog.Clear();
        PutOnDisk(
            Concat({HeaderBlocks(), ByteList(packet.begin(), packet.begin() + static_cast<long>(length))}));
        ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
        ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
        ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_INVALID_FILE);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(IsMessageOf(KEERROR, "ReadNextBlock",
                                            "read incomplete block with " + std::to_string(length) +
                                                " bytes, exp. 100 bytes")));
        EXPECT_EQ(mFile.LastReadFault(), PcapNgFile::ReadFault::CutShort);
        EXPECT_EQ(mFile.SystemError(), KESTATUS_SUCCESS);
    }
}

TEST_F(PcapNgFileTest, LengthThatIsNoneOfABlock) {
    for (const unsigned length : {0u, 1u, 4u, 7u}) {
        mLog.Clear();
        PutOnDisk(Concat({LE32(6), LE32(length), ByteList(100, 0)}));
        ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_INVALID_FILE);
        EXPECT_EQ(mBlock.mDataLength, 0u);
        EXPECT_EQ(mFile.LastReadFault(), PcapNgFile::ReadFault::Damaged);
        EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "ReadNextBlock",
                                                             "read incomplete block with 8 bytes, exp. " +
                                                                 std::to_string(length) + " bytes")));
    }
    PutOnDisk(Concat({LE32(6), LE32(8)})); // a header alone is whole
    ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.LastReadFault(), PcapNgFile::ReadFault::None);
    EXPECT_EQ(mBlock.mDataLength, 8u);
}

TEST_F(PcapNgFileTest, HugeLengthTakesNoMemory) {
    for (const std::uint64_t length :
         {std::uint64_t{109}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}}) {
        mLog.Clear();
        PutOnDisk(Concat({LE32(6), LE32(length), ByteList(100, 0)}));
        ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_INVALID_FILE);
        EXPECT_LT(mBlock.mBufferSize, 1000u);
        EXPECT_EQ(mFile.LastReadFault(), PcapNgFile::ReadFault::Damaged);
        EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "ReadNextBlock",
                                                             "read incomplete block with 108 bytes, exp. " +
                                                                 std::to_string(length) + " bytes")));
    }
}

TEST_F(PcapNgFileTest, FileThatGrewIsReadOn) {
    PutOnDisk(HeaderBlocks());
    ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
    ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
    ASSERT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
    const ByteList packet = PacketBlock(6000); // longer than the file was
    std::ofstream(mPath, std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
    EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_SUCCESS);
    EXPECT_EQ(Contents(mBlock), packet);
}

TEST_F(PcapNgFileTest, EmptyFile) {
    PutOnDisk({});
    EXPECT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_NO_DATA);
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "OpenForRead", "file is empty")));
}

TEST_F(PcapNgFileTest, FileThatCannotBeRead) {
    EXPECT_EQ(mFile.OpenForRead(mPath.c_str()), 0xE0010002);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "OpenForRead",
                                        "OpenFile failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)")));
    mLog.Clear();
    // A pipe has no size.
    ASSERT_EQ(mkfifo(mPath.c_str(), 0600), 0);
    const int writer = open(mPath.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(mFile.OpenForRead(mPath.c_str()), 0xE001001D);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "SeekToEnd failed, st=0xe001001d(KESTATUS_LINUX_ESPIPE)"), 1u);
    close(writer);
}

TEST_F(PcapNgFileTest, FailureToRead) {
    PutOnDisk(HeaderBlocks());
    for (const std::size_t length : {0u, 7u}) {
        mLog.Clear();
        ASSERT_EQ(mFile.OpenForRead(mPath.c_str()), KESTATUS_SUCCESS);
        sReadFailure = length;
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_INVALID_FILE);
        EXPECT_EQ(mBlock.mDataLength, 0u);
        EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "ReadNextBlock",
                                                             "read incomplete header with " +
                                                                 std::to_string(length) + " bytes")));
    }
}

TEST_F(PcapNgFileTest, FolderInsteadOfAFile) {
    const KESTATUS st = mFile.OpenForRead(mFolder.Path().c_str());
    // Some file systems tell a size, others fail at once.
    if (st == KESTATUS_SUCCESS) {
        EXPECT_EQ(mFile.ReadNextBlock(mBlock), KESTATUS_INVALID_FILE);
        EXPECT_EQ(mLog.CountContaining(KEERROR, "read incomplete header with 0 bytes"), 1u);
    } else {
        EXPECT_FALSE(mLog.Messages().empty());
    }
}

} // namespace
