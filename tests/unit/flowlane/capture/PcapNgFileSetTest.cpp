// The files of a replay: their names, the order of a set, and what follows the end of a file.

#include "capture/PcapNgFileSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ReplayFixture.h"
#include "WaitUntil.h"
#include "base/LogCons.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using Next = PcapNgFileSet::Next;

// --- The files alone -----------------------------------------------------------------------------

class PcapNgFileSetTest : public testing::Test {
protected:
    void MakeFile(const std::string& name, const ByteList& bytes = Section()) const {
        mFolder.Write(name, {bytes.begin(), bytes.end()});
    }
    void Open(unsigned startFileIndex, bool readFileSet, bool loopMode) {
        mFiles.SetFiles((mFolder / "file").c_str(), startFileIndex, readFileSet, loopMode);
        ASSERT_EQ(mFiles.OpenFirstFile(), KESTATUS_SUCCESS);
    }
    // What follows the open file, which is then open at its start.
    Next GoOn(bool hasFrames = true) {
        Next next = Next::End;
        EXPECT_EQ(mFiles.SelectNext(hasFrames, next), KESTATUS_SUCCESS);
        if (next != Next::End) {
            EXPECT_EQ(mFiles.OpenSelected(), KESTATUS_SUCCESS);
        }
        return next;
    }
    // The type of the first block of the open file.
    unsigned FirstBlock() {
        KEBufferBlock block;
        EXPECT_EQ(mFiles.ReadNextBlock(block), KESTATUS_SUCCESS);
        return block.mBuffer[0];
    }

    TemporaryFolder mFolder;
    LogCapture mLog;
    PcapNgFileSet mFiles;
};

TEST_F(PcapNgFileSetTest, SingleFileIsReadOnce) {
    MakeFile("file.pcapng");
    Open(1, false, false);
    EXPECT_EQ(GoOn(), Next::End);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileSetTest, SingleFileInALoopBeginsAgain) {
    MakeFile("file.pcapng", Block(11, {}));
    Open(1, false, true);
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_EQ(FirstBlock(), 11u);
        EXPECT_EQ(GoOn(), Next::Pass);
    }
}

TEST_F(PcapNgFileSetTest, SetIsReadInOrderAndBeginsAgainInALoop) {
    MakeFile("file_00007.pcapng", Block(7, {}));
    MakeFile("file_00008.pcapng", Block(8, {}));
    Open(7, true, true);
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(FirstBlock(), 7u);
        EXPECT_EQ(GoOn(false), Next::File); // whether there were frames counts only at the end
        EXPECT_EQ(FirstBlock(), 8u);
        EXPECT_EQ(GoOn(), Next::Pass);
    }
    Open(8, true, false);
    EXPECT_EQ(GoOn(), Next::End);
}

TEST_F(PcapNgFileSetTest, PassWithoutFramesIsAFailure) {
    MakeFile("file.pcapng");
    MakeFile("file_00001.pcapng");
    for (const bool loopMode : {false, true}) {
        Next next = Next::File;
        Open(1, false, loopMode);
        EXPECT_EQ(mFiles.SelectNext(false, next), KESTATUS_INVALID_FILE);
        Open(1, true, loopMode);
        EXPECT_EQ(mFiles.SelectNext(false, next), KESTATUS_INVALID_FILE);
        EXPECT_EQ(next, Next::File); // unchanged
    }
    EXPECT_THAT(mLog.Texts(), ElementsAre("file does not contain any valid frames",
                                          "file(s) does not contain any valid frames",
                                          "file does not contain any valid frames",
                                          "file(s) does not contain any valid frames"));
}

// --- The files of a replay -----------------------------------------------------------------------

using PcapNgReplayFilesTest = ReplayTest;

TEST_F(PcapNgReplayFilesTest, FileThatDoesNotExist) {
    const LogCapture console(logger::Cons);
    EXPECT_EQ(Start("missing"), KESTATUS_NOT_PRESENT);
    EXPECT_THAT(
        console.Messages(),
        ElementsAre(CapturedMessage{KEERROR, "File '" + mFolder / "missing.pcapng" + "' does not exist."}));
    mReadFileSet = true;
    mStartFileIndex = 123456;
    EXPECT_EQ(Start("sub/file.x"), KESTATUS_NOT_PRESENT);
    EXPECT_EQ(console.Count(KEERROR, "File '" + mFolder / "sub/file_123456.x" + "' does not exist."), 1u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgReplayFilesTest, ExtensionIsAppendedWhenThereIsNone) {
    const ByteList file = FileOf(Packet(1));
    Write("a.pcapng", file);
    Write("b.v2", file);
    for (const char* const name : {"a", "a.pcapng", "b.v2"}) {
        ASSERT_EQ(Start(name), KESTATUS_SUCCESS);
        WaitForEnd();
    }
    EXPECT_EQ(Start("b"), KESTATUS_NOT_PRESENT);
    EXPECT_EQ(mFake.SubmittedFrames().size(), 3u);
}

TEST_F(PcapNgReplayFilesTest, FilesWithoutFrames) {
    Write("file.pcapng", FileOf({}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file does not contain any valid frames"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "OpenNextFile failed, st="), 1u);
    EXPECT_EQ(Stats().errInvalidFile, 1u);
    mReadFileSet = true;
    Write("file_00001.pcapng", FileOf({}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file(s) does not contain any valid frames"), 1u);
    mLoopMode = true;
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
}

TEST_F(PcapNgReplayFilesTest, LoopEndsWhenThereAreNoFramesAnyMore) {
    mLoopMode = true;
    mFrameCount = 1;
    Write("file.pcapng", FileOf(Packet(1)));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    std::filesystem::resize_file(mFolder / "file.pcapng", 48); // the headers alone
    ASSERT_TRUE(WaitUntil([&] { return mReader.IsInErrorState(); }));
    mReader.StopFileReader();
    EXPECT_EQ(Stats().errInvalidFile, 1u);
}

TEST_F(PcapNgReplayFilesTest, SetEndsWhereANumberIsMissing) {
    mReadFileSet = true;
    for (const unsigned number : {1u, 2u, 4u}) {
        Write(KEStdStringFormat("file_{:05}.pcapng", number), FileOf(Packet(number)));
    }
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2}));
    mStartFileIndex = 4;
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 4}));
}

TEST_F(PcapNgReplayFilesTest, EmptyFileWithinASetEndsTheReplay) {
    mReadFileSet = true;
    mFrameCount = 1;
    Write("file_00001.pcapng", FileOf(Packet(1)));
    Write("file_00002.pcapng", {});
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_TRUE(mReader.IsInErrorState());
    EXPECT_EQ(Stats().errInvalidFile, 1u);
    EXPECT_EQ(
        mLog.CountContaining(KEERROR, "FillSendQueue failed, st=0xe0000024(KESTATUS_NO_DATA), stop thread"),
        1u);
}

} // namespace
