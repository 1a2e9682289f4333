// The reader as a whole: starts that fail, long files, statistics, lost frames, and failures of the device.
// Time is virtual.

#include "capture/PcapNgFileReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "AllocationGate.h"
#include "ReplayFixture.h"
#include "WaitUntil.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using PcapNgFileReaderTest = ReplayTest;

// --- Long files ----------------------------------------------------------------------------------

// Many blocks that are skipped.
ByteList OtherBlocks(std::size_t count) {
    const ByteList block = Block(5, {});
    ByteList all(count * block.size());
    for (std::size_t i = 0; i < count; ++i) {
        std::copy(block.begin(), block.end(), all.begin() + static_cast<std::ptrdiff_t>(i * block.size()));
    }
    return all;
}
constexpr std::size_t cManyBlocks = 600'000; // takes more than one look for the end, and not too many

TEST_F(PcapNgFileReaderTest, UserMayEndTheSearchForTheFirstFrame) {
    Write("file.pcapng", Concat({Section(), Interface(), OtherBlocks(cManyBlocks), Packet(1)}));
    unsigned asked = 0;
    mIsStopRequested = [&] { return ++asked == 1; };
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(asked, 1u);
    WaitForEnd(); // the thread reads on
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
}

TEST_F(PcapNgFileReaderTest, LongFileIsReplayedAndRefusedAsAShortOne) {
    unsigned asked = 0;
    mIsStopRequested = [&] { return ++asked > 1000; };
    Write("file.pcapng", FileOf(OtherBlocks(cManyBlocks)));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file does not contain any valid frames"), 1u);
    EXPECT_EQ(asked, 2u);
    Write("file.pcapng", Concat({Section(), Interface(), OtherBlocks(cManyBlocks), Packet(1)}));
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(asked, 4u);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_EQ(Stats().TotalErrorsOccurred(), 0u);
}

// Not as many passes as it takes to fill the pool.
TEST_F(PcapNgFileReaderTest, StartOfALoopEndsWithTheFirstFrames) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), OtherBlocks(cManyBlocks)}));
    GatedClock clock(0); // holds the thread back
    PcapNgFileReader reader(clock);
    ASSERT_EQ(
        reader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 1000, 1522, false, false, true),
        KESTATUS_SUCCESS);
    EXPECT_EQ(mLog.Count(KEVERBOSE, "ReadPacket --> ExpSectionHeader"), 0u);
    clock.mGate.Open();
    reader.StopFileReader();
}

// --- Start and stop ------------------------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, DeviceWithoutAnAddress) {
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_NOT_FOUND});
    EXPECT_EQ(Start(), KESTATUS_NOT_FOUND);
    FakeInstance instance;
    instance.macAddress = {1, 2, 3, 4, 5};
    mFake.SetInstances({instance});
    EXPECT_EQ(Start(), KESTATUS_LENGTH_MISMATCH);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(CapturedMessage{KEERROR, "GetDevicePropertyBinary failed, st=0xe0000039(KESTATUS_NOT_"
                                             "FOUND)"},
                    CapturedMessage{KEERROR, "MAC address size mismatch, got 5, exp. 6"}));
}

TEST_F(PcapNgFileReaderTest, FailedStartLeavesNothingBehind) {
    Write("file.pcapng", {});
    EXPECT_EQ(Start(), KESTATUS_NO_DATA);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "OpenForRead failed, st=0xe0000024("), 1u);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), {6, 0, 0, 0, 100, 0, 0, 0}}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "ReadNextBlock failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "FillSendQueue failed, st="), 1u);
    EXPECT_EQ(Stats().errReadFileFailed, 1u);
    Write("file.pcapng", FileOf(Packet(1)));
    mFrameCount = 0;
    EXPECT_EQ(Start(), KESTATUS_INVALID_PARAMETER);
    mFrameCount = 0xFFFFFFFF;
    EXPECT_EQ(Start(), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "AllocateFramePool failed, st=0xe0000041("), 2u);
    mFrameCount = 10;
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(Start(), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(mLog.Count(KEERROR, "already started"), 1u);
    WaitForEnd();
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u); // no frame is missing from the pool
}

