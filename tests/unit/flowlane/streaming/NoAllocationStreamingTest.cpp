// A run from the file to the device allocates nothing once it has started: not per packet, not per frame and
// not per message.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "AllocationGate.h"
#include "CountedAllocations.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "OperatorNew.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "log/KELogging.h"
#include "streaming/AvtpSink.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSFileSource.h"
#include "streaming/TSStream.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

// Formats every message, keeps none.
class CountingTarget final : public KELogTarget {
public:
    CountingTarget() : KELogTarget("CountingTarget") {
        logger::Global.SetLevel(KEMAXLEVEL);
        EXPECT_EQ(logger::Global.AttachTarget(*this), KESTATUS_SUCCESS);
    }
    ~CountingTarget() override { logger::Global.DetachTarget(*this); }
    void OutputMessage(KELogMessage& message, const KELogger&, const KELogMsgMetaData&) override {
        mCharacters.fetch_add(static_cast<unsigned>(std::char_traits<char>::length(message.Text())));
        mMessages.fetch_add(1);
    }

    std::atomic<unsigned> mMessages{0};
    std::atomic<unsigned> mCharacters{0};
};

// Steady segments, a gap that is dropped, a bad packet and a jump back, so that there are messages too.
TSStream EventfulStream() {
    TSStream stream;
    for (unsigned i = 0; i < 100; ++i) {
        stream.PCR(i * 1800).Plain(40);
    }
    return stream.PCR(500000)
        .Bad()
        .Plain(10)
        .PCR(501800)
        .Plain(10)
        .PCR(501000)
        .Plain(10)
        .PCR(502000)
        .Plain(3)
        .OnePID();
}

class NoAllocationTest : public FakeDeviceTest {
protected:
    void PlayAndCount(bool rewindFile, bool rebaseClock = false);

    std::size_t mAllocations = 0; // from the start of the source to the stop
    std::uint64_t mPackets = 0;
    std::uint64_t mClockBreaks = 0;
    std::uint64_t mFrames = 0;
    unsigned mMessages = 0;
};

void NoAllocationTest::PlayAndCount(bool rewindFile, bool rebaseClock) {
    OpenToSend();
    mFake.SetRecording(false);
    const StreamFile file(EventfulStream());
    CountingTarget target;
    GatedClock clock(2000); // 20 s
    AvtpSink sink;
    ASSERT_EQ(sink.CreateAvtpSink(mDevice, {{1, 2, 3, 4, 5, 6}}, 7, 8, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(sink.StartSink(), KESTATUS_SUCCESS);
    TSFileSource source(clock);
    source.SetRebaseClock(rebaseClock);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, rewindFile, 500), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return clock.mGate.IsReached(); }));
    const std::size_t before = AllocationCount();
    clock.mGate.Open();

    const auto isDone = [&] {
        return rewindFile ? clock.mClock.StoodStill() > 1 : source.IsEndOfFileReached();
    };
    ASSERT_TRUE(WaitUntil(isDone));
    source.StopSource();
    mAllocations = AllocationCount() - before;
    mPackets = source.QuerryStatistics().infTsPacketsDelivered;
    mClockBreaks = source.ClockBreaks().count;
    mFrames = sink.QuerryStatistics().infAvtpPacketsSent;
    mMessages = target.mMessages.load();
}

} // namespace

TEST_F(NoAllocationTest, TheCountCounts) {
    const std::size_t before = AllocationCount();
    const auto one = std::make_unique<TSPacket>();
    EXPECT_EQ(AllocationCount(), before + 1);
    void* volatile memory = std::malloc(10);
    EXPECT_EQ(AllocationCount(), before + 2);
    std::free(memory);
}

// Lack of memory is a status like any other.
TEST_F(NoAllocationTest, WithoutMemoryForThePacketsTheSourceIsNotCreated) {
    FLOWLANE_NEEDS_OPERATOR_NEW();
    const StreamFile file(EventfulStream());
    LogCapture log;
    VirtualClock clock;
    RecordingSink sink(clock);
    TSFileSource source(clock);
    {
        const ScarceMemory scarce(500);
        EXPECT_EQ(source.CreateTSFileSource(file.Path(), sink, false, 1000), KESTATUS_NO_MEMORY);
    }
    EXPECT_EQ(log.Count(KEERROR, "AllocatePool failed, st=0xe0000020(KESTATUS_NO_MEMORY)"), 1u);
    EXPECT_EQ(log.Messages().size(), 1u);
}

TEST_F(NoAllocationTest, PlayingAFileAllocatesNothing) {
    ASSERT_NO_FATAL_FAILURE(PlayAndCount(false));
    EXPECT_EQ(mAllocations, 0u);
    EXPECT_EQ(mPackets, 99u * 41u + 3u * 11u); // without the segment before the gap and the last packets
    EXPECT_GE(mFrames, mPackets / 7);
    EXPECT_GE(mMessages, 2u);
}

TEST_F(NoAllocationTest, LoopingAllocatesNothing) {
    ASSERT_NO_FATAL_FAILURE(PlayAndCount(true));
    EXPECT_EQ(mAllocations, 0u);
    EXPECT_GE(mPackets, 4u * 4000u);
    EXPECT_GE(mFrames, mPackets / 7);
    EXPECT_GE(mMessages, 8u); // two per pass, the gap and the bad packet, and each rewind
}

TEST_F(NoAllocationTest, RebasingTheClockAllocatesNothing) {
    ASSERT_NO_FATAL_FAILURE(PlayAndCount(true, true));
    EXPECT_EQ(mAllocations, 0u);
    EXPECT_GE(mPackets, 4u * 4000u);
    EXPECT_GE(mClockBreaks, 8u); // two per pass
}
