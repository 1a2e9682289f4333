// The file source when it rebases the clock of its stream: what it does for want of packets, at the end and
// in a pipe, and what it tells of breaks. The times are tested with whole streams elsewhere.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "SystemCallFaults.h"
#include "TemporaryFolder.h"
#include "streaming/TSFileSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::SizeIs;

namespace {

class TSFileSourceRebaseTest : public TSFileSourceTest {
protected:
    TSFileSourceRebaseTest() { mSource.SetRebaseClock(true); }

    void PlayOnce(TSStream stream, unsigned packets) {
        const StreamFile file(stream.OnePID());
        ASSERT_EQ(Create(file.Path(), false, packets), KESTATUS_SUCCESS);
        ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        ASSERT_TRUE(WaitForMessage("stop thread"));
        mSource.StopSource();
    }
    // In microseconds since the first time.
    std::vector<std::int64_t> Times() const {
        std::vector<std::int64_t> times;
        for (const Delivery& delivery : mSink.mDeliveries) {
            times.push_back((delivery.deliverTime - cStart - 500 * cMs) / 1000);
        }
        return times;
    }
    void CreateFor(const StreamFile& file) { ASSERT_EQ(Create(file.Path(), false, 100), KESTATUS_SUCCESS); }
};

TSPacketTimePoint After(std::int64_t milliseconds) {
    return TSPacketTimePoint(TSPacketDuration(milliseconds * cMs));
}

} // namespace

// The packets leave with the rate of the segment before. At the next reference the clock breaks.
TEST_F(TSFileSourceRebaseTest, NothingIsLostWhereTooManyPacketsHaveNoPCR) {
    PlayOnce(TSStream().PCR(0).Plain(3).PCR(3600).Plain(20).PCR(7200).Plain(3).PCR(10800).Plain(), 10);
    std::vector<std::int64_t> times = {0, 8000, 16000, 24000};
    for (std::int64_t i = 0; i <= 21; ++i) {
        times.push_back(40000 + i * 8000);
    }
    for (const std::int64_t time : {216000, 224000, 232000, 248000, 256000}) {
        times.push_back(time);
    }
    EXPECT_THAT(Times(), ElementsAreArray(times));
    EXPECT_THAT(mLog.Messages(), SizeIs(1));
    EXPECT_EQ(mSource.QuerryStatistics().errUnfinishedPackets, 0u);
    EXPECT_EQ(mSource.ClockBreaks().count, 1u);
    EXPECT_EQ(mSource.ClockBreaks().last.packetNumber, 26u);
    EXPECT_EQ(mSource.ClockBreaks().last.jumpTicks, 3600);
}

// As long as no segment has said how fast packets leave, the first packet is kept and the others are dropped.
// A segment that has lost packets does not say it.
TEST_F(TSFileSourceRebaseTest, WithoutASegmentTooManyPacketsAreDropped) {
    PlayOnce(TSStream().PCR(0).Plain(20).PCR(3600).Plain(20).PCR(7200).Plain(3).PCR(10800), 10);
    EXPECT_THAT(Ordinals(), ElementsAre(0u, 19u, 20u, 21u, 40u, 41u, 42u, 43u, 44u, 45u, 46u));
    EXPECT_THAT(Times(),
                ElementsAre(0, 10000, 20000, 40000, 50000, 60000, 80000, 88000, 96000, 104000, 120000));
    EXPECT_EQ(mLog.CountContaining(KEERROR, "no PCR within 10 packets, drop the packets"), 4u);
    EXPECT_EQ(mSource.QuerryStatistics().errUnfinishedPackets, 36u);
    EXPECT_EQ(mSource.QuerryStatistics().infFirstUnfinished, 10u);
    EXPECT_EQ(mSource.ClockBreaks().count, 0u);
}

// Those before the first reference have no time until a segment ends.
TEST_F(TSFileSourceRebaseTest, PacketsBeforeTheFirstPCRAreDroppedWithTheirSegment) {
    PlayOnce(TSStream().Plain(4).PCR(0).Plain(12).PCR(3600).Plain(), 10);
    EXPECT_THAT(Ordinals(), ElementsAre(4u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 17u, 18u));
    EXPECT_EQ(mSource.QuerryStatistics().errUnfinishedPackets, 9u);
}

