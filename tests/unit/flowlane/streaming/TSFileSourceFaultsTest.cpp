// What the file source counts of a file: its packets and clock references, and what is wrong with them.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <ostream>

#include "base/StatisticsCounters.h"
#include "streaming/TSFileSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using namespace std::chrono_literals;

namespace {

using Statistics = TSFileSource::Statistics;

constexpr std::uint64_t cPCREnd = std::uint64_t{1} << 33;

struct FaultCase {
    const char* name;
    TSStream stream;
    Statistics expected;
};

std::ostream& operator<<(std::ostream& stream, const FaultCase& faultCase) {
    return stream << faultCase.name;
}

const FaultCase cCases[] = {
    {.name = "Good",
     .stream = TSStream().OnePID().Plain(2).PCR(0).Plain(9).PCR(900).Plain(3),
     .expected = {.infTsPacketsDelivered = 10,
                  .infTsPacketsRead = 16,
                  .infTsPacketsTimed = 10,
                  .infPCRs = 2,
                  .infRunningSegments = 1}},
    {.name = "PCRsOnSeveralPIDs",
     .stream = TSStream().PCR(0).PCR(900).PCR(1800),
     .expected = {.infTsPacketsDelivered = 2,
                  .infTsPacketsRead = 3,
                  .infTsPacketsTimed = 2,
                  .infPCRs = 3,
                  .infOtherPCRs = 2,
                  .infRunningSegments = 2}},
    {.name = "NothingToSend", .stream = TSStream().OnePID().Plain(5), .expected = {.infTsPacketsRead = 5}},
    {.name = "PartialPacket", .stream = TSStream().OnePID().PartialPacket(187), .expected = {}},
    {.name = "InvalidPackets",
     .stream = TSStream().OnePID().PCR(0).Bad(2).PCR(900).Bad(),
     .expected = {.infTsPacketsDelivered = 1,
                  .infTsPacketsRead = 5,
                  .infTsPacketsTimed = 1,
                  .infPCRs = 2,
                  .infRunningSegments = 1,
                  .errInvalidPackets = 3,
                  .infFirstInvalidPacket = 2}},
    {.name = "InvalidPacketWithPCR",
     .stream = TSStream().OnePID().BadPCR(0),
     .expected = {.infTsPacketsRead = 1, .errInvalidPackets = 1, .infFirstInvalidPacket = 1}},
    {.name = "ForwardSteps",
     .stream = TSStream().OnePID().PCR(0).Plain(4).PCR(90000).PCR(90900).PCR(190900),
     .expected = {.infTsPacketsDelivered = 1,
                  .infTsPacketsRead = 8,
                  .infTsPacketsTimed = 1,
                  .infPCRs = 4,
                  .infRunningSegments = 1,
                  .errForwardStepPackets = 6,
                  .infFirstForwardStep = 6}},
    {.name = "BackwardSteps",
     .stream = TSStream().OnePID().PCR(9000).Plain(3).PCR(8999).PCR(0).PCR(900),
     .expected = {.infTsPacketsDelivered = 6,
                  .infTsPacketsRead = 7,
                  .infTsPacketsTimed = 6,
                  .infPCRs = 4,
                  .infRunningSegments = 1,
                  .errBackwardSteps = 2,
                  .infFirstBackwardStep = 5}},
    {.name = "ClockStandsStill",
     .stream = TSStream().OnePID().PCR(900).Plain(3).PCR(900),
     .expected = {.infTsPacketsDelivered = 4, .infTsPacketsRead = 5, .infTsPacketsTimed = 4, .infPCRs = 2}},
    {.name = "UnfinishedSegment", // there are 100 packets
     .stream = TSStream().OnePID().PCR(0).Plain(150).PCR(900),
     .expected = {.infTsPacketsDelivered = 52,
                  .infTsPacketsRead = 152,
                  .infTsPacketsTimed = 52,
                  .infPCRs = 2,
                  .infRunningSegments = 1,
                  .errUnfinishedPackets = 99,
                  .infFirstUnfinished = 100}},
};

class TSFileSourceFaultsTest : public TSFileSourceTest, public testing::WithParamInterface<FaultCase> {
protected:
    void Play(const TSStream& stream) {
        const StreamFile file(stream);
        ASSERT_EQ(Create(file.Path(), false, 100), KESTATUS_SUCCESS);
        ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        ASSERT_TRUE(WaitForMessage("stop thread"));
        mSource.StopSource();
    }
    // All packets that the source holds: a worker that ends does so.
    void GiveBack() {
        mClock.AllowSleeps(0);
        EXPECT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        mSource.StopSource();
    }
};

using TSFileSourcePositionTest = TSFileSourceFaultsTest;

} // namespace

