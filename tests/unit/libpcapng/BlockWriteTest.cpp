// The bytes that each kind of block is written as.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "ByteList.h"
#include "LogExpect.h"
#include "PcapNgEnhPacketBlock.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgSectionHeaderBlock.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

PcapNgOption Option(std::uint16_t code, const ByteList& value) {
    PcapNgOption option;
    EXPECT_EQ(option.CreateOption(code, View(value)), KESTATUS_SUCCESS);
    return option;
}

class BlockWriteTest : public testing::Test {
protected:
    static ByteList Written(const PcapNgBlockBase& block) {
        KEBufferBlock buffer;
        EXPECT_EQ(block.AddToBuffer(buffer), KESTATUS_SUCCESS);
        EXPECT_EQ(buffer.mBufferSize, buffer.mDataLength); // it grew to exactly what was needed
        EXPECT_EQ(block.TotalBlockLength(), buffer.mDataLength);
        return Contents(buffer);
    }

    LogCapture mLog;
};

const ByteList cSectionHeader = Concat({LE32(0x0A0D0D0A), LE32(32), LE32(0x1A2B3C4D), LE16(1), LE16(0),
                                        LE64(0xFFFFFFFFFFFFFFFF), LE32(0), LE32(32)});

TEST_F(BlockWriteTest, SectionHeader) {
    PcapNgSectionHeaderBlock block;
    EXPECT_EQ(block.BlockType(), 0x0A0D0D0Au);
    EXPECT_EQ(block.MajorVersion(), 0);
    EXPECT_EQ(block.MinorVersion(), 0);
    EXPECT_EQ(block.SectionLength(), 0u);
    block.InitSectionHeaderBlock();
    EXPECT_EQ(block.MajorVersion(), 1);
    EXPECT_EQ(block.MinorVersion(), 0);
    EXPECT_EQ(block.BlockLength(), 32u);
    EXPECT_EQ(Written(block), cSectionHeader);
}

TEST_F(BlockWriteTest, SectionHeaderWithAnOption) {
    PcapNgSectionHeaderBlock block;
    block.InitSectionHeaderBlock();
    block.AddOption(Option(4, Text("me")));
    EXPECT_EQ(Written(block),
              Concat({LE32(0x0A0D0D0A), LE32(40), LE32(0x1A2B3C4D), LE16(1), LE16(0),
                      LE64(0xFFFFFFFFFFFFFFFF), LE16(4), LE16(2), Text("me"), LE16(0), LE32(0), LE32(40)}));
    block.InitSectionHeaderBlock(); // without options again
    EXPECT_EQ(Written(block), cSectionHeader);
}

TEST_F(BlockWriteTest, InterfaceDescription) {
    PcapNgInterfaceDescBlock block;
    EXPECT_EQ(block.BlockType(), 1u);
    EXPECT_EQ(block.LinkType(), 0);
    EXPECT_EQ(block.SnapLen(), 0u);
    block.InitInterfaceDescBlock(1, 0);
    EXPECT_EQ(block.BlockLength(), 24u);
    EXPECT_EQ(Written(block), Concat({LE32(1), LE32(24), LE16(1), LE16(0), LE32(0), LE32(0), LE32(24)}));
    block.InitInterfaceDescBlock(0x1234, 0x01020304);
    EXPECT_EQ(Written(block),
              Concat({LE32(1), LE32(24), LE16(0x1234), LE16(0), LE32(0x01020304), LE32(0), LE32(24)}));
}

TEST_F(BlockWriteTest, InterfaceDescriptionWithOptionsInTheirOrder) {
    PcapNgInterfaceDescBlock block;
    block.InitInterfaceDescBlock(1, 0);
    block.AddOption(Option(2, Text("lane-1")));
    block.AddOption(Option(9, {9}));
    block.AddOption(Option(6, {2, 0x51, 0x42, 0x58, 0, 1}));
    EXPECT_EQ(block.TotalOptionsLength(), 4u + 12 + 8 + 12);
    EXPECT_EQ(Written(block), Concat({LE32(1),
                                      LE32(56),
                                      LE16(1),
                                      LE16(0),
                                      LE32(0),
                                      LE16(2),
                                      LE16(6),
                                      Text("lane-1"),
                                      LE16(0),
                                      LE16(9),
                                      LE16(1),
                                      {9, 0, 0, 0},
                                      LE16(6),
                                      LE16(6),
                                      {2, 0x51, 0x42, 0x58, 0, 1},
                                      LE16(0),
                                      LE32(0),
                                      LE32(56)}));
    block.InitInterfaceDescBlock(1, 0);
    EXPECT_EQ(Written(block).size(), 24u);
}

TEST_F(BlockWriteTest, PacketOfEveryPadding) {
    for (const unsigned length : {0u, 1u, 2u, 3u, 4u, 60u, 61u, 1514u}) {
        SCOPED_TRACE(length);
        const ByteList data = Counting(length);
        PcapNgEnhPacketBlock block;
        ASSERT_EQ(block.InitEnhPacketBlock(View(data), 0x0102030405060708, 7, 2000), KESTATUS_SUCCESS);
        EXPECT_EQ(block.BlockLength(), 36u + length);
        const unsigned padding = (4 - length % 4) % 4;
        const unsigned total = 36 + length + padding;
        EXPECT_EQ(Written(block),
                  Concat({LE32(6), LE32(total), LE32(7), LE32(0x01020304), LE32(0x05060708), LE32(length),
                          LE32(2000), data, ByteList(padding, 0), LE32(0), LE32(total)}));
    }
}

