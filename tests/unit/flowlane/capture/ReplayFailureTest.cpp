// The facts that a replay keeps about its failure and about the packets it leaves out.

#include "capture/ReplayFailure.h"

#include <gtest/gtest.h>

#include <string>

#include "ReplayFixture.h"

namespace {

using namespace flowlane;
using namespace testsupport;
using Cause = ReplayFailure::Cause;

class ReplayFailureTest : public ReplayTest {
protected:
    const ReplayFailure& Failure() const { return mReader.Failure(); }
    std::string FailingFile() const { return mReader.FilePath(Failure().fileNumber).c_str(); }
    void ExpectFailure(Cause cause, std::uint64_t packetNumber, std::uint64_t unsentFrames) const {
        EXPECT_EQ(Failure().cause, cause);
        EXPECT_EQ(Failure().packetNumber, packetNumber);
        EXPECT_EQ(Failure().unsentFrames, unsentFrames);
    }
};

TEST_F(ReplayFailureTest, TimeThatGoesBack) {
    // Packets that are left out have numbers, too.
    Replay(FileOf(Concat({Packet(1, 7), PacketOf(FrameBytes(2, 4), 8, 4, 4), Packet(3, 9), Packet(4, 5)})));
    ExpectFailure(Cause::TimeGoesBack, 4, 2);
    EXPECT_EQ(Failure().previousTime, 9000u);
    EXPECT_EQ(Failure().time, 5000u);
    EXPECT_FALSE(Failure().isBetweenFiles);
    EXPECT_EQ(Failure().status, KESTATUS_SUCCESS);
    EXPECT_EQ(FailingFile(), mFolder / "file.pcapng");
}

TEST_F(ReplayFailureTest, UnitOfTimeThatChanges) {
    Replay(Concat({Section(), Interface(Resolution(9)), Packet(1, 9000), Interface(), Packet(2, 10)}));
    ExpectFailure(Cause::TimeGoesBack, 2, 1);
    EXPECT_EQ(Failure().previousTime, 9000u);
    EXPECT_EQ(Failure().time, 10000u);
}

TEST_F(ReplayFailureTest, FileOfAnEarlierCapture) {
    mReadFileSet = true;
    Write("set_00001.pcapng", FileOf(Packet(1, 9)));
    Write("set_00002.pcapng", FileOf(Concat({PacketOf(FrameBytes(2, 4), 8, 4, 4), Packet(3, 5)})));
    ASSERT_EQ(Start("set"), KESTATUS_SUCCESS);
    WaitForEnd();
    ExpectFailure(Cause::TimeGoesBack, 2, 1);
    EXPECT_TRUE(Failure().isBetweenFiles);
    EXPECT_EQ(FailingFile(), mFolder / "set_00002.pcapng");
}

TEST_F(ReplayFailureTest, NextFileWithADisorderOfItsOwn) {
    mReadFileSet = true;
    Write("set_00001.pcapng", FileOf(Packet(1, 9)));
    Write("set_00002.pcapng", FileOf(Concat({Packet(2, 10), Packet(3, 5)})));
    ASSERT_EQ(Start("set"), KESTATUS_SUCCESS);
    WaitForEnd();
    ExpectFailure(Cause::TimeGoesBack, 2, 2);
    EXPECT_FALSE(Failure().isBetweenFiles);
}

TEST_F(ReplayFailureTest, DamageBehindTheReadAhead) {
    mFrameCount = 1;
    Replay(Concat({FileOf(Concat({Packet(1), Packet(2), Packet(3)})), LE32(6), LE32(3), LE32(0)}));
    ExpectFailure(Cause::Damaged, 3, 0); // the pool has a free frame when it is found
    EXPECT_EQ(Failure().status, KESTATUS_INVALID_FILE);
}

TEST_F(ReplayFailureTest, FileThatIsCutShort) {
    ByteList bytes = FileOf(Concat({Packet(1), Packet(2)}));
    bytes.resize(bytes.size() - 4);
    Write("file.pcapng", bytes);
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    ExpectFailure(Cause::CutShort, 1, 0);
}

TEST_F(ReplayFailureTest, RefusedFrame) {
    mFrameCount = 3;
    mFake.Queue(Qbx::SubmitRawFrame, {KESTATUS_SUCCESS, KESTATUS_INVALID_LENGTH});
    Replay(FileOf(Concat({Packet(1), PacketOf(FrameBytes(2, 70), 0, 70, 70), Packet(3), Packet(4)})));
    ExpectFailure(Cause::SendFailed, 2, 1);
    EXPECT_EQ(Failure().frameSize, 70u);
    EXPECT_EQ(Failure().status, KESTATUS_INVALID_LENGTH);
}

TEST_F(ReplayFailureTest, NextFileThatCannotBeRead) {
    mReadFileSet = true;
    mFrameCount = 1; // the next file is opened by the thread
    Write("set_00001.pcapng", FileOf(Packet(1)));
    Write("set_00002.pcapng", {});
    ASSERT_EQ(Start("set"), KESTATUS_SUCCESS);
    WaitForEnd();
    ExpectFailure(Cause::NextFile, 0, 0);
    EXPECT_EQ(Failure().status, KESTATUS_NO_DATA);
    EXPECT_EQ(FailingFile(), mFolder / "set_00002.pcapng");
}

TEST_F(ReplayFailureTest, StartsThatFail) {
    EXPECT_EQ(Start("missing"), KESTATUS_NOT_PRESENT);
    EXPECT_EQ(Failure().cause, Cause::FirstFile);
    Write("file.pcapng", FileOf({}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(Failure().cause, Cause::NoFrames);
    mFrameCount = 0;
    EXPECT_EQ(Start(), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(Failure().cause, Cause::FramePool);
    mFake.SetDefault(Qbx::GetDevicePropertyBinary, KESTATUS_NOT_FOUND);
    EXPECT_EQ(Start(), KESTATUS_NOT_FOUND);
    EXPECT_EQ(Failure().cause, Cause::DeviceAddress);
}

TEST_F(ReplayFailureTest, NewStartForgetsTheOldFailure) {
    EXPECT_EQ(Start("missing"), KESTATUS_NOT_PRESENT);
    Replay(FileOf(Packet(1)));
    EXPECT_EQ(Failure().cause, Cause::None);
    EXPECT_EQ(mReader.Packets().read, 1u);
}

// Each packet counts once, also in a start that fails.
TEST_F(ReplayFailureTest, PacketsThatAreLeftOut) {
    Write("file.pcapng",
          Concat({Section(), Packet(1), Interface({}, 113), Packet(2), Packet(3), Interface(Resolution(3)),
                  Packet(4), Interface(), Block(3, LE32(0)), Block(2, ByteList(20, 0)), TriggerPacket(10),
                  PacketOf(FrameBytes(5, 4), 0, 4, 4), Section(2), Packet(6), Section(), Packet(7)}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    const ReplayedPackets packets = mReader.Packets();
    EXPECT_EQ(packets.read, 10u);
    EXPECT_EQ(packets.withoutInterface, 3u);
    EXPECT_EQ(packets.otherLinkType, 2u);
    EXPECT_EQ(packets.otherTimeUnit, 1u);
    EXPECT_EQ(packets.withoutTime, 1u);
    EXPECT_EQ(packets.obsolete, 1u);
    EXPECT_EQ(packets.triggers, 1u);
    EXPECT_EQ(Stats().errInvalidFrameLength, 1u);
}

} // namespace
