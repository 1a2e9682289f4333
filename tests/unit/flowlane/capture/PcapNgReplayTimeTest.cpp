// When the packets of a file are sent: the times are the packets' own, and follow from each other. Steps
// through virtual time in the thread's rounds of 10 ms.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

#include "ReplayFixture.h"
#include "WaitUntil.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::IsEmpty;

class PcapNgReplayTimeTest : public ReplayTest {
protected:
    PcapNgReplayTimeTest() { mClock.AllowSleeps(0); }

    // How many frames have been sent after each round whose number is in the list; round 1 is 10 ms after the
    // start.
    void ExpectSent(const std::vector<std::pair<unsigned, std::size_t>>& counts) {
        for (const auto& [round, count] : counts) {
            while (mRound < round) {
                mClock.AllowSleeps(1);
                ++mRound;
                ASSERT_TRUE(WaitUntil([&] { return mClock.Sleeps() == mRound; }));
                const unsigned stoodStill = mClock.StoodStill();
                ASSERT_TRUE(WaitUntil(
                    [&] { return mClock.StoodStill() > stoodStill || mReader.AreAllFramesSent(); }));
            }
            EXPECT_EQ(mFake.SubmittedFrames().size(), count) << "round " << round;
            EXPECT_EQ(mFake.SentFrameCount(), count) << "round " << round;
        }
    }

    unsigned mRound = 0;
};

TEST_F(PcapNgReplayTimeTest, MicrosecondsAreTheDefault) {
    // Due 500 ms after the start, 100 ms later, a microsecond after that, and the same again.
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 7), Packet(2, 100007), Packet(3, 100008),
                                 Packet(4, 100008), Packet(5, 110007)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{49, 0}, {50, 1}, {59, 1}, {60, 2}, {61, 5}});
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 3, 4, 5}));
    EXPECT_EQ(mReader.Position(), std::chrono::milliseconds(110));
}

