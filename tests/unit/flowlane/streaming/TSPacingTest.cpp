// The times at which packets are sent, in virtual time, compared with those that follow from the whole
// stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/PacingOracle.h"
#include "streaming/TSFileSource.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAreArray;

namespace {

constexpr std::uint64_t cPCREnd = std::uint64_t{1} << 33;
constexpr std::uint32_t cFrame = 7; // packets
constexpr std::int64_t cStart = VirtualClock::cStart.time_since_epoch().count();

struct PacingCase {
    const char* name;
    TSStream stream;
    std::size_t deliveries; // in one pass, counted by hand
};

std::ostream& operator<<(std::ostream& stream, const PacingCase& pacingCase) {
    return stream << pacingCase.name;
}

TSStream ConstantRate(unsigned segments, unsigned plainPackets, std::uint64_t ticks,
                      std::uint64_t first = 0) {
    TSStream stream;
    for (unsigned i = 0; i <= segments; ++i) {
        stream.PCR((first + i * ticks) % cPCREnd);
        if (i < segments) {
            stream.Plain(plainPackets);
        }
    }
    return stream;
}

const PacingCase cCases[] = {
    {"ConstantRate", ConstantRate(20, 19, 3600), 400},
    {"RateNotDivisible", ConstantRate(7, 12, 3601, 12345), 91},
    {"AdjacentPCRs", TSStream().PCR(0).PCR(900).PCR(901).PCR(901).PCR(2701), 4},
    {"VaryingSegments",
     TSStream().PCR(1).Plain(3).PCR(5000).PCR(5001).Plain(40).PCR(50000).Plain().PCR(50900), 48},
    {"PacketsBeforeFirstPCR", TSStream().Plain(5).PCR(900000).Plain(2).PCR(901800), 3},
    {"PacketsAfterLastPCR", TSStream().PCR(0).Plain(2).PCR(1800).Plain(50), 3},
    {"NoPCR", TSStream().Plain(30), 0},
    {"OnePCR", TSStream().Plain(3).PCR(777).Plain(30), 0},
    {"Empty", TSStream(), 0},
    {"PartialPacketOnly", TSStream().PartialPacket(187), 0},
    {"TrailingPartialPacket", TSStream().PCR(0).Plain(4).PCR(9000).PartialPacket(1), 5},
    {"GapJustBelowOneSecond", TSStream().PCR(0).Plain(9).PCR(89999).Plain().PCR(90899), 12},
    {"GapOfOneSecond", TSStream().PCR(0).Plain(9).PCR(90000).Plain().PCR(90900), 2},
    {"GapBehindTimedSegments", TSStream().PCR(0).Plain(4).PCR(900).Plain(4).PCR(200000).Plain(4).PCR(201000),
     10},
    {"GapsInARow", TSStream().PCR(0).PCR(100000).PCR(200000).PCR(300000).Plain().PCR(300900), 2},
    {"Wrap", ConstantRate(10, 8, 1800, cPCREnd - 9000), 90},
    {"WrapAtTheLastTick", TSStream().PCR(cPCREnd - 1).Plain(2).PCR(0).Plain(2).PCR(900), 6},
    {"BackwardsJump", TSStream().PCR(900000).Plain(3).PCR(901800).Plain(3).PCR(450000).Plain(3).PCR(451800),
     12},
    {"BackwardsByOneTick", TSStream().PCR(1000).Plain(3).PCR(999).Plain(3).PCR(2000), 8},
    {"BackwardsLessThanPackets", TSStream().PCR(10).Plain(200000 / 1000).PCR(9).PCR(1000), 202},
    {"NoTimeBetweenPCRs", TSStream().PCR(4500).Plain(6).PCR(4500).Plain(6).PCR(5400), 14},
    {"BadPacketsBetween", TSStream().Bad(2).PCR(0).Bad().Plain(2).Bad(3).PCR(1800).Bad().PCR(2700).Bad(), 4},
    {"BadPacketWithPCR", TSStream().PCR(0).Plain(2).BadPCR(900).Plain(2).PCR(1800), 5},
    {"OnlyBadPackets", TSStream().Bad(12), 0},
    {"LargestPCR", TSStream().PCR(cPCREnd - 1801).Plain(3).PCR(cPCREnd - 1), 4},
};

class TSPacingTest : public testing::TestWithParam<PacingCase> {};

void ExpectPlaysOnce(const TSStream& stream, std::size_t deliveries) {
    const ExpectedPlayback expected = ExpectPlayback(stream, cStart, 1);
    ASSERT_EQ(expected.deliveries.size(), deliveries);

    const StreamFile file(stream);
    VirtualClock clock;
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 1000), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(
        WaitUntil([&] { return log.Count(KEINFO, "all packets from file delivered, stop thread") != 0; },
                  [&] { return log.Messages(); }));
    EXPECT_TRUE(source.IsEndOfFileReached());
    source.StopSource();

