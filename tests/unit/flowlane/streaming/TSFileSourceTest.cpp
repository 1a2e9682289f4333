// The file source: creating, starting, failing, and streams that are out of the ordinary.

#include "streaming/TSFileSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "SystemCallFaults.h"
#include "streaming/TSFileSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

TEST_F(TSFileSourceTest, CreateReportsAFileThatCannotBeOpened) {
    EXPECT_EQ(Create("/no/such/file", false, 10), KEStatusFromErrno(ENOENT));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{
                    KEERROR, KEStdStringFormat("OpenFile failed, st={}",
                                               KEFormatArgKEStatus(KEStatusFromErrno(ENOENT)))}));
    EXPECT_FALSE(mSource.IsEndOfFileReached());
}

TEST_F(TSFileSourceTest, CreateTwiceIsRefused) {
    const StreamFile file(cTenPackets);
    EXPECT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    EXPECT_EQ(Create(file.Path(), false, 10), KESTATUS_INTERNAL_ERROR);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(CapturedMessage{KEFATAL, "already allocated"},
                    CapturedMessage{KEERROR, "AllocatePool failed, st=0xe0000002(KESTATUS_INTERNAL_ERROR)"}));
}

TEST_F(TSFileSourceTest, AFailingCreateKeepsTheSinkAndDoesNotTurnOnLooping) {
    const StreamFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 100), KESTATUS_SUCCESS);
    RecordingSink otherSink(mClock);
    EXPECT_EQ(mSource.CreateTSFileSource(file.Path(), otherSink, true, 100), KESTATUS_INTERNAL_ERROR);
    EXPECT_EQ(mSource.CreateTSFileSource("/no/such/file", otherSink, true, 100), KEStatusFromErrno(ENOENT));
    EXPECT_EQ(mSource.CreateTSFileSource(file.Path(), otherSink, true, 100), KESTATUS_INTERNAL_ERROR);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread")); // it does not play for ever
    mSource.StopSource();
    EXPECT_EQ(mSink.mDeliveries.size(), 10u);
    EXPECT_TRUE(otherSink.mDeliveries.empty());
}

TEST_F(TSFileSourceTest, AThreadThatCannotBeCreatedGivesThePacketsBack) {
    const StreamFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), true, 11), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_create", EAGAIN);
        EXPECT_EQ(mSource.StartSource(), KEStatusFromErrno(EAGAIN));
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_EQ(mLog.Texts().back(), KEStdStringFormat("CreateThread failed, st={}",
                                                     KEFormatArgKEStatus(KEStatusFromErrno(EAGAIN))));
    EXPECT_EQ(mSource.DeliverPackets(TSPacketTimePoint::max()), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSink.mDeliveries.empty());
    // All eleven are free for the next start.
    mClock.AllowSleeps(70);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    mSource.StopSource();
    EXPECT_GE(mSink.mDeliveries.size(), 10u);
}

// A call drops a limited number of packets, for whatever reason, and the next call reads on.
TEST_F(TSFileSourceTest, ManyDroppedPacketsEndACallOfFillDeliverQueue) {
    TSStream gaps;
    for (std::uint64_t i = 0; i < 25000; ++i) {
        gaps.PCR(i * 90000);
    }
    const TSStream streams[] = {TSStream().Bad(25000), TSStream().Plain(25000), gaps};
    for (const TSStream& stream : streams) {
        const StreamFile file(stream);
        TSFileSource source(mClock);
        ASSERT_EQ(source.CreateTSFileSource(file.Path(), mSink, false, 100), KESTATUS_SUCCESS);
        unsigned calls = 0;
        while (!source.IsEndOfFileReached() && calls < 10) {
            EXPECT_EQ(source.FillDeliverQueue(), KESTATUS_SUCCESS);
            ++calls;
        }
        EXPECT_EQ(calls, 3u);
        source.ThreadRoutine(); // gives the last packet back
    }
}

// There is no pause while packets are only dropped.
TEST_F(TSFileSourceTest, ManyDroppedPacketsTakeNoTime) {
    const StreamFile file(TSStream().Bad(95000));
    ASSERT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mSource.IsEndOfFileReached(); }));
    mSource.StopSource();
    EXPECT_EQ(mLog.Count(KEWARN, "ignore invalid TS packet"), 95000u);
    EXPECT_LE(mClock.Sleeps(), 1u);
}