TEST_F(PcapNgFileReaderTest, FileCutWhileItIsReplayed) {
    mFrameCount = 1;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), ByteList(9000, 0)}));
    // The zeros are no blocks: the length 0 ends the replay when it is reached.
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_EQ(Stats().errReadFileFailed, 1u);
    EXPECT_TRUE(mReader.IsInErrorState());
}

TEST_F(PcapNgFileReaderTest, StopLeavesFramesThatAreNotDue) {
    mClock.AllowSleeps(0);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), Packet(2)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mReader.StopFileReader();
    mReader.StopFileReader();
    EXPECT_THAT(SentPackets(), IsEmpty());
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u);
}

// --- Statistics ----------------------------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, StatisticsAreReset) {
    Replay(Concat({Section(2), Section(1, 0, 0), Section(), Interface({}, 2), Interface(Resolution(3)),
                   Block(1, {}), Interface({9, 0, 2, 0, 9, 0, 0, 0}), Block(6, {}),
                   PacketOf(FrameBytes(7), 0, 61, 60), PacketOf(FrameBytes(7, 13), 0, 13, 13),
                   PacketOf(FrameBytes(7, 1523), 0, 1523, 1523), Packet(1, 100), Packet(2, 99)}));
    const auto values = [&] {
        std::vector<std::uint64_t> counters(sizeof(Statistics) / sizeof(std::uint64_t));
        const Statistics stats = Stats();
        std::memcpy(counters.data(), &stats, sizeof stats);
        return counters;
    };
    // Nothing sent, and no failures to read or send; one of each of the others.
    EXPECT_THAT(values(), ElementsAre(0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    mReader.ResetStatistics();
    EXPECT_THAT(values(), testing::Each(0));
}

TEST_F(PcapNgFileReaderTest, AllIsReadBeforeAllIsSent) {
    mClock.AllowSleeps(0);
    Write("file.pcapng", FileOf(Packet(1)));
    EXPECT_FALSE(mReader.AreAllFilesRead());
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mReader.AreAllFilesRead());
    EXPECT_FALSE(mReader.AreAllFramesSent());
    mClock.AllowSleeps(100);
    WaitForEnd();
    EXPECT_TRUE(mReader.AreAllFilesRead());
    EXPECT_TRUE(mReader.AreAllFramesSent());
    mFrameCount = 1;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), Packet(2)}));
    mClock.AllowSleeps(0);
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mReader.AreAllFilesRead());
}

// --- Frames that the device has lost -------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, LostFramesAreAskedForOnceASecond) {
    mClock.AllowSleeps(0);
    mFake.SetLostFrames(1000); // of others, before
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0), Packet(2, 3'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(mReader.LostFrames(), 0u);
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 2u); // the first is for the address
    mFake.SetLostFrames(1003);
    mClock.AllowSleeps(150);
    ASSERT_TRUE(WaitUntil([&] { return mClock.Sleeps() == 150; }));
    ASSERT_TRUE(WaitUntil([&] { return mReader.LostFrames() == 3; }));
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 3u);
    mClock.AllowSleeps(1000);
    ASSERT_TRUE(WaitUntil([&] { return mReader.AreAllFramesSent(); })); // after 3.5 seconds
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 5u);
    mFake.SetLostFrames(1010);
    EXPECT_EQ(mReader.LostFrames(), 3u);
    mReader.StopFileReader();
    EXPECT_EQ(mReader.LostFrames(), 10u); // the last ones too
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 6u);
    // Another start counts anew.
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(mReader.LostFrames(), 0u);
}

