// Capturing and replaying allocate nothing once they run.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>

#include "AllocationGate.h"
#include "ByteList.h"
#include "CountedAllocations.h"
#include "FakeDeviceTest.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "capture/FrameReceiver.h"
#include "capture/PcapNgFileReader.h"
#include "capture/PcapNgFileWriter.h"
#include "device/RawReceiveHeader.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

class NoAllocationCaptureTest : public FakeDeviceTest {
protected:
    TemporaryFolder mFolder;
};

// A received frame: its receive header, and length bytes of Ethernet frame.
FakeFrame ReceivedFrame(std::uint32_t sequenceNumber, std::size_t length) {
    FakeFrame frame(rawheader::cSize + length, 7);
    KEStoreNative<std::uint32_t>(frame.data() + rawheader::cSequenceNumberOffset, sequenceNumber);
    return frame;
}

TEST_F(NoAllocationCaptureTest, Capturing) {
    constexpr unsigned cFrames = 20000;
    constexpr unsigned cFrameSize = 1538;
    OpenToReceive(QBXRawHeaderType_2);
    ASSERT_EQ(mDevice.EnableRawRx(), KESTATUS_SUCCESS);
    for (unsigned i = 0; i <= cFrames; ++i) {
        // Every third number is missing, which the packet behind the gap tells.
        mFake.QueueReceivedFrame(ReceivedFrame(i * 3 / 2, 60 + i % 1400));
    }
    mFake.SetRecording(false);
    PcapNgFileWriter writer;
    ASSERT_EQ(writer.StartFileWriter((mFolder / "file").c_str(), mDevice, cFrames + 1, cFrameSize, 0),
              KESTATUS_SUCCESS);
    FrameReceiver receiver(mDevice, writer, cFrameSize);
    PcapNgFileWriter::Statistics stats;
    const auto written = [&] {
        writer.QuerryStatistics(stats);
        return stats.infFramesWritten;
    };
    ASSERT_EQ(receiver.TakeFrame(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return written() == 1; }, written)); // the thread is running
    const std::size_t before = AllocationCount();
    for (unsigned i = 0; i < cFrames; ++i) {
        EXPECT_EQ(receiver.TakeFrame(), KESTATUS_SUCCESS);
    }
    writer.StopFileWriter();
    EXPECT_EQ(AllocationCount() - before, 0u);
    EXPECT_EQ(written(), cFrames + 1);
    EXPECT_EQ(stats.errMissingFrames, cFrames / 2);
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
