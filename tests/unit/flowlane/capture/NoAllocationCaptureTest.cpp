// Forwarding, capturing and replaying allocate nothing once they run.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>
#include <utility>

#include "AllocationGate.h"
#include "ByteList.h"
#include "CountedAllocations.h"
#include "FakeDeviceTest.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "capture/PcapNgFileReader.h"
#include "capture/PcapNgFileWriter.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/AvtpSource.h"
#include "streaming/RtpUdpSink.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

class NoAllocationCaptureTest : public FakeDeviceTest {
protected:
    TemporaryFolder mFolder;
};

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

TEST_F(NoAllocationCaptureTest, Forwarding) {
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

TEST_F(NoAllocationCaptureTest, Capturing) {
    OpenToReceive(QBXRawHeaderType_2);
    PcapNgFileWriter writer;
    ASSERT_EQ(writer.StartFileWriter((mFolder / "file").c_str(), mDevice, 100, 1538, 0), KESTATUS_SUCCESS);
    std::uint32_t number = 0;
    std::uint64_t missing = 0;
    const auto take = [&] {
        RawFrame* frame = nullptr;
        while (!(frame = writer.GetRawFrame())) {
            std::this_thread::yield();
        }
        std::memset(frame->mFrameBuffer.mData, 0, 16);
        KEStoreNative<std::uint32_t>(frame->mFrameBuffer.mData + 12, number++);
        if (number % 3 == 0) {
            ++number; // a frame is missing: the next packet tells it
            ++missing;
        }
        frame->mFrameSize = 16 + 60 + number % 1400;
        frame->mFrameType = QBXRawFrameType_Data;
        EXPECT_TRUE(writer.CheckRawFrame(frame->mFrameType, std::as_const(*frame).FrameData()));
        EXPECT_EQ(writer.WriteRawFrame(frame), KESTATUS_SUCCESS);
    };
    take(); // the thread is running then
    PcapNgFileWriter::Statistics stats;
    ASSERT_TRUE(WaitUntil([&] {
        writer.QuerryStatistics(stats);
        return stats.infFramesWritten == 1;
    }));
    const std::size_t before = AllocationCount();
    for (unsigned i = 0; i < 20000; ++i) {
        take();
    }
    writer.StopFileWriter();
    EXPECT_EQ(AllocationCount() - before, 0u);
    writer.QuerryStatistics(stats);
    EXPECT_EQ(stats.infFramesWritten, 20001u);
    EXPECT_GT(missing, 6000u);
    EXPECT_GE(stats.errMissingFrames + 1, missing);
}

TEST_F(NoAllocationCaptureTest, Replaying) {
    OpenToSend();
    const ByteList headers = Concat(
        {Block(0x0A0D0D0A, Concat({LE32(0x1A2B3C4D), LE16(1), LE16(0), LE64(~std::uint64_t{0}), LE32(0)})),
         Block(1, Concat({LE16(1), LE16(0), LE32(0)}))});
    std::ofstream file(mFolder / "file.pcapng", std::ios::binary);
    file.write(reinterpret_cast<const char*>(headers.data()), static_cast<std::streamsize>(headers.size()));
    for (unsigned number = 0; number < 2000; ++number) {
        const unsigned length = 60 + number % 1400;
        const ByteList packet =
            Block(6, Concat({LE32(0), LE32(0), LE32(number * 100), LE32(length), LE32(length),
                             ByteList(length, 7), ByteList((4 - length % 4) % 4, 0), LE32(0)}));
        file.write(reinterpret_cast<const char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
    }
    file.close();
    mFake.SetRecording(false);
    GatedClock clock(1000);
    PcapNgFileReader reader(clock);
    ASSERT_EQ(reader.StartFileReader((mFolder / "file").c_str(), 1, mDevice, 50, 1522, true, false, false),
              KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return clock.mGate.IsReached(); }));
    const std::size_t before = AllocationCount();
    clock.mGate.Open();
    ASSERT_TRUE(WaitUntil([&] { return reader.AreAllFramesSent(); }));
    reader.StopFileReader();
    EXPECT_EQ(AllocationCount() - before, 0u);
    PcapNgFileReader::Statistics stats;
    reader.QuerryStatistics(stats);
    EXPECT_EQ(stats.infFramesSent, 2000u);
}

} // namespace
