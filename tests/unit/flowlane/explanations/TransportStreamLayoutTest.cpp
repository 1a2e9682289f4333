// Where the packets of a transport stream are in a file, and what other kind of file it may be.

#include "explanations/TransportStreamLayout.h"

#include <gtest/gtest.h>

#include <string>

namespace flowlane {
namespace {

constexpr std::optional<TransportStreamLayout> cNone;

// junk bytes, then packets of this size. The sync byte is behind as many bytes of each packet.
FileHead Packets(std::size_t junk, std::size_t count, std::size_t size, std::size_t syncOffset = 0) {
    FileHead head(junk + count * size, 0xFF);
    for (std::size_t i = 0; i < count; ++i) {
        head[junk + i * size + syncOffset] = 0x47;
    }
    return head;
}

FileHead Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

using Layout = TransportStreamLayout;

TEST(TransportStreamLayoutTest, FindsPacketsOfEachSize) {
    EXPECT_EQ(FindTransportStreamLayout(Packets(0, 20, 188)), (Layout{188, 0}));
    EXPECT_EQ(FindTransportStreamLayout(Packets(0, 20, 192, 4)), (Layout{192, 4}));
    EXPECT_EQ(FindTransportStreamLayout(Packets(0, 20, 204)), (Layout{204, 0}));
}

TEST(TransportStreamLayoutTest, FindsPacketsBehindOtherBytes) {
    EXPECT_EQ(FindTransportStreamLayout(Packets(1, 20, 188)), (Layout{188, 1}));
    EXPECT_EQ(FindTransportStreamLayout(Packets(5000, 20, 188)), (Layout{188, 5000}));
    EXPECT_EQ(FindTransportStreamLayout(Packets(100, 20, 192, 4)), (Layout{192, 104}));
}

TEST(TransportStreamLayoutTest, NeedsThreePackets) {
    EXPECT_EQ(FindTransportStreamLayout(Packets(0, 3, 188)), (Layout{188, 0}));
    EXPECT_EQ(FindTransportStreamLayout(Packets(0, 2, 188)), cNone);
}

// Four sync bytes at the right places are chance when the fifth packet has none.
TEST(TransportStreamLayoutTest, NeedsFivePacketsWhereTheyFit) {
    FileHead head = Packets(0, 4, 188);
    head.resize(std::size_t{188} * 5, 0xFF);
    EXPECT_EQ(FindTransportStreamLayout(head), cNone);
    head[std::size_t{188} * 4] = 0x47;
    EXPECT_EQ(FindTransportStreamLayout(head), (Layout{188, 0}));
}

TEST(TransportStreamLayoutTest, FindsNothingInOtherBytes) {
    EXPECT_EQ(FindTransportStreamLayout({}), cNone);
    EXPECT_EQ(FindTransportStreamLayout(FileHead(cLayoutHeadSize)), cNone);
}

TEST(OtherFileKindTest, IsKnownByItsMark) {
    EXPECT_EQ(FindOtherFileKind(Bytes(std::string("\0\0\0\x1C", 4) + "ftypmp42")), OtherFileKind::Mp4);
    EXPECT_EQ(FindOtherFileKind(Bytes(std::string("\0\0\0\x1C", 4) + "moov")), OtherFileKind::Mp4);
    EXPECT_EQ(FindOtherFileKind(Bytes(std::string("\0\0\0\x1C", 4) + "mdat")), OtherFileKind::Mp4);
    EXPECT_EQ(FindOtherFileKind(Bytes("\x1A\x45\xDF\xA3")), OtherFileKind::Matroska);
    EXPECT_EQ(FindOtherFileKind(Bytes("RIFF1234AVI LIST")), OtherFileKind::Avi);
    EXPECT_EQ(FindOtherFileKind(Bytes(std::string("\0\0\x01\xBA", 4))), OtherFileKind::ProgramStream);
    EXPECT_EQ(FindOtherFileKind(Bytes("\x0A\x0D\x0D\x0A")), OtherFileKind::PcapNg);
    for (const char* mark :
         {"\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4", "\x4D\x3C\xB2\xA1", "\xA1\xB2\x3C\x4D"}) {
        EXPECT_EQ(FindOtherFileKind(Bytes(mark)), OtherFileKind::Pcap);
    }
}

TEST(OtherFileKindTest, IsNoneWithoutAWholeMark) {
    EXPECT_EQ(FindOtherFileKind({}), OtherFileKind::None);
    EXPECT_EQ(FindOtherFileKind(Bytes("RIFF1234AVI")), OtherFileKind::None);
    EXPECT_EQ(FindOtherFileKind(Bytes("RIFF1234WAVE")), OtherFileKind::None);
    EXPECT_EQ(FindOtherFileKind(Packets(0, 20, 188)), OtherFileKind::None);
}

} // namespace
} // namespace flowlane
