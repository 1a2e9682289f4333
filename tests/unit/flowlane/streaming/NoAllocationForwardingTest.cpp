// Forwarding a stream from the device to UDP allocates nothing once it runs.

#include <gtest/gtest.h>

#include <cstdint>

#include "AllocationGate.h"
#include "CountedAllocations.h"
#include "FakeDeviceTest.h"
#include "WaitUntil.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/AvtpSource.h"
#include "streaming/RtpUdpSink.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

using NoAllocationForwardingTest = FakeDeviceTest;

// Hands on to another sink, but holds the first packet until the test begins to count.
class GatedSink final : public SinkBase {
public:
    explicit GatedSink(SinkBase& sink) : mSink(sink) {}

    KESTATUS StartSink() override { return mSink.StartSink(); }
    void StopSink() override { mSink.StopSink(); }
    KESTATUS DeliverTSPacket(const TSPacket& packet) override {
        mGate.Pass();
        return mSink.DeliverTSPacket(packet);
    }
    KESTATUS SendDeliveredPackets() override { return mSink.SendDeliveredPackets(); }

    AllocationGate mGate;

private:
    SinkBase& mSink;
};

TEST_F(NoAllocationForwardingTest, Forwarding) {
    OpenToReceive();
    constexpr unsigned cFrames = 2000;
    for (unsigned number = 0; number < cFrames; ++number) {
        AvtpFrameSpec spec;
        spec.sequenceNumber = static_cast<std::uint8_t>(number);
        spec.dataBlockCount = static_cast<std::uint8_t>(number * 56);
        spec.firstPacket = number * 7;
        spec.blocks = 56;
        mFake.QueueReceivedFrame(AvtpFrame(spec));
    }
    mFake.SetRecording(false);
    RtpUdpSink rtp;
    // Nobody listens: sends that fail, and what is said of them, allocate nothing either.
    ASSERT_EQ(rtp.CreateRtpUdpSink("127.0.0.1", 50998, 0, true), KESTATUS_SUCCESS);
    GatedSink sink(rtp);
    ASSERT_EQ(sink.StartSink(), KESTATUS_SUCCESS);
    AvtpSource source;
    ASSERT_EQ(source.CreateAvtpSource(mDevice, sink, {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, 0, false),
              KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return sink.mGate.IsReached(); }));
    const std::size_t before = AllocationCount();
    sink.mGate.Open();
    ASSERT_TRUE(WaitUntil([&] { return source.QuerryStatistics().infTsPacketsDelivered == 7 * cFrames; }));
    source.StopSource();
    EXPECT_EQ(AllocationCount() - before, 0u);
    EXPECT_GT(rtp.QuerryStatistics().infUdpPacketsSent, 0u);
}

} // namespace