TEST_F(PcapNgReplayTimeTest, Nanoseconds) {
    const std::uint64_t start = 1'700'000'000'123'456'789;
    Write("file.pcapng",
          Concat({Section(), Interface(Resolution(9)), Packet(1, start), Packet(2, start + 10'000'000),
                  Packet(3, start + 10'000'001), Packet(4, start + 40'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{49, 0}, {50, 1}, {51, 2}, {52, 3}, {53, 3}, {54, 4}});
}

TEST_F(PcapNgReplayTimeTest, ResolutionOfTheLastInterfaceCounts) {
    Write("file.pcapng",
          Concat({Section(), Interface(Resolution(9)), Interface(), Packet(1, 0), Packet(2, 20'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 1}, {52, 2}});
}

TEST_F(PcapNgReplayTimeTest, SkippedPacketThatIsTooLongAdvancesTheTime) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0),
                                 PacketOf(FrameBytes(9, 2000), 50'000, 2000, 2000), Packet(2, 60'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {55, 1}, {56, 2}});
}

TEST_F(PcapNgReplayTimeTest, OtherSkippedPacketsDoNot) {
    // Their times are before those of the others, which would end the replay.
    Write("file.pcapng",
          Concat({Section(), Interface(), Packet(1, 100'000), PacketOf(FrameBytes(9), 50, 99, 60),
                  PacketOf(FrameBytes(9, 5), 50, 5, 5), TriggerPacket(10), Packet(2, 120'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 1}, {52, 2}});
}

TEST_F(PcapNgReplayTimeTest, LateRoundShiftsNothing) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0), Packet(2, 5'000), Packet(3, 20'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 2}, {52, 3}}); // the second went 5 ms late, the third is in time
}

TEST_F(PcapNgReplayTimeTest, NextPassBegins100MsAfterTheLastPacketWasDue) {
    mLoopMode = true;
    mFrameCount = 2;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 500), Packet(2, 30'500)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {52, 1}, {53, 2}, {62, 2}, {63, 3}, {65, 3}, {66, 4}, {75, 4}, {76, 5}, {79, 6}});
    mReader.StopFileReader();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 1, 2, 1, 2}));
}

TEST_F(PcapNgReplayTimeTest, FilesOfASetKeepTheTime) {
    mReadFileSet = true;
    mLoopMode = true;
    mFrameCount = 3;
    mStartFileIndex = 3;
    Write("file_00003.pcapng", Concat({Section(), Interface(), Packet(1, 1000), Packet(2, 21'000)}));
    Write("file_00004.pcapng", Concat({Section(), Interface(Resolution(9)), Packet(3, 30'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    // The difference of the two files' times is taken in units of the second: 30 000 000 - 21 000 ns.
    ExpectSent({{50, 1}, {52, 2}, {54, 2}, {55, 3}, {64, 3}, {65, 4}, {67, 5}});
    mReader.StopFileReader();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 3, 1, 2}));
}

using PcapNgReplayEndOfTimeTest = ReplayTest;

TEST_F(PcapNgReplayEndOfTimeTest, TimeThatGoesBackEndsTheReplay) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 100), Packet(2, 99), Packet(3, 200)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(
        WaitUntil([&] { return mLog.Count(KEWARN, "unrecoverable error occurred, stop thread") == 1; }));
    mReader.StopFileReader();
    EXPECT_EQ(mReader.CurrentState(), State::Error);
    EXPECT_THAT(SentPackets(), IsEmpty()); // what was not due yet is not sent
    EXPECT_EQ(Stats().errInvalidTimestamp, 1u);
    EXPECT_EQ(mLog.Count(KEERROR, "invalid timestamp lies before timestamp of last packet"), 1u);
    EXPECT_FALSE(mReader.AreAllFramesSent());
}

// Of a packet after the first, which is sent: it is due at the end of all time.
TEST_F(PcapNgReplayEndOfTimeTest, TimesBeyondTheRangeAreNeverDue) {
    // The first frame's, and what is left from there.
    const auto first = static_cast<std::uint64_t>(
        (VirtualClock::cStart + std::chrono::milliseconds(500)).time_since_epoch().count());
    const std::uint64_t room = INT64_MAX - first;
    struct Row {
        unsigned char resolution;
        std::uint64_t timestamp;
    };
    for (const Row& row : {Row{9, room - 50'000'000}, // the next pass begins 100 ms later
                           Row{9, room}, Row{9, room + 1}, Row{9, std::uint64_t{1} << 63}, Row{9, UINT64_MAX},
                           Row{6, room / 1000}, Row{6, room / 1000 + 1},
                           Row{6, 9'300'000'000'000'000},  // negative as nanoseconds
                           Row{6, UINT64_MAX / 1000 + 1},  // a few nanoseconds when it wraps
                           Row{6, std::uint64_t{1} << 63}, // none at all
                           Row{6, UINT64_MAX}}) {
        SCOPED_TRACE(testing::Message() << +row.resolution << ", " << row.timestamp);
        for (const bool isLoop : {false, true}) {
            mLoopMode = isLoop;
            VirtualClock clock;
            PcapNgFileReader reader(clock);
            Write("file.pcapng", Concat({Section(), Interface(Resolution(row.resolution)), Packet(1, 0),
                                         Packet(2, row.timestamp), Packet(3, row.timestamp)}));
            ASSERT_EQ(reader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 10, 1522, false,
                                             false, isLoop),
                      KESTATUS_SUCCESS);
            ASSERT_TRUE(WaitUntil([&] { return clock.Sleeps() > 1000; })); // 10 seconds
            Statistics stats;
            reader.QuerryStatistics(stats);
            EXPECT_EQ(stats.infFramesSent, 1u);
            EXPECT_EQ(stats.TotalErrorsOccurred(), 0u);
            EXPECT_FALSE(reader.IsInErrorState());
            reader.StopFileReader();
        }
    }
}

} // namespace