TEST_P(TSFileSourceFaultsTest, AreCounted) {
    Play(GetParam().stream);
    Statistics statistics = mSource.QuerryStatistics();
    EXPECT_GE(statistics.infEndsOfFile, 1u);
    statistics.infEndsOfFile = 0; // depends on how often it has tried to read on
    using Values = StatisticsCounters<Statistics>::Values;
    EXPECT_EQ(std::bit_cast<Values>(statistics), std::bit_cast<Values>(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Streams, TSFileSourceFaultsTest, testing::ValuesIn(cCases),
                         [](const auto& row) { return std::string(row.param.name); });

// The numbers of the first packets are those of the first pass.
TEST_F(TSFileSourceFaultsTest, AreCountedInAllPassesOfALoop) {
    const StreamFile file(TSStream().OnePID().PCR(0).Plain(3).Bad().PCR(9000));
    ASSERT_EQ(Create(file.Path(), true, 43), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    // Each pass times four packets. The eleventh begins when the last three are free.
    const Statistics statistics = mSource.QuerryStatistics();
    EXPECT_EQ(statistics.infEndsOfFile, 10u);
    EXPECT_EQ(statistics.errInvalidPackets, 10u);
    EXPECT_EQ(statistics.infFirstInvalidPacket, 5u);
    EXPECT_EQ(statistics.errBackwardSteps, 0u); // a new pass is no step of the clock
    GiveBack();
}

TEST_F(TSFileSourceFaultsTest, AreForgottenAtTheNextStart) {
    Play(TSStream().OnePID().Bad(3).PCR(900).PCR(0));
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    Statistics statistics = mSource.QuerryStatistics();
    statistics.infEndsOfFile = 0;
    EXPECT_EQ(SumOfFields(statistics), 0u);
    EXPECT_EQ(mSource.Position(), 0s);
}

// The packet with the last reference is not sent.
TEST_F(TSFileSourcePositionTest, IsThatOfTheLastReferenceThatWasSent) {
    EXPECT_EQ(mSource.Position(), 0s);
    Play(TSStream().OnePID().Plain().PCR(cPCREnd - 9000).Plain(3).PCR(9000).Plain(3).PCR(18000));
    EXPECT_EQ(mSource.Position(), 200ms);
}

TEST_F(TSFileSourcePositionTest, IsNegativeBeforeTheFirstReference) {
    Play(TSStream().OnePID().PCR(90000).PCR(45000).PCR(45900));
    EXPECT_EQ(mSource.Position(), -500ms);
}

TEST_F(TSFileSourcePositionTest, BeginsAgainWithEachPass) {
    const StreamFile file(TSStream().OnePID().PCR(0).PCR(9000).PCR(18000));
    ASSERT_EQ(Create(file.Path(), true, 5), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    const TSPacketTimePoint start(100ms); // without a start the time base is 100 ms after time 0
    for (const TSPacketDuration position : {0ms, 100ms}) {
        EXPECT_EQ(mSource.DeliverPackets(start + position), KESTATUS_SUCCESS);
        EXPECT_EQ(mSource.Position(), position);
    }
    // The second packet was sent 50 ms earlier: the last gap of a segment is two steps long. The next pass is
    // 100 ms behind the last packet.
    EXPECT_EQ(mSource.DeliverPackets(start + 200ms), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.Position(), 0ms);
    GiveBack();
}