TEST_F(BlockWriteTest, PacketOf61BytesTakes100) {
    const ByteList data(61, 0xEE);
    PcapNgEnhPacketBlock block;
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 1, 0, 61), KESTATUS_SUCCESS);
    EXPECT_EQ(block.BlockLength(), 97u);
    EXPECT_EQ(block.TotalBlockLength(), 100u);
    EXPECT_EQ(Written(block).size(), 100u);
}

TEST_F(BlockWriteTest, PacketWithOptions) {
    const ByteList data = {1, 2, 3, 4, 5};
    PcapNgEnhPacketBlock block;
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 0, 0, 5), KESTATUS_SUCCESS);
    PcapNgOption drops;
    ASSERT_EQ(drops.CreateNumericOption<std::uint64_t>(4, 2), KESTATUS_SUCCESS);
    block.AddOption(std::move(drops));
    const ByteList expected = Concat({LE32(6),
                                      LE32(56),
                                      LE32(0),
                                      LE64(0),
                                      LE32(5),
                                      LE32(5),
                                      data,
                                      {0, 0, 0},
                                      LE16(4),
                                      LE16(8),
                                      LE64(2),
                                      LE32(0),
                                      LE32(56)});
    EXPECT_EQ(Written(block), expected);
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 0, 0, 5), KESTATUS_SUCCESS); // keeps the options
    EXPECT_EQ(Written(block), expected);
    block.RemoveAllOptions();
    EXPECT_EQ(Written(block).size(), 44u);
}

TEST_F(BlockWriteTest, PacketFields) {
    PcapNgEnhPacketBlock block;
    EXPECT_EQ(block.BlockType(), 6u);
    EXPECT_EQ(block.Timestamp(), 0u);
    EXPECT_EQ(block.PacketData().mLength, 0u);
    EXPECT_FALSE(block.IsPacketDataTruncated());
    const ByteList data = Counting(8);
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 5, 3), KESTATUS_SUCCESS);
    EXPECT_EQ(block.OriginalLength(), 8u);
    EXPECT_EQ(block.InterfaceID(), 3u);
    EXPECT_FALSE(block.IsPacketDataTruncated());
    EXPECT_EQ(block.PacketData().mData, data.data()); // not copied
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 5, 3, 9), KESTATUS_SUCCESS);
    EXPECT_TRUE(block.IsPacketDataTruncated());
    ASSERT_EQ(block.InitEnhPacketBlock(View(data), 5, 3, 7), KESTATUS_SUCCESS);
    EXPECT_FALSE(block.IsPacketDataTruncated());
}

TEST_F(BlockWriteTest, LongerPacketsAreRefused) {
    const unsigned char byte = 0;
    PcapNgEnhPacketBlock block;
    ASSERT_EQ(block.InitEnhPacketBlock({&byte, 1}, 5, 3, 1), KESTATUS_SUCCESS);
    EXPECT_EQ(block.InitEnhPacketBlock({&byte, 0x100000000}, 6, 4, 2), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(block.PacketData().mLength, 1u);
    EXPECT_EQ(block.Timestamp(), 5u);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "InitEnhPacketBlock",
                                        "packet length 4294967296 exceeds max. 4294967295")));
}

TEST_F(BlockWriteTest, LongerBlocksAreRefused) {
    const unsigned char byte = 0;
    PcapNgEnhPacketBlock block;
    KEBufferBlock buffer;
    // The length of the block counts rounded.
    for (const std::uint64_t length : {std::uint64_t{0xFFFFFFFF}, std::uint64_t{0xFFFFFFD9}}) {
        mLog.Clear();
        ASSERT_EQ(block.InitEnhPacketBlock({&byte, length}, 0, 0, 0), KESTATUS_SUCCESS);
        EXPECT_EQ(block.AddToBuffer(buffer), KESTATUS_NOT_POSSIBLE);
        const std::string total = std::to_string((length + 36 + 3) / 4 * 4);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(IsMessageOf(KEERROR, "AddToBuffer",
                                            "total lnegth " + total + " exceeds max. 4294967295")));
    }
    EXPECT_EQ(buffer.mDataLength, 0u);
    EXPECT_EQ(buffer.mBufferSize, 0u);
}

TEST_F(BlockWriteTest, BlocksAreAppended) {
    KEBufferBlock buffer(1000);
    PcapNgSectionHeaderBlock section;
    section.InitSectionHeaderBlock();
    PcapNgInterfaceDescBlock interface;
    interface.InitInterfaceDescBlock(1, 0);
    ASSERT_EQ(section.AddToBuffer(buffer), KESTATUS_SUCCESS);
    ASSERT_EQ(interface.AddToBuffer(buffer), KESTATUS_SUCCESS);
    EXPECT_EQ(buffer.mDataLength, 56u);
    EXPECT_EQ(buffer.mBufferSize, 1000u);
    const ByteList all = Contents(buffer);
    EXPECT_EQ(ByteList(all.begin(), all.begin() + 32), cSectionHeader);
    const ByteList data(2000, 5);
    PcapNgEnhPacketBlock packet;
    ASSERT_EQ(packet.InitEnhPacketBlock(View(data), 0, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(packet.AddToBuffer(buffer), KESTATUS_SUCCESS);
    EXPECT_EQ(buffer.mBufferSize, 56u + 2036);
    const ByteList more = Contents(buffer);
    EXPECT_EQ(ByteList(more.begin(), more.begin() + 56), all);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

} // namespace