// There is no pause, as nothing can be sent until then.
TEST_F(TSFileSourceRebaseTest, TooManyPacketsBeforeTheFirstPCRAreDropped) {
    PlayOnce(TSStream().Plain(1000).PCR(0).Plain(3).PCR(3600), 10);
    ASSERT_GE(mSink.mDeliveries.size(), 5u);
    EXPECT_EQ(mSink.mDeliveries.back().ordinal, 1004u);
    EXPECT_EQ(mSink.mDeliveries.back().deliverTime, cStart + 540 * cMs);
    const TSFileSource::Statistics stats = mSource.QuerryStatistics();
    EXPECT_EQ(stats.errUnfinishedPackets + stats.infTsPacketsDelivered, 1005u);
}

TEST_F(TSFileSourceRebaseTest, OnePacketIsEnoughToComeToTheEnd) {
    PlayOnce(TSStream().Plain(2).PCR(0).Plain(3).PCR(3600).PCR(900000).Plain(2), 1);
    const TSFileSource::Statistics stats = mSource.QuerryStatistics();
    EXPECT_EQ(stats.errUnfinishedPackets + stats.infTsPacketsDelivered, 10u);
}

TEST_F(TSFileSourceRebaseTest, OneClockReferenceTimesNothing) {
    PlayOnce(TSStream().Plain(3).PCR(0).Plain(20), 100);
    EXPECT_THAT(mSink.mDeliveries, SizeIs(0));
    EXPECT_EQ(mSource.QuerryStatistics().infTsPacketsTimed, 0u);
    EXPECT_EQ(mSource.QuerryStatistics().infPCRs, 1u);
}

// No fault is counted where the clock breaks.
TEST_F(TSFileSourceRebaseTest, CountsSegmentsAndNoFaults) {
    PlayOnce(TSStream().PCR(0).Plain(3).PCR(900).PCR(900).PCR(400000).Plain().PCR(401000).PCR(5).Plain(4),
             100);
    const TSFileSource::Statistics stats = mSource.QuerryStatistics();
    EXPECT_EQ(stats.infTsPacketsTimed, 14u);
    EXPECT_EQ(stats.infTsPacketsDelivered, 14u);
    EXPECT_EQ(stats.infRunningSegments, 2u);
    EXPECT_EQ(stats.errForwardStepPackets + stats.errBackwardSteps + stats.errUnfinishedPackets, 0u);
    EXPECT_THAT(mLog.Messages(), SizeIs(1));
}

// The packets behind the last reference belong to the file.
TEST_F(TSFileSourceRebaseTest, TheEndIsReachedWhenTheLastPacketIsSent) {
    const StreamFile file(TSStream().PCR(0).Plain(1).PCR(2700).Plain(2).OnePID());
    CreateFor(file);
    ASSERT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    // Nobody has started it, so it begins 100 ms after 0. A step is 10 ms.
    for (const std::int64_t time : {100, 110, 130, 140}) {
        EXPECT_EQ(mSource.DeliverPackets(After(time)), KESTATUS_SUCCESS);
        EXPECT_FALSE(mSource.IsEndOfFileReached()) << time;
    }
    EXPECT_EQ(mSource.DeliverPackets(After(150)), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSource.IsEndOfFileReached());
    EXPECT_THAT(Ordinals(), ElementsAre(0u, 1u, 2u, 3u, 4u));
}