// A loop pauses after each pass that gives no packet a time, also when a pass takes several calls.
TEST_F(TSFileSourceTest, APassThatTimesNothingIsFollowedByAPause) {
    const StreamFile file(TSStream().Bad(12000));
    ASSERT_EQ(Create(file.Path(), true, 10), KESTATUS_SUCCESS);
    mClock.AllowSleeps(4);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    mSource.StopSource();
    const std::size_t passes = mLog.Count(KEINFO, "rewind done");
    EXPECT_GE(passes, mClock.Sleeps());
    EXPECT_LE(passes, mClock.Sleeps() + mClock.StoodStill() + 1);
}

TEST_F(TSFileSourceTest, NothingIsReachedBeforeTheStart) {
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    const StreamFile file(TSStream{});
    ASSERT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSource.IsEndOfFileReached()); // only a read finds the end
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSource.IsEndOfFileReached());
}

TEST_F(TSFileSourceTest, EndOfFileWaitsForTheLastPacketToBeTakenFromTheQueue) {
    const StreamFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 11), KESTATUS_SUCCESS);
    // All packets are in use before a read finds the end.
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    // Without a start the time base is 100 ms after time 0.
    const TSPacketTimePoint first(std::chrono::milliseconds(100));
    EXPECT_EQ(mSource.DeliverPackets(first - TSPacketDuration(1)), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSink.mDeliveries.empty());
    EXPECT_TRUE(mSink.mBatches.empty());
    EXPECT_EQ(mSource.DeliverPackets(first), KESTATUS_SUCCESS);
    EXPECT_THAT(Ordinals(), ElementsAre(0u));
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    EXPECT_EQ(mSource.DeliverPackets(first + std::chrono::seconds(1)), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSource.IsEndOfFileReached());
    EXPECT_THAT(mSink.mBatches, ElementsAre(1u, 10u));
    // The packet with the last PCR is still in the source; it is released silently when the source runs.
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mSource.StopSource();
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u);
}

TEST_F(TSFileSourceTest, WithoutPacketsNothingHappensUntilTheStop) {
    const StreamFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 0), KESTATUS_SUCCESS);
    mClock.AllowSleeps(5);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    mSource.StopSource();
    EXPECT_THAT(mLog.Messages(), ElementsAre());
}

TEST_F(TSFileSourceTest, OnePacketReachesTheEndWithoutADelivery) {
    const StreamFile file(TSStream().PCR(0).PCR(900));
    ASSERT_EQ(Create(file.Path(), false, 1), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    const CapturedMessage dropped{KEERROR, "no PCR within 1 packets, drop the packets"};
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(dropped, dropped,
                            CapturedMessage{KEINFO, "all packets from file delivered, stop thread"}));
}

TEST_F(TSFileSourceTest, ASegmentLongerThanThePoolIsDroppedAndPlayingGoesOn) {
    const StreamFile file(TSStream().PCR(0).Plain(20).PCR(27000).Plain(2).PCR(28800));
    ASSERT_EQ(Create(file.Path(), false, 8), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    const CapturedMessage dropped{KEERROR, "no PCR within 8 packets, drop the packets"};
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(dropped, dropped,
                            CapturedMessage{KEINFO, "all packets from file delivered, stop thread"}));
    // Seven packets are lost twice. The first packet, six others and the PCR are left: 300 ms in eight steps.
    const std::int64_t base = cStart + 500 * cMs;
    std::vector<Delivery> deliveries = mSink.mDeliveries;
    for (Delivery& delivery : deliveries) {
        delivery.wakeTime = 0;
    }
    EXPECT_THAT(deliveries,
                ElementsAre(Delivery{0, base, 0}, Delivery{15, base + 37500000, 0},
                            Delivery{16, base + 75 * cMs, 0}, Delivery{17, base + 112500000, 0},
                            Delivery{18, base + 150 * cMs, 0}, Delivery{19, base + 187500000, 0},
                            Delivery{20, base + 225 * cMs, 0}, Delivery{21, base + 300 * cMs, 0},
                            Delivery{22, base + 305 * cMs, 0}, Delivery{23, base + 310 * cMs, 0}));
}

// Two packets per pass: all hundred are in use in the fiftieth pass.
TEST_F(TSFileSourceTest, AShortLoopIsReadAheadAsFarAsThePacketsGo) {
    const StreamFile file(TSStream().PCR(0).Plain().PCR(900));
    ASSERT_EQ(Create(file.Path(), true, 100), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_EQ(mLog.Count(KEINFO, "rewind done"), 49u);
    EXPECT_EQ(mLog.Messages().size(), 49u);
    EXPECT_EQ(mSource.DeliverPackets(TSPacketTimePoint::max()), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.mDeliveries.size(), 98u);
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    EXPECT_EQ(mSource.StartSource(), KESTATUS_SUCCESS); // its worker gives the last packets back
    mSource.StopSource();
}

TEST_F(TSFileSourceTest, ASegmentThatFillsThePoolIsNotDropped) {
    const StreamFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 11), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_EQ(mSink.mDeliveries.size(), 10u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, ""), 0u);
}

