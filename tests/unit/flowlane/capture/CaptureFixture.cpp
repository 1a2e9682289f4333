#include "CaptureFixture.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "PcapNgEnhPacketBlock.h"
#include "PcapNgFile.h"
#include "PcapNgSectionHeaderBlock.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "device/RawReceiveHeader.h"

namespace testsupport {

using namespace flowlane;
using namespace kestrelon;

namespace {

CapturedPacket CopyOf(const PcapNgEnhPacketBlock& block) {
    CapturedPacket packet;
    packet.data = Contents(block.PacketData());
    packet.timestamp = block.Timestamp();
    packet.originalLength = block.OriginalLength();
    packet.interfaceID = block.InterfaceID();
    if (const PcapNgOption* const option = block.LookupOptionByCode(4)) {
        std::uint64_t count = 0;
        EXPECT_EQ(option->GetNumericValue(count), KESTATUS_SUCCESS);
        packet.dropCount = count;
    }
    return packet;
}

} // namespace

CapturedFile ReadCapturedFile(const std::string& path) {
    CapturedFile contents;
    PcapNgFile file;
    EXPECT_EQ(file.OpenForRead(path.c_str()), KESTATUS_SUCCESS) << path;
    KEBufferBlock block;
    const auto view = [&] { return KEConstBufferReference{block.mBuffer, block.mDataLength}; };
    PcapNgSectionHeaderBlock section;
    EXPECT_EQ(file.ReadNextBlock(block), KESTATUS_SUCCESS);
    EXPECT_EQ(section.InitSectionHeaderBlock(view()), KESTATUS_SUCCESS);
    EXPECT_EQ(file.ReadNextBlock(block), KESTATUS_SUCCESS);
    EXPECT_EQ(contents.interface.InitInterfaceDescBlock(view()), KESTATUS_SUCCESS);
    KESTATUS st = file.ReadNextBlock(block);
    for (; st == KESTATUS_SUCCESS; st = file.ReadNextBlock(block)) {
        PcapNgEnhPacketBlock packet;
        EXPECT_EQ(packet.InitEnhPacketBlock(view()), KESTATUS_SUCCESS);
        contents.packets.push_back(CopyOf(packet));
    }
    EXPECT_EQ(st, KESTATUS_NO_DATA);
    return contents;
}

ByteList ReceivedFrame(std::uint32_t sequenceNumber, std::size_t length) {
    ByteList bytes(rawheader::cSize + length, static_cast<unsigned char>(sequenceNumber));
    KEStoreNative<std::uint64_t>(bytes.data(), cReceiveSeconds);
    KEStoreNative<std::uint32_t>(bytes.data() + 8, sequenceNumber);
    KEStoreNative<std::uint32_t>(bytes.data() + 12, sequenceNumber);
    return bytes;
}

CaptureTest::CaptureTest() {
    OpenToReceive(QBXRawHeaderType_2);
    EXPECT_EQ(mDevice.EnableRawRx(), KESTATUS_SUCCESS);
}

bool CaptureTest::Take(const ByteList& received, QBXRawFrameType type) {
    const std::uint64_t underflows = Statistics().errPoolUnderflow;
    mFake.QueueReceivedFrame(received, type);
    EXPECT_EQ(mReceiver.TakeFrame(), KESTATUS_SUCCESS);
    return Statistics().errPoolUnderflow == underflows;
}

void CaptureTest::WaitUntilWritten(std::uint64_t count) const {
    const auto written = [&] { return Statistics().infFramesWritten; };
    ASSERT_TRUE(WaitUntil([&] { return written() >= count; }, written));
    ASSERT_EQ(written(), count);
}

KESTATUS CaptureTest::WaitForThreadStatus() const {
    EXPECT_TRUE(WaitUntil([&] { return mWriter.ThreadStatus() != KESTATUS_SUCCESS; },
                          [&] { return mLog.Messages(); }));
    return mWriter.ThreadStatus();
}

PcapNgFileWriter::Statistics CaptureTest::Statistics() const {
    PcapNgFileWriter::Statistics stats;
    mWriter.QuerryStatistics(stats);
    return stats;
}

std::string CaptureTest::NameOf(unsigned number) const {
    return mBase + KEStdStringFormat("_{:05}", number) + ".pcapng";
}

std::vector<std::string> CaptureTest::FilesOnDisk() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(mFolder.Path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace testsupport