// Not when it is read.
TEST_F(TSFileSourceRebaseTest, ABreakIsToldWhenItsPacketIsSent) {
    const StreamFile file(
        TSStream().PCR(0).Plain(1).PCR(2700).PCR(400000).PCR(402700).Bad().PCR(1000).PCR(3700).OnePID());
    CreateFor(file);
    ASSERT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.DeliverPackets(After(139)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.ClockBreaks().count, 0u);
    EXPECT_EQ(mSource.ClockBreaks().last.packetNumber, 0u);
    ASSERT_EQ(mSource.DeliverPackets(After(140)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.ClockBreaks().count, 1u);
    EXPECT_EQ(mSource.ClockBreaks().last.packetNumber, 4u);
    EXPECT_EQ(mSource.ClockBreaks().last.jumpTicks, 400000 - 2700);
    ASSERT_EQ(mSource.DeliverPackets(After(10000)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.ClockBreaks().count, 2u);
    EXPECT_EQ(mSource.ClockBreaks().last.packetNumber, 7u);
    EXPECT_EQ(mSource.ClockBreaks().last.jumpTicks, 1000 - 402700);
}

// Packets are used again.
TEST_F(TSFileSourceRebaseTest, ABreakIsToldOnce) {
    TSStream stream = TSStream().PCR(0).Plain(1).PCR(2700).Plain().PCR(400000);
    for (std::uint64_t i = 1; i < 50; ++i) {
        stream.Plain(3).PCR(400000 + i * 900);
    }
    PlayOnce(stream, 6);
    EXPECT_EQ(mSource.ClockBreaks().count, 1u);
    EXPECT_EQ(mSource.ClockBreaks().last.packetNumber, 5u);
}

// Over breaks, and over the passes of a loop.
TEST_F(TSFileSourceRebaseTest, ThePositionIsTheTimeSinceTheFirstPacket) {
    using namespace std::chrono_literals;
    const StreamFile file(TSStream().PCR(900).Plain(1).PCR(3600).PCR(400000).OnePID());
    ASSERT_EQ(Create(file.Path(), true, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.DeliverPackets(After(100)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.Position(), 0ms);
    ASSERT_EQ(mSource.DeliverPackets(After(115)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.Position(), 10ms);
    ASSERT_EQ(mSource.DeliverPackets(After(140)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.Position(), 40ms);
    ASSERT_EQ(mSource.DeliverPackets(After(250)), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.Position(), 150ms);
    const SystemCallFault fault("pthread_create", EAGAIN); // nothing is delivered behind the start
    EXPECT_EQ(mSource.StartSource(), KEStatusFromErrno(EAGAIN));
    EXPECT_TRUE(fault.IsDelivered());
    EXPECT_EQ(mSource.Position(), 0ms);
}

// It goes on where it was in the file, as if the stream began there.
TEST_F(TSFileSourceRebaseTest, AnotherStartBeginsAnew) {
    TSStream stream = TSStream().PCR(0).Plain(1).PCR(2700).PCR(400000).Plain();
    for (std::uint64_t i = 1; i < 50; ++i) {
        stream.PCR(400000 + i * 2700).Plain(1);
    }
    const StreamFile file(stream.OnePID());
    mClock.AllowSleeps(70);
    ASSERT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    mSource.StopSource();
    EXPECT_EQ(mSource.ClockBreaks().count, 1u);
    const std::size_t before = mSink.mDeliveries.size();
    const std::int64_t now = mClock.Now().time_since_epoch().count();

    mClock.AllowSleeps(1000);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.ClockBreaks().count, 0u);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    ASSERT_GT(mSink.mDeliveries.size(), before);
    EXPECT_EQ(mSink.mDeliveries[before].deliverTime, now + 500 * cMs);
    EXPECT_EQ(mSink.mDeliveries.back().ordinal, stream.Packets().size() - 1);
    EXPECT_EQ(mSource.ClockBreaks().count, 0u);
}

// What the stream was like before is not known any more.
TEST_F(TSFileSourceRebaseTest, AnotherStartNeedsTwoPCRsOfItsOwn) {
    const StreamFile file(TSStream().PCR(0).Plain().PCR(2700).Plain(3).PCR(5400).Plain(9).OnePID());
    mClock.AllowSleeps(0);
    ASSERT_EQ(Create(file.Path(), false, 4), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS); // four packets are read
    mSource.StopSource();
    EXPECT_EQ(mSource.QuerryStatistics().infTsPacketsTimed, 2u);
    mClock.AllowSleeps(1000);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_THAT(mSink.mDeliveries, SizeIs(0));
    EXPECT_GT(mSource.QuerryStatistics().errUnfinishedPackets, 0u);
}

// As many as there are packets for.
TEST_F(TSFileSourceRebaseTest, SeveralPassesAreReadAhead) {
    const StreamFile file(TSStream().PCR(0).Plain(3).PCR(9000).OnePID());
    ASSERT_EQ(Create(file.Path(), true, 43), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.QuerryStatistics().infEndsOfFile, 8u);
    mClock.AllowSleeps(0);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS); // gives the packets back
    mSource.StopSource();
}

// The last packets of a pipe are sent when it ends. Before, a reference may still follow them.
TEST_F(TSFileSourceRebaseTest, APipeIsPlayedToItsEnd) {
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const TSStream stream = TSStream().Plain().PCR(0).Plain(2).PCR(3600).Plain(2).PCR(0).Plain(3).OnePID();
    std::thread writer([&] {
        const std::vector<std::uint8_t> bytes = stream.Bytes();
        folder.Write("pipe", {bytes.begin(), bytes.end()});
    });
    EXPECT_EQ(Create(path.c_str(), false, 100), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    EXPECT_TRUE(WaitForMessage("stop thread"));
    writer.join();
    mSource.StopSource();
    EXPECT_THAT(Times(), ElementsAre(0, 0, 10000, 20000, 40000, 50000, 60000, 70000, 80000, 90000, 100000));
    EXPECT_EQ(mSource.ClockBreaks().count, 1u);
}
