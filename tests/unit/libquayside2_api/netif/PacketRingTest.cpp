// Reading the receive ring of a packet socket, from memory laid out as the kernel does it.
#include <gtest/gtest.h>

#include <linux/if_packet.h>

#include <cstring>
#include <vector>

#include "netif/PacketRing.h"

namespace {

using quayside2::netif::PacketRing;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t cBlockBytes = 4096;
constexpr std::uint32_t cBlockCount = 3;
constexpr std::uint32_t cFirstFrame = 48;
constexpr std::uint32_t cFrameDistance = 256;
constexpr std::uint16_t cMacOffset = 82;

const Bytes cFrame = {1, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16, 0x88, 0xB5, 21, 22, 23};

Bytes WithTag(const Bytes& tag) {
    Bytes frame = cFrame;
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

class PacketRingTest : public testing::Test {
protected:
    PacketRingTest()
        : mMemory(std::size_t{cBlockBytes} * cBlockCount), mRing(mMemory.data(), cBlockBytes, cBlockCount) {}

    tpacket_hdr_v1& Block(std::uint32_t block) {
        return reinterpret_cast<tpacket_block_desc*>(mMemory.data() + std::size_t{block} * cBlockBytes)
            ->hdr.bh1;
    }
    tpacket3_hdr& Header(std::uint32_t block, std::uint32_t number) {
        return *reinterpret_cast<tpacket3_hdr*>(mMemory.data() + std::size_t{block} * cBlockBytes +
                                                cFirstFrame + number * cFrameDistance);
    }
    // Adds a frame to a block that the reader does not have yet.
    tpacket3_hdr& Add(std::uint32_t block, const Bytes& data = cFrame) {
        tpacket3_hdr& header = Header(block, Block(block).num_pkts);
        header = {};
        header.tp_next_offset = cFrameDistance;
        header.tp_mac = cMacOffset;
        header.tp_snaplen = header.tp_len = static_cast<std::uint32_t>(data.size());
        std::memcpy(reinterpret_cast<std::uint8_t*>(&header) + cMacOffset, data.data(), data.size());
        ++Block(block).num_pkts;
        Block(block).offset_to_first_pkt = cFirstFrame;
        return header;
    }
    void HandOver(std::uint32_t block, std::uint32_t more = 0) {
        Block(block).block_status = TP_STATUS_USER | more;
    }
    bool IsHandedBack(std::uint32_t block) { return Block(block).block_status == TP_STATUS_KERNEL; }

    // The next frame as it was on the wire; empty when there is none.
    Bytes Take() {
        PacketRing::Frame frame;
        if (!mRing.Peek(frame)) {
            return {};
        }
        Bytes bytes(frame.WireBytes());
        frame.CopyTo(bytes.data());
        mRing.Pop();
        return bytes;
    }

    Bytes mMemory;
    PacketRing mRing;
};

TEST_F(PacketRingTest, NothingIsReadyBeforeABlockIsHandedOver) {
    PacketRing::Frame frame;
    EXPECT_FALSE(mRing.HasFrame());
    Add(0);
    EXPECT_FALSE(mRing.HasFrame());
    EXPECT_FALSE(mRing.Peek(frame));
    mRing.Pop();
    HandOver(0);
    EXPECT_TRUE(mRing.HasFrame());
    EXPECT_EQ(Take(), cFrame);
    EXPECT_FALSE(mRing.HasFrame());
}

TEST_F(PacketRingTest, TimeOfTheKernel) {
    tpacket3_hdr& header = Add(0);
    header.tp_sec = 0xFFFFFFFE;
    header.tp_nsec = 999'999'999;
    HandOver(0);
    PacketRing::Frame frame;
    ASSERT_TRUE(mRing.Peek(frame));
    EXPECT_EQ(frame.seconds, 0xFFFFFFFEu);
    EXPECT_EQ(frame.nanoseconds, 999'999'999u);
}

struct TagRow {
    const char* name;
    std::uint32_t status;
    std::uint16_t type;
    std::uint16_t control;
    Bytes tag; // what stands behind the addresses afterwards
};

class PacketRingTagTest : public PacketRingTest, public testing::WithParamInterface<TagRow> {};

TEST_P(PacketRingTagTest, TheTagIsPutBack) {
    const TagRow& row = GetParam();
    tpacket3_hdr& header = Add(0);
    header.tp_status = row.status;
    header.hv1.tp_vlan_tpid = row.type;
    header.hv1.tp_vlan_tci = row.control;
    HandOver(0);
    EXPECT_EQ(Take(), WithTag(row.tag));
}

constexpr std::uint32_t cTagged = TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID;

INSTANTIATE_TEST_SUITE_P(
    Tags, PacketRingTagTest,
    testing::Values(TagRow{"None", 0, 0x8100, 5, {}},
                    TagRow{"Customer", cTagged, 0x8100, 0x6123, {0x81, 0x00, 0x61, 0x23}},
                    TagRow{"ControlZero", cTagged, 0x8100, 0, {0x81, 0x00, 0, 0}},
                    TagRow{"Service", cTagged, 0x88A8, 0xFFFF, {0x88, 0xA8, 0xFF, 0xFF}},
                    TagRow{"TypeNotTold", TP_STATUS_VLAN_VALID, 0, 7, {0x81, 0x00, 0, 7}},
                    TagRow{"OtherStatus",
                           cTagged | TP_STATUS_CSUMNOTREADY | TP_STATUS_TS_SOFTWARE,
                           0x8100,
                           1,
                           {0x81, 0x00, 0, 1}}),
    [](const auto& row) { return row.param.name; });

TEST_F(PacketRingTest, InnerTagsAreData) {
    tpacket3_hdr& header = Add(0, WithTag({0x81, 0x00, 0x00, 0x07}));
    header.tp_status = cTagged;
    header.hv1.tp_vlan_tpid = 0x88A8;
    header.hv1.tp_vlan_tci = 9;
    HandOver(0);
    EXPECT_EQ(Take(), WithTag({0x88, 0xA8, 0x00, 0x09, 0x81, 0x00, 0x00, 0x07}));
}

TEST_F(PacketRingTest, AFrameShorterThanItsAddressesGetsNoTag) {
    const Bytes data(11, 0x55);
    tpacket3_hdr& header = Add(0, data);
    header.tp_status = cTagged;
    HandOver(0);
    EXPECT_EQ(Take(), data);
}

TEST_F(PacketRingTest, ACutFrameSaysSo) {
    Add(0).tp_len = static_cast<std::uint32_t>(cFrame.size()) + 1;
    Add(0);
    HandOver(0);
    PacketRing::Frame frame;
    ASSERT_TRUE(mRing.Peek(frame));
    EXPECT_TRUE(frame.isCut);
    mRing.Pop();
    ASSERT_TRUE(mRing.Peek(frame));
    EXPECT_FALSE(frame.isCut);
}

TEST_F(PacketRingTest, ABlockGoesBackWithItsLastFrame) {
    Add(0, {0});
    Add(0, {1});
    HandOver(0);
    EXPECT_EQ(Take(), Bytes{0});
    EXPECT_FALSE(IsHandedBack(0));
    EXPECT_EQ(Take(), Bytes{1});
    EXPECT_TRUE(IsHandedBack(0));
}

TEST_F(PacketRingTest, BlocksInTurnForEver) {
    std::uint8_t expected = 0;
    std::uint8_t added = 0;
    for (std::uint32_t round = 0; round < 10; ++round) {
        for (std::uint32_t block = 0; block < cBlockCount; ++block) {
            Block(block).num_pkts = 0;
            for (std::uint32_t i = 0; i <= (round + block) % 4; ++i) {
                Add(block, {added++});
            }
            HandOver(block);
        }
        for (; expected != added; ++expected) {
            ASSERT_EQ(Take(), Bytes{expected});
        }
        EXPECT_FALSE(mRing.HasFrame());
    }
}

TEST_F(PacketRingTest, AnEmptyBlockIsPassedOver) {
    HandOver(0);
    EXPECT_FALSE(mRing.HasFrame());
    EXPECT_TRUE(IsHandedBack(0));
    Add(1);
    HandOver(1);
    EXPECT_EQ(Take(), cFrame);
}

TEST_F(PacketRingTest, ALossIsToldOnce) {
    Add(0);
    HandOver(0);
    Add(1);
    Add(1);
    HandOver(1, TP_STATUS_LOSING);
    EXPECT_EQ(Take(), cFrame);
    EXPECT_FALSE(mRing.TakeLossMark());
    PacketRing::Frame frame;
    ASSERT_TRUE(mRing.Peek(frame));
    EXPECT_TRUE(mRing.TakeLossMark());
    EXPECT_FALSE(mRing.TakeLossMark());
    mRing.Pop();
    ASSERT_TRUE(mRing.Peek(frame));
    EXPECT_FALSE(mRing.TakeLossMark());
}

} // namespace
