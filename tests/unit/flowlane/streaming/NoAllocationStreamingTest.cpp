// A whole run from file to device allocates nothing once it has started: not per packet, not per frame, not
// for a message.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>

#include "AllocationGate.h"
#include "CountedAllocations.h"
#include "FakeDevice.h"
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

// Steady segments, a gap that is dropped, a bad packet and a jump back, so that messages appear too.
TSStream EventfulStream() {
    TSStream stream;
    for (unsigned i = 0; i < 100; ++i) {
        stream.PCR(i * 1800).Plain(40);
    }
    return stream.PCR(500000).Bad().Plain(10).PCR(501800).Plain(10).PCR(501000).Plain(10).PCR(502000).Plain(
        3);
}

void PlayAndCount(bool rewindFile, std::size_t& allocations, std::uint64_t& packets, unsigned& messages,
                  AvtpSink::Statistics& frames) {
    FakeDevice& fake = FakeDevice::Instance();
    fake.Reset();
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    ASSERT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    QuaysideDevice device;
    ASSERT_EQ(device.OpenRawTxDevice(enumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    fake.SetRecording(false);

    const TempFile file(EventfulStream());
    CountingTarget target;
    GatedClock clock(2000); // 20 s
    AvtpSink sink;
    ASSERT_EQ(sink.CreateAvtpSink(device, {{1, 2, 3, 4, 5, 6}}, 7, 8, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(sink.StartSink(), KESTATUS_SUCCESS);
    TSFileSource source(clock);
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
    const std::size_t after = AllocationCount();
    allocations = after - before;
    packets = source.QuerryStatistics().infTsPacketsDelivered;
    messages = target.mMessages.load();
    frames = sink.QuerryStatistics();
}

} // namespace

TEST(NoAllocationTest, TheCountCounts) {
    const std::size_t before = AllocationCount();
    const auto one = std::make_unique<TSPacket>();
    EXPECT_EQ(AllocationCount(), before + 1);
    void* volatile memory = std::malloc(10);
    EXPECT_EQ(AllocationCount(), before + 2);
    std::free(memory);
}

// Lack of memory is a status like any other.
TEST(NoAllocationTest, WithoutMemoryForThePacketsTheSourceIsNotCreated) {
    FLOWLANE_NEEDS_OPERATOR_NEW();
    const TempFile file(EventfulStream());
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

TEST(NoAllocationTest, PlayingAFileAllocatesNothing) {
    std::size_t allocations = 1;
    std::uint64_t packets = 0;
    unsigned messages = 0;
    AvtpSink::Statistics frames;
    ASSERT_NO_FATAL_FAILURE(PlayAndCount(false, allocations, packets, messages, frames));
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(packets, 99u * 41u + 3u * 11u); // but for the segment before the gap and the tail
    EXPECT_GE(frames.infAvtpPacketsSent, packets / 7);
    EXPECT_GE(messages, 2u);
}

TEST(NoAllocationTest, LoopingAllocatesNothing) {
    std::size_t allocations = 1;
    std::uint64_t packets = 0;
    unsigned messages = 0;
    AvtpSink::Statistics frames;
    ASSERT_NO_FATAL_FAILURE(PlayAndCount(true, allocations, packets, messages, frames));
    EXPECT_EQ(allocations, 0u);
    EXPECT_GE(packets, 4u * 4000u);
    EXPECT_GE(frames.infAvtpPacketsSent, packets / 7);
    EXPECT_GE(messages, 8u); // two at each pass: the gap and the bad packet, and each rewind
}
