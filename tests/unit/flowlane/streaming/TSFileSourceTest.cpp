// Creating, starting, failing and the odd inputs of the file source.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "SystemCallFaults.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSFileSource.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

namespace {

constexpr std::int64_t cMs = 1000000;
constexpr std::int64_t cStart = VirtualClock::cStart.time_since_epoch().count();

class TSFileSourceTest : public testing::Test {
protected:
    KESTATUS Create(const char* path, bool rewindFile, unsigned packets) {
        return mSource.CreateTSFileSource(path, mSink, rewindFile, packets);
    }
    testing::AssertionResult WaitForMessage(const std::string& part) {
        return WaitUntil(
            [&] { return mLog.CountContaining(KEINFO, part) + mLog.CountContaining(KEERROR, part) != 0; },
            [&] { return mLog.Messages(); });
    }
    std::vector<std::uint32_t> Ordinals() const {
        std::vector<std::uint32_t> ordinals;
        for (const Delivery& delivery : mSink.mDeliveries) {
            ordinals.push_back(delivery.ordinal);
        }
        return ordinals;
    }

    VirtualClock mClock;
    RecordingSink mSink{mClock};
    LogCapture mLog;
    TSFileSource mSource{mClock};
};

// Ten packets in 100 ms: eleven in the segment, 9.09 ms each.
const TSStream cTenPackets = TSStream().PCR(0).Plain(9).PCR(9000);

} // namespace

TEST_F(TSFileSourceTest, CreateReportsAFileThatCannotBeOpened) {
    EXPECT_EQ(Create("/no/such/file", false, 10), KEStatusFromErrno(ENOENT));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{
                    KEERROR, KEStdStringFormat("OpenFile failed, st={}",
                                               KEFormatArgKEStatus(KEStatusFromErrno(ENOENT)))}));
    EXPECT_FALSE(mSource.IsEndOfFileReached());
}

TEST_F(TSFileSourceTest, CreateTwiceIsRefused) {
    const TempFile file(cTenPackets);
    EXPECT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    EXPECT_EQ(Create(file.Path(), false, 10), KESTATUS_INTERNAL_ERROR);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(CapturedMessage{KEFATAL, "already allocated"},
                    CapturedMessage{KEERROR, "AllocatePool failed, st=0xe0000002(KESTATUS_INTERNAL_ERROR)"}));
}

TEST_F(TSFileSourceTest, AFailingCreateKeepsTheSinkAndTheWayOfPlaying) {
    const TempFile file(cTenPackets);
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
    const TempFile file(cTenPackets);
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

// A call drops so many packets at most, for whatever reason, and the next one reads on.
TEST_F(TSFileSourceTest, ManyDroppedPacketsEndACallOfFillDeliverQueue) {
    TSStream gaps;
    for (std::uint64_t i = 0; i < 25000; ++i) {
        gaps.PCR(i * 90000);
    }
    const TSStream streams[] = {TSStream().Bad(25000), TSStream().Plain(25000), gaps};
    for (const TSStream& stream : streams) {
        const TempFile file(stream);
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

// Nothing is gained by a pause while only packets are dropped.
TEST_F(TSFileSourceTest, ManyDroppedPacketsTakeNoTime) {
    const TempFile file(TSStream().Bad(95000));
    ASSERT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_EQ(mLog.Count(KEWARN, "ignore invalid TS packet"), 95000u);
    EXPECT_LE(mClock.Sleeps(), 1u);
}

// A loop pauses after each pass without a time, however long the pass is.
TEST_F(TSFileSourceTest, APassThatTimesNothingIsFollowedByAPause) {
    const TempFile file(TSStream().Bad(25000));
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
    const TempFile file(TSStream{});
    ASSERT_EQ(Create(file.Path(), false, 10), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSource.IsEndOfFileReached()); // known only when a read has hit the end
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSource.IsEndOfFileReached());
}

TEST_F(TSFileSourceTest, EndOfFileWaitsForTheLastPacketToBeTakenFromTheQueue) {
    const TempFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 11), KESTATUS_SUCCESS);
    // All packets are in use before the end is seen.
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    // Without a start the time base is 100 ms behind time 0.
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
    const TempFile file(cTenPackets);
    ASSERT_EQ(Create(file.Path(), false, 0), KESTATUS_SUCCESS);
    mClock.AllowSleeps(5);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    mSource.StopSource();
    EXPECT_THAT(mLog.Messages(), ElementsAre());
}

