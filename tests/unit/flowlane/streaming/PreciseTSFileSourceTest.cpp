// The file source with precise timing: when the packets of a frame are handed over.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "TimedMessages.h"
#include "streaming/TSFileSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

namespace {

class PreciseTSFileSourceTest : public TSFileSourceTest {
protected:
    PreciseTSFileSourceTest() { mSource.SetPreciseTiming(7); }

    void Play(const TSStream& stream, unsigned packets = 1000) {
        const StreamFile file(stream);
        ASSERT_EQ(Create(file.Path(), false, packets), KESTATUS_SUCCESS);
        ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        ASSERT_TRUE(WaitForMessage("all packets from file delivered, stop thread"));
        mSource.StopSource();
    }
    // When each batch was sent, in ns after the first packet was due.
    std::vector<std::int64_t> BatchTimes() const {
        std::vector<std::int64_t> times;
        for (const std::size_t end : mSink.mBatches) {
            times.push_back(mSink.mDeliveries[end - 1].wakeTime - cStart - 500 * cMs);
        }
        return times;
    }
};

} // namespace

// 20 steps of 1 ms: two full frames, and the rest at the end of the file.
TEST_F(PreciseTSFileSourceTest, AFullFrameLeavesWithItsLastPacketAndTheEndAtOnce) {
    Play(TSStream().PCR(0).Plain(18).PCR(1800));
    EXPECT_THAT(mSink.mBatches, ElementsAre(7u, 14u, 19u));
    EXPECT_THAT(BatchTimes(), ElementsAre(6 * cMs, 13 * cMs, 18 * cMs));
}

// 4 steps of 6 ms: the second packet is due within 10 ms of the first, the third is not.
TEST_F(PreciseTSFileSourceTest, APartOfAFrameLeaves10MsAfterItsFirstPacketWasDue) {
    Play(TSStream().PCR(0).Plain(2).PCR(2160));
    EXPECT_THAT(mSink.mBatches, ElementsAre(2u, 3u));
    EXPECT_THAT(BatchTimes(), ElementsAre(10 * cMs, 12 * cMs));
}

// Before the end of the file more packets may come.
TEST_F(PreciseTSFileSourceTest, BetweenTwoPassesAPartOfAFrameWaits) {
    const StreamFile file(TSStream().PCR(0).Plain(1).PCR(270));
    ASSERT_EQ(Create(file.Path(), true, 3), KESTATUS_SUCCESS);
    mClock.AllowSleeps(80);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    mSource.StopSource();
    ASSERT_GE(mSink.mBatches.size(), 2u);
    EXPECT_EQ(mSink.mBatches[0], 2u);
    EXPECT_EQ(mSink.mBatches[1], 4u);
    EXPECT_EQ(BatchTimes()[0], 10 * cMs);
    EXPECT_EQ(BatchTimes()[1], 111 * cMs); // the second packet is due after 1 ms, the next one 100 ms later
}

// The first step back of the clock makes the packets behind it due at once. They still leave in full frames.
TEST_F(PreciseTSFileSourceTest, PacketsThatAreDueAtOnceFillFrames) {
    TSStream stream;
    stream.PCR(900000).Plain(4);
    for (std::uint64_t i = 0; i < 10; ++i) {
        stream.PCR(i * 900).Plain(9);
    }
    Play(stream.PCR(9000), 30);
    ASSERT_EQ(mSink.mDeliveries.size(), 105u);
    std::size_t full = 0;
    std::size_t previous = 0;
    for (const std::size_t end : mSink.mBatches) {
        EXPECT_LE(end - previous, 7u);
        full += end - previous == 7 ? 1 : 0;
        previous = end;
    }
    EXPECT_GE(full, 13u);
}

// Skipping a packet without a sync byte takes a microsecond here. The first 700 packets make room for as many
// others, but reading them must not delay the frames that become due meanwhile.
TEST_F(PreciseTSFileSourceTest, ReadingOnDelaysNoFullFrame) {
    const TimedMessages messages(mClock, std::chrono::microseconds(1));
    TSStream stream;
    stream.PCR(0).Plain(699);
    for (std::uint64_t i = 0; i < 200; ++i) {
        stream.PCR(i * 9).Bad(); // 8 steps in 100 us
        for (unsigned packet = 0; packet < 6; ++packet) {
            stream.Plain().Bad();
        }
    }
    Play(stream.PCR(1800), 800);
    ASSERT_EQ(mSink.mDeliveries.size(), 2100u);
    for (std::size_t i = 700; i + 7 <= mSink.mDeliveries.size(); i += 7) {
        const Delivery& last = mSink.mDeliveries[i + 6];
        ASSERT_GE(last.wakeTime, last.deliverTime) << i;
        ASSERT_LE(last.wakeTime - last.deliverTime, 1000) << i;
    }
}

TEST_F(PreciseTSFileSourceTest, AStopIsLookedForEvery10Ms) {
    const StreamFile file(TSStream().PCR(0).Plain(1).PCR(80000));
    ASSERT_EQ(Create(file.Path(), true, 3), KESTATUS_SUCCESS);
    mClock.AllowSleeps(30);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    EXPECT_EQ(mClock.Now() - VirtualClock::cStart, std::chrono::milliseconds(300));
    mSource.StopSource();
    EXPECT_TRUE(mSink.mDeliveries.empty());
}

TEST_F(PreciseTSFileSourceTest, AFailureOfTheSinkEndsTheSource) {
    mSink.mOnSend = [] { return KESTATUS_DEVICE_REMOVED; };
    const StreamFile file(TSStream().PCR(0).Plain(18).PCR(1800));
    ASSERT_EQ(Create(file.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("DeliverPackets failed"));
    mSource.StopSource();
    EXPECT_EQ(mSource.FailureStatus(), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(mSink.mDeliveries.size(), 7u);
}