// A directory can be opened, but not read.
TEST_F(TSFileSourceTest, AReadErrorFailsTheStart) {
    ASSERT_EQ(Create("/", false, 10), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.StartSource(), KESTATUS_READ_FILE_FAILED);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(
            CapturedMessage{KEERROR, "ReadFromFile failed"},
            CapturedMessage{KEERROR, "FillDeliverQueue failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED)"}));
    EXPECT_FALSE(mSource.IsEndOfFileReached());
}

TEST_F(TSFileSourceTest, AReadErrorStopsTheWorker) {
    ASSERT_EQ(Create("/", false, 10), KESTATUS_SUCCESS);
    mSource.ThreadRoutine();
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(CapturedMessage{KEERROR, "ReadFromFile failed"},
                    CapturedMessage{KEERROR, "FillDeliverQueue failed, "
                                             "st=0xe0000091(KESTATUS_READ_FILE_FAILED), stop thread"}));
}

namespace {

// A sink that fails in one of its calls.
struct SinkFailureCase {
    const char* name;
    unsigned failingDeliver = 0; // 1 for the first call; 0 for none
    unsigned failingSend = 0;
    KESTATUS status;
    std::size_t delivered; // packets that the sink took
    std::size_t batches;   // calls of SendDeliveredPackets
    std::string message;
};

void PrintTo(const SinkFailureCase& test, std::ostream* stream) {
    *stream << test.name;
}

class TSFileSourceSinkFailureTest : public TSFileSourceTest,
                                    public testing::WithParamInterface<SinkFailureCase> {};

} // namespace

TEST_P(TSFileSourceSinkFailureTest, StopsTheWorker) {
    const SinkFailureCase& test = GetParam();
    // One packet per 7.5 ms: from 500 ms on, the wake-ups find 1, 1, 1, 2, 1, 1... of them due.
    const StreamFile file(TSStream().PCR(0).Plain(10).PCR(8100));
    mSink.mOnDeliver = [&] {
        return mSink.mDeliverCalls == test.failingDeliver ? test.status : KESTATUS_SUCCESS;
    };
    mSink.mOnSend = [&] {
        return mSink.mBatches.size() == test.failingSend ? test.status : KESTATUS_SUCCESS;
    };
    ASSERT_EQ(Create(file.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_EQ(mSource.FailureStatus(), test.status);
    EXPECT_EQ(mSource.QuerryStatistics().infTsPacketsDelivered, test.delivered);
    EXPECT_EQ(mSink.mDeliverCalls, test.delivered + (test.failingDeliver != 0 ? 1u : 0u));
    EXPECT_EQ(mSink.mBatches.size(), test.batches);
    const std::string status = KEStdStringFormat("st={}", KEFormatArgKEStatus(test.status));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEERROR, test.message + " failed, " + status},
                            CapturedMessage{KEERROR, "DeliverPackets failed, " + status + ", stop thread"}));
}

INSTANTIATE_TEST_SUITE_P(Table, TSFileSourceSinkFailureTest,
                         testing::Values(SinkFailureCase{.name = "FirstPacket",
                                                         .failingDeliver = 1,
                                                         .status = KESTATUS_TIMEOUT,
                                                         .delivered = 0,
                                                         .batches = 0,
                                                         .message = "DeliverTSPacket"},
                                         SinkFailureCase{.name = "SecondPacketOfABatch",
                                                         .failingDeliver = 5,
                                                         .status = KESTATUS_TIMEOUT,
                                                         .delivered = 4,
                                                         .batches = 3,
                                                         .message = "DeliverTSPacket"},
                                         SinkFailureCase{.name = "NoDataIsAFailureToo",
                                                         .failingDeliver = 7,
                                                         .status = KESTATUS_NO_DATA,
                                                         .delivered = 6,
                                                         .batches = 5,
                                                         .message = "DeliverTSPacket"},
                                         SinkFailureCase{.name = "FirstSend",
                                                         .failingSend = 1,
                                                         .status = KESTATUS_TIMEOUT,
                                                         .delivered = 1,
                                                         .batches = 1,
                                                         .message = "SendDeliveredPackets"},
                                         SinkFailureCase{.name = "SendOfTwoPackets",
                                                         .failingSend = 4,
                                                         .status = KESTATUS_NO_DATA,
                                                         .delivered = 5,
                                                         .batches = 4,
                                                         .message = "SendDeliveredPackets"}),
                         [](const auto& row) { return row.param.name; });