TEST_F(TSFileSourceTest, OnePacketReachesTheEndWithoutADelivery) {
    const TempFile file(TSStream().PCR(0).PCR(900));
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
    const TempFile file(TSStream().PCR(0).Plain(20).PCR(27000).Plain(2).PCR(28800));
    ASSERT_EQ(Create(file.Path(), false, 8), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    const CapturedMessage dropped{KEERROR, "no PCR within 8 packets, drop the packets"};
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(dropped, dropped,
                            CapturedMessage{KEINFO, "all packets from file delivered, stop thread"}));
    // Twice seven packets are lost; the first one, six others and the PCR make the segment: 300 ms in 8.
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

// Two packets a pass: the hundred are used up in the fiftieth one.
TEST_F(TSFileSourceTest, AShortLoopIsReadAheadAsFarAsThePacketsGo) {
    const TempFile file(TSStream().PCR(0).Plain().PCR(900));
    ASSERT_EQ(Create(file.Path(), true, 100), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.FillDeliverQueue(), KESTATUS_SUCCESS);
    EXPECT_EQ(mLog.Count(KEINFO, "rewind done"), 49u);
    EXPECT_EQ(mLog.Messages().size(), 49u);
    EXPECT_EQ(mSource.DeliverPackets(TSPacketTimePoint::max()), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.mDeliveries.size(), 98u);
    EXPECT_FALSE(mSource.IsEndOfFileReached());
    mSource.StartSource(); // its worker gives the last packets back
    mSource.StopSource();
}

TEST_F(TSFileSourceTest, ASegmentThatFillsThePoolIsNotDropped) {
    const TempFile file(cTenPackets);
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

// A pipe that the test writes into.
class TestPipe {
public:
    TestPipe() : mPath(testing::TempDir() + "flowlane-pipe-" + std::to_string(getpid())) {
        EXPECT_EQ(mkfifo(mPath.c_str(), 0600), 0);
        mWriter = open(mPath.c_str(), O_RDWR); // does not wait for a reader
        EXPECT_GE(mWriter, 0);
    }
    ~TestPipe() {
        Close();
        unlink(mPath.c_str());
    }
    TestPipe(const TestPipe&) = delete;
    TestPipe& operator=(const TestPipe&) = delete;

    const char* Path() const { return mPath.c_str(); }
    void Write(const std::vector<std::uint8_t>& bytes) const {
        EXPECT_EQ(write(mWriter, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // The end of the file for its reader.
    void Close() {
        if (mWriter >= 0) {
            close(mWriter);
            mWriter = -1;
        }
    }

private:
    std::string mPath;
    int mWriter = -1;
};

} // namespace

// The packets are timed from the moment at which the first reference was read, not from the start.
TEST_F(TSFileSourceTest, TheTimeBaseIsTheClockWhenTheFirstPCRIsRead) {
    TestPipe pipe;
    ASSERT_EQ(Create(pipe.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mClock.Sleep(70);
    pipe.Write(TSStream().PCR(0).Bad().Bytes());
    ASSERT_TRUE(WaitUntil([&] { return mLog.Count(KEWARN, "ignore invalid TS packet") == 1; }));
    mClock.Sleep(30);
    pipe.Write(TSStream().Plain(2).PCR(900).Bytes());
    pipe.Close();
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    ASSERT_EQ(mSink.mDeliveries.size(), 3u);
    EXPECT_EQ(mSink.mDeliveries.front().deliverTime, cStart + 570 * cMs);
}

TEST_F(TSFileSourceTest, APipeThatStaysSilentIsWaitedForAndStaysStoppable) {
    const TestPipe pipe;
    TSFileSource source; // in real time
    ASSERT_EQ(source.CreateTSFileSource(pipe.Path(), mSink, false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(source.IsEndOfFileReached());
    source.StopSource();
    EXPECT_EQ(source.FailureStatus(), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), ElementsAre());
}

// However the writer cuts it.
TEST_F(TSFileSourceTest, AllPacketsOfAPipeArePlayed) {
    TestPipe pipe;
    ASSERT_EQ(Create(pipe.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    const std::vector<std::uint8_t> bytes = cTenPackets.Bytes();
    for (std::size_t start = 0; start < bytes.size(); start += 150) {
        const std::size_t end = std::min(start + 150, bytes.size());
        pipe.Write({bytes.begin() + static_cast<std::ptrdiff_t>(start),
                    bytes.begin() + static_cast<std::ptrdiff_t>(end)});
        std::this_thread::sleep_for(std::chrono::milliseconds(start % 4 == 0 ? 15 : 0));
    }
    pipe.Close();
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_THAT(Ordinals(), ElementsAre(0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u));
    EXPECT_TRUE(mSource.IsEndOfFileReached());
}

// A pipe that holds a part of a packet; reading the rest waits, and a signal makes the read fail.
TEST(TSFileSourceFailureTest, AStartThatFailsGivesThePacketsBack) {
    const TestPipe pipe;
    pipe.Write(TSStream().PCR(0).Plain(3).PCR(900).Plain(2).PartialPacket(100).Bytes());
    struct sigaction action {};
    struct sigaction oldAction {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &oldAction), 0);

    VirtualClock clock;
    RecordingSink sink(clock);
    LogCapture log;
    {
        TSFileSource source(clock);
        ASSERT_EQ(source.CreateTSFileSource(pipe.Path(), sink, false, 100), KESTATUS_SUCCESS);
        std::atomic<bool> isOver{false};
        std::thread interrupter([&isOver, reader = pthread_self()] {
            while (!isOver.load()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                pthread_kill(reader, SIGUSR1);
            }
        });
        EXPECT_EQ(source.StartSource(), KESTATUS_READ_FILE_FAILED);
        isOver.store(true);
        interrupter.join();
        EXPECT_EQ(source.DeliverPackets(TSPacketTimePoint::max()), KESTATUS_SUCCESS);
    }
    EXPECT_TRUE(sink.mDeliveries.empty());
    // No word of packets that were not given back.
    EXPECT_THAT(
        log.Messages(),
        ElementsAre(
            CapturedMessage{KEERROR, "ReadFromFile failed"},
            CapturedMessage{KEERROR, "FillDeliverQueue failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED)"}));
    sigaction(SIGUSR1, &oldAction, nullptr);
}

// Every packet that was delivered until then, and whether the batch of the failing one was ended.
TEST(TSFileSourceFailureTest, AFailingSinkStopsTheWorker) {
    struct Case {
        unsigned failingDeliver;
        unsigned failingSend;
        KESTATUS status;
        std::size_t delivered;
        std::size_t batches;
        std::vector<const char*> messages;
    };
    const Case cases[] = {
        {1,
         0,
         KESTATUS_TIMEOUT,
         0,
         0,
         {"DeliverTSPacket failed, st=0xe0000003(KESTATUS_TIMEOUT)",
          "DeliverPackets failed, st=0xe0000003(KESTATUS_TIMEOUT), stop thread"}},
        {5,
         0,
         KESTATUS_TIMEOUT,
         4,
         3,
         {"DeliverTSPacket failed, st=0xe0000003(KESTATUS_TIMEOUT)",
          "DeliverPackets failed, st=0xe0000003(KESTATUS_TIMEOUT), stop thread"}},
        {7,
         0,
         KESTATUS_NO_DATA,
         6,
         5,
         {"DeliverTSPacket failed, st=0xe0000024(KESTATUS_NO_DATA)",
          "DeliverPackets failed, st=0xe0000024(KESTATUS_NO_DATA), stop thread"}},
        {0,
         1,
         KESTATUS_TIMEOUT,
         1,
         1,
         {"SendDeliveredPackets failed, st=0xe0000003(KESTATUS_TIMEOUT)",
          "DeliverPackets failed, st=0xe0000003(KESTATUS_TIMEOUT), stop thread"}},
        {0,
         4,
         KESTATUS_NO_DATA,
         5,
         4,
         {"SendDeliveredPackets failed, st=0xe0000024(KESTATUS_NO_DATA)",
          "DeliverPackets failed, st=0xe0000024(KESTATUS_NO_DATA), stop thread"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "deliver " << c.failingDeliver << " send " << c.failingSend);
        // A packet each 7.5 ms: the wake-ups from 500 ms on have 1, 1, 1, 2, 1, 1... of them.
        const TempFile file(TSStream().PCR(0).Plain(10).PCR(8100));
        VirtualClock clock;
        RecordingSink sink(clock);
        sink.mFailingDeliver = c.failingDeliver;
        sink.mFailingSend = c.failingSend;
        sink.mStatus = c.status;
        LogCapture log;
        {
            TSFileSource source(clock);
            ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 100), KESTATUS_SUCCESS);
            ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
            ASSERT_TRUE(WaitUntil([&] { return log.CountContaining(KEERROR, "stop thread") != 0; },
                                  [&] { return log.Messages(); }));
            source.StopSource();
            EXPECT_EQ(source.QuerryStatistics().infTsPacketsDelivered, c.delivered);
        }
        EXPECT_EQ(sink.mDeliveries.size(), c.delivered);
        EXPECT_EQ(sink.mBatches.size(), c.batches);
        EXPECT_THAT(log.Messages(), ElementsAre(CapturedMessage{KEERROR, c.messages[0]},
                                                CapturedMessage{KEERROR, c.messages[1]}));
    }
}