TEST_F(PcapNgFileReaderTest, LostFramesAreKnownWhenSendingHasFailed) {
    mClock.AllowSleeps(0);
    mFake.SetLostFrames(0);
    mFake.Queue(Qbx::SubmitRawFrame, {KESTATUS_INVALID_LENGTH});
    Write("file.pcapng", FileOf(Packet(1)));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mFake.SetLostFrames(4);
    mClock.AllowSleeps(100);
    ASSERT_TRUE(WaitUntil([&] { return mReader.IsInErrorState(); }));
    EXPECT_EQ(mReader.LostFrames(), 4u);
}

TEST_F(PcapNgFileReaderTest, LibraryThatDoesNotCountLostFramesIsAskedOnce) {
    Replay(Concat({Section(), Interface(), Packet(1, 0), Packet(2, 3'000'000)}));
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 2u); // the first is for the address
    EXPECT_EQ(mReader.LostFrames(), 0u);
}

// --- Failures of the device ----------------------------------------------------------------------

struct DeviceFailure {
    const char* name;
    Qbx function; // fails with the last of the statuses
    std::vector<KESTATUS> statuses;
    std::vector<KESTATUS> checkStatuses; // of CheckSubmitRawFrame before
    std::size_t submitted;               // frames before the end
    std::vector<const char*> lines;
};

class PcapNgDeviceFailureTest : public ReplayTest, public testing::WithParamInterface<DeviceFailure> {};

TEST_P(PcapNgDeviceFailureTest, EndsTheReplay) {
    const DeviceFailure& row = GetParam();
    mFake.Queue(row.function, row.statuses);
    mFake.Queue(Qbx::CheckSubmitRawFrame, row.checkStatuses);
    Replay(FileOf(Concat({Packet(1), Packet(2)})));
    EXPECT_TRUE(mReader.IsInErrorState());
    EXPECT_EQ(mReader.FailureStatus(), row.statuses.back());
    EXPECT_EQ(mFake.SubmittedFrames().size(), row.submitted);
    EXPECT_EQ(Stats().infFramesSent, row.submitted);
    EXPECT_EQ(Stats().errSendFramesFailed, 1u);
    for (const char* const line : row.lines) {
        EXPECT_EQ(mLog.CountContaining(KEERROR, line), 1u) << line;
    }
    EXPECT_EQ(mLog.CountContaining(KEERROR, "SendFrames failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, ", stop thread"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, PcapNgDeviceFailureTest,
    testing::Values(DeviceFailure{.name = "Check",
                                  .function = Qbx::CheckSubmitRawFrame,
                                  .statuses = {KESTATUS_SUCCESS, KESTATUS_NO_RESOURCES},
                                  .checkStatuses = {},
                                  .submitted = 1,
                                  .lines = {"CheckSubmitRawFrame failed, st=0xe0000021(",
                                            "SubmitFrame failed, st=0xe0000021("}},
                    DeviceFailure{.name = "Submit",
                                  .function = Qbx::SubmitRawFrame,
                                  .statuses = {KESTATUS_DEVICE_REMOVED},
                                  .checkStatuses = {},
                                  .submitted = 0,
                                  .lines = {"SubmitRawFrame failed, st=", "SubmitFrame failed, st="}},
                    DeviceFailure{.name = "Send",
                                  .function = Qbx::SendRawFrames,
                                  .statuses = {KESTATUS_NO_DATA},
                                  .checkStatuses = {},
                                  .submitted = 2,
                                  .lines = {"SendRawFrames failed, st=0xe0000024(KESTATUS_NO_DATA)"}},
                    DeviceFailure{.name = "SendFullBatch",
                                  .function = Qbx::SendRawFrames,
                                  .statuses = {KESTATUS_DEVICE_REMOVED},
                                  .checkStatuses = {KESTATUS_SUCCESS, KESTATUS_NO_SPACE},
                                  .submitted = 1,
                                  .lines = {"SendRawFrames failed, st=", "SubmitFrame failed, st="}}),
    [](const auto& row) { return row.param.name; });

} // namespace