    EXPECT_THAT(sink.mDeliveries, ElementsAreArray(expected.deliveries));
    EXPECT_EQ(sink.mBatches.size(), CountBatches(expected.deliveries));
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, expected.deliveries.size());
    std::vector<CapturedMessage> messages = expected.messages;
    messages.push_back({KEINFO, "all packets from file delivered, stop thread"});
    EXPECT_THAT(log.Messages(), ElementsAreArray(messages));
    EXPECT_TRUE(clock.Sleeps() == 0 || clock.LastSleep() == 10);
}

} // namespace

TEST_P(TSPacingTest, PlaysOnce) {
    ExpectPlaysOnce(GetParam().stream, GetParam().deliveries);
}

// The same with few packets: reading runs less far ahead, but the times are the same.
TEST_P(TSPacingTest, PlaysOnceWithFewPackets) {
    const TSStream& stream = GetParam().stream;
    const ExpectedPlayback expected = ExpectPlayback(stream, cStart, 1);

    const StreamFile file(stream);
    VirtualClock clock;
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    // Enough for the longest segment of the cases.
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 203), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(
        WaitUntil([&] { return log.Count(KEINFO, "all packets from file delivered, stop thread") != 0; },
                  [&] { return log.Messages(); }));
    source.StopSource();

    ASSERT_EQ(sink.mDeliveries.size(), expected.deliveries.size());
    for (std::size_t i = 0; i < expected.deliveries.size(); ++i) {
        EXPECT_EQ(sink.mDeliveries[i].ordinal, expected.deliveries[i].ordinal) << i;
        EXPECT_EQ(sink.mDeliveries[i].deliverTime, expected.deliveries[i].deliverTime) << i;
    }
}

// With precise timing a frame's packets are handed over together, and sent.
TEST_P(TSPacingTest, PlaysOncePrecisely) {
    const TSStream& stream = GetParam().stream;
    ExpectedPlayback expected = ExpectPlayback(stream, cStart, 1);
    const std::vector<std::size_t> batches = GatherInFrames(expected.deliveries, cStart, cFrame);

    const StreamFile file(stream);
    VirtualClock clock;
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    source.SetPreciseTiming(cFrame);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 1000), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(
        WaitUntil([&] { return log.Count(KEINFO, "all packets from file delivered, stop thread") != 0; },
                  [&] { return log.Messages(); }));
    source.StopSource();

    EXPECT_THAT(sink.mDeliveries, ElementsAreArray(expected.deliveries));
    EXPECT_THAT(sink.mBatches, ElementsAreArray(batches));
}

// Before and between the references there are more packets than one call drops. The others keep their times.
TEST(TSPacingDropTest, PlaysOnceWithManyPacketsToDrop) {
    ExpectPlaysOnce(TSStream().Bad(25000).PCR(0).Plain(3).PCR(900).Bad(12000).Plain(2).PCR(1800), 7);
    ExpectPlaysOnce(TSStream().Plain(35000).PCR(0).Plain(3).PCR(900), 4);
}

TEST_P(TSPacingTest, Loops) {
    const TSStream& stream = GetParam().stream;
    ExpectedPlayback expected = ExpectPlayback(stream, cStart, 4);
    // The time stops after three passes, in the pause before the fourth. A stream without two PCRs gets half
    // a second.
    unsigned sleeps = 50;
    bool isAheadOfTime = false;
    if (!expected.deliveries.empty()) {
        const std::int64_t end = expected.deliveries[GetParam().deliveries * 3 - 1].wakeTime;
        sleeps = static_cast<unsigned>((end - cStart) / 10000000);
        // When the clock of a stream ends before its start, all further passes are in the past.
        isAheadOfTime = expected.deliveries.back().wakeTime <= end;
        std::erase_if(expected.deliveries, [&](const Delivery& delivery) { return delivery.wakeTime > end; });
    }

    const StreamFile file(stream);
    VirtualClock clock(sleeps);
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, 10000), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return clock.StoodStill() > 1; }));
    EXPECT_FALSE(source.IsEndOfFileReached());
    source.StopSource();
    EXPECT_FALSE(source.IsEndOfFileReached());

    EXPECT_GE(log.Count(KEINFO, "rewind done"), expected.deliveries.empty() ? sleeps : 3);
    EXPECT_EQ(log.CountContaining(KEINFO, "stop thread"), 0u);
    if (isAheadOfTime) {
        ASSERT_GE(sink.mDeliveries.size(), expected.deliveries.size());
        sink.mDeliveries.resize(expected.deliveries.size());
    } else {
        EXPECT_EQ(sink.mBatches.size(), CountBatches(expected.deliveries));
    }
    EXPECT_THAT(sink.mDeliveries, ElementsAreArray(expected.deliveries));
}

INSTANTIATE_TEST_SUITE_P(Streams, TSPacingTest, testing::ValuesIn(cCases),
                         [](const auto& param) { return std::string(param.param.name); });
