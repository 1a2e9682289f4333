// The file source's worker: starting, stopping and ending, and what other threads see of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "LogCapture.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSFileSource.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

namespace {

TSStream LongStream(unsigned segments) {
    TSStream stream;
    for (unsigned i = 0; i < segments; ++i) {
        stream.PCR(i * 3600).Plain(29);
    }
    return stream.PCR(segments * 3600);
}

// Counts packets; safe to look at while the source runs.
class CountingSink final : public SinkBase {
public:
    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}
    KESTATUS DeliverTSPacket(const TSPacket&) override {
        mPackets.fetch_add(1);
        return KESTATUS_SUCCESS;
    }
    KESTATUS SendDeliveredPackets() override { return KESTATUS_SUCCESS; }

    std::atomic<unsigned> mPackets{0};
};

} // namespace

TEST(TSFileSourceThreadTest, StopsWhilePacketsWait) {
    const TempFile file(LongStream(100));
    LogCapture log;
    VirtualClock clock(60);
    RecordingSink sink(clock);
    {
        TSFileSource source(clock);
        ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 1000), KESTATUS_SUCCESS);
        ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
        ASSERT_TRUE(WaitUntil([&] { return clock.StoodStill() > 1; }));
        source.StopSource();
        // 600 ms after the start, 100 ms after the first packet: 40 ms a segment, 31 steps each.
        EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, 30u + 30u + 16u);
        EXPECT_FALSE(source.IsEndOfFileReached());
    }
    EXPECT_THAT(log.Messages(), ElementsAre());
}

TEST(TSFileSourceThreadTest, StoppingTwiceAndWithoutAStartDoesNothing) {
    const TempFile file(LongStream(3));
    LogCapture log;
    VirtualClock clock;
    RecordingSink sink(clock);
    TSFileSource source(clock);
    source.StopSource();
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, 100), KESTATUS_SUCCESS);
    source.StopSource();
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    source.StopSource();
    source.StopSource();
    EXPECT_EQ(log.CountContaining(KEERROR, ""), 0u);
}

TEST(TSFileSourceThreadTest, TheDestructorStopsTheWorker) {
    const TempFile file(LongStream(50));
    LogCapture log;
    CountingSink sink;
    {
        TSFileSource source;
        ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, 200), KESTATUS_SUCCESS);
        ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    }
    const unsigned packets = sink.mPackets.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(sink.mPackets.load(), packets);
    EXPECT_EQ(log.CountContaining(KEFATAL, ""), 0u);
}

TEST(TSFileSourceThreadTest, ASecondStartIsRefusedAndHarmless) {
    const TempFile file(LongStream(100));
    LogCapture log;
    VirtualClock clock(100);
    RecordingSink sink(clock);
    TSFileSource source(clock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, 500), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(source.StartSource(), KESTATUS_ALREADY_DONE);
    }
    ASSERT_TRUE(WaitUntil([&] { return clock.StoodStill() > 1; }));
    source.StopSource();
    EXPECT_EQ(log.Count(KEERROR, "CreateThread failed, st=0xe0000008(KESTATUS_ALREADY_DONE)"), 20u);
    EXPECT_GT(source.QuerryStatistics().infTsPacketsDelivered, 300u);
    for (std::size_t i = 0; i < sink.mDeliveries.size(); ++i) {
        ASSERT_EQ(sink.mDeliveries[i].ordinal, i);
    }
}

TEST(TSFileSourceThreadTest, AWorkerThatHasEndedMustBeStoppedBeforeTheNextStart) {
    const TempFile file(LongStream(2));
    LogCapture log;
    VirtualClock clock;
    RecordingSink sink(clock);
    TSFileSource source(clock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 500), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return log.CountContaining(KEINFO, "stop thread") != 0; },
                          [&] { return log.Messages(); }));
    EXPECT_EQ(source.StartSource(), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, 60u);
    source.StopSource();

    // The file is not rewound: the next run is over at once, and counts from 0.
    log.Clear();
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return log.CountContaining(KEINFO, "stop thread") != 0; },
                          [&] { return log.Messages(); }));
    EXPECT_TRUE(source.IsEndOfFileReached());
    source.StopSource();
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, 0u);
    EXPECT_EQ(sink.mDeliveries.size(), 60u);
}

// The next run goes on in the file where reading had come to, on a new time base.
TEST(TSFileSourceThreadTest, ARestartGoesOnInTheFile) {
    const TempFile file(LongStream(100));
    LogCapture log;
    VirtualClock clock(60);
    RecordingSink sink(clock);
    TSFileSource source(clock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 90), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return clock.StoodStill() > 1; }));
    source.StopSource();
    const std::size_t delivered = sink.mDeliveries.size();
    ASSERT_EQ(delivered, 76u);
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, delivered);

    const std::int64_t restart = clock.Now().time_since_epoch().count();
    clock.AllowSleeps(100000);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return log.CountContaining(KEINFO, "stop thread") != 0; },
                          [&] { return log.Messages(); }));
    source.StopSource();
    ASSERT_GT(sink.mDeliveries.size(), delivered);
    // 76 were delivered and 90 more read: the next PCR is that of packet 180.
    EXPECT_EQ(sink.mDeliveries[delivered].ordinal, 180u);
    EXPECT_EQ(sink.mDeliveries[delivered].deliverTime, restart + 500000000);
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, 3000u - 180u);
}

namespace {

// Holds up what it is to send from some packet on until the test lets it go on.
class HeldSink final : public SinkBase {
public:
    HeldSink(unsigned packets, KESTATUS status) : mPackets(packets), mStatus(status) {}

    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}
    KESTATUS DeliverTSPacket(const TSPacket&) override {
        --mPackets;
        return KESTATUS_SUCCESS;
    }
    KESTATUS SendDeliveredPackets() override {
        if (mPackets != 0) {
            return KESTATUS_SUCCESS;
        }
        mIsSending.store(true);
        EXPECT_TRUE(WaitUntil([&] { return mMayGoOn.load(); }));
        return mStatus;
    }

    std::atomic<bool> mIsSending{false};
    std::atomic<bool> mMayGoOn{false};

private:
    unsigned mPackets; // that are not delivered yet
    KESTATUS mStatus;  // of sending the last one
};

} // namespace

// Who sees the end also sees whether the last packet could be sent.
TEST(TSFileSourceThreadTest, TheEndIsReachedWhenTheLastPacketHasBeenSent) {
    for (const KESTATUS status : {KESTATUS_SUCCESS, KESTATUS_DEVICE_REMOVED}) {
        const TempFile file(LongStream(3));
        LogCapture log;
        VirtualClock clock;
        HeldSink sink(90, status);
        TSFileSource source(clock);
        ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 1000), KESTATUS_SUCCESS);
        ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
        ASSERT_TRUE(WaitUntil([&] { return sink.mIsSending.load(); }));
        EXPECT_FALSE(source.IsEndOfFileReached());
        sink.mMayGoOn.store(true);
        ASSERT_TRUE(WaitUntil([&] { return source.IsEndOfFileReached(); }));
        EXPECT_EQ(source.FailureStatus(), status);
        source.StopSource();
    }
}

// In real time, with other threads that look on: for the thread sanitizer.
TEST(TSFileSourceThreadTest, OthersMayLookWhileItPlays) {
    const TempFile file(LongStream(5)); // 200 ms
    LogCapture log;
    CountingSink sink;
    TSFileSource source;
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, TSFileSource::cDefaultNumberOfPackets),
              KESTATUS_SUCCESS);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    std::uint64_t seen = 0;
    ASSERT_TRUE(WaitUntil([&] {
        const std::uint64_t delivered = source.QuerryStatistics().infTsPacketsDelivered;
        EXPECT_GE(delivered, seen);
        seen = delivered;
        return source.IsEndOfFileReached();
    }));
    // The last packet is due 500 ms and most of 200 ms after the start; there is no upper bound to test.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(690));
    source.StopSource();
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, 150u);
    EXPECT_EQ(sink.mPackets.load(), 150u);
}

TEST(TSFileSourceThreadTest, ALoopWithoutAnyPCRStaysStoppable) {
    const TSStream streams[] = {TSStream(),
                                TSStream().Plain(100),
                                TSStream().PartialPacket(100),
                                TSStream().PCR(5).Plain(3),
                                TSStream().Bad(5),
                                TSStream().PCR(0).PCR(90000)};
    for (const TSStream& stream : streams) {
        const TempFile file(stream);
        CountingSink sink;
        TSFileSource source; // in real time
        ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, 10000), KESTATUS_SUCCESS);
        ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
        EXPECT_FALSE(source.IsEndOfFileReached());
        source.StopSource();
        EXPECT_EQ(sink.mPackets.load(), 0u);
    }
}
