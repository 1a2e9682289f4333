// The kind of a file by its first bytes, and the names in the command that converts it.

#include "explanations/ReplayFileKind.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <bit>
#include <string>

#include "TemporaryFolder.h"

namespace flowlane {
namespace {

using Kind = ReplayFileKind;
using testsupport::TemporaryFolder;

Kind KindOf(const std::string& head) {
    return KindOfReplayFile({head.begin(), head.end()});
}

std::string SectionHeader(const std::string& magic) {
    return std::string("\x0A\x0D\x0D\x0A\x1C\0\0\0", 8) + magic;
}

TEST(ReplayFileKindTest, PcapNgInBothByteOrders) {
    const std::string little = SectionHeader("\x4D\x3C\x2B\x1A");
    const std::string big = SectionHeader("\x1A\x2B\x3C\x4D");
    const bool isLittle = std::endian::native == std::endian::little;
    EXPECT_EQ(KindOf(little), isLittle ? Kind::PcapNg : Kind::OtherByteOrder);
    EXPECT_EQ(KindOf(big), isLittle ? Kind::OtherByteOrder : Kind::PcapNg);
}

TEST(ReplayFileKindTest, EveryClassicPcap) {
    for (const char* magic :
         {"\xA1\xB2\xC3\xD4", "\xD4\xC3\xB2\xA1", "\xA1\xB2\x3C\x4D", "\x4D\x3C\xB2\xA1"}) {
        EXPECT_EQ(KindOf(std::string(magic) + "rest"), Kind::ClassicPcap);
    }
}

TEST(ReplayFileKindTest, EveryCompression) {
    EXPECT_EQ(KindOf("\x1F\x8B\x08"), Kind::Gzip);
    EXPECT_EQ(KindOf("\x28\xB5\x2F\xFD"), Kind::Zstd);
    EXPECT_EQ(KindOf("\x04\x22\x4D\x18"), Kind::Lz4);
    EXPECT_EQ(KindOf(std::string("\xFD"
                                 "7zXZ\0",
                                 6)),
              Kind::Xz);
    EXPECT_EQ(KindOf("BZh9"), Kind::Bzip2);
}

TEST(ReplayFileKindTest, AnythingElse) {
    EXPECT_EQ(KindOf(""), Kind::Other);
    EXPECT_EQ(KindOf("\x1F"), Kind::Other);
    EXPECT_EQ(KindOf("text"), Kind::Other);
    EXPECT_EQ(KindOf("\xA1\xB2\xC3"), Kind::Other);
    EXPECT_EQ(KindOf("\x0A\x0D\x0D\x0A"), Kind::Other);
    EXPECT_EQ(KindOf(SectionHeader("")), Kind::Other);
    EXPECT_EQ(KindOf(SectionHeader("\x4D\x3C\x2B")), Kind::Other);
    EXPECT_EQ(KindOf(SectionHeader("abcd")), Kind::Other);
}

TEST(ReplayFileKindTest, NewNameIsNeverTheOldOne) {
    EXPECT_EQ(ConvertedFileName(Kind::ClassicPcap, "record.pcap"), "record.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::ClassicPcap, "a.b/record"), "a.b/record.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::ClassicPcap, ".hidden"), ".hidden.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::ClassicPcap, "record.pcapng"), "record-new.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::OtherByteOrder, "record.pcapng"), "record-new.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::Gzip, "record.pcapng.gz"), "record.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::Gzip, "record.pcap.gz"), "record.pcap");
    EXPECT_EQ(ConvertedFileName(Kind::Zstd, "record.pcapng"), "record-new.pcapng");
    EXPECT_EQ(ConvertedFileName(Kind::Gzip, "record.z"), "record.pcapng");
}

TEST(ReplayFileKindTest, LooksOnlyAtRegularFiles) {
    const TemporaryFolder folder;
    folder.Write("file", "BZh9");
    EXPECT_EQ(LookAtReplayFile(folder / "file"), Kind::Bzip2);
    EXPECT_EQ(LookAtReplayFile(folder / "missing"), Kind::Other);
    EXPECT_EQ(LookAtReplayFile(folder / "."), Kind::Other);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(LookAtReplayFile(folder / "pipe"), Kind::Other); // and does not wait
}

TEST(ReplayFileKindTest, CommandReplacesNoFile) {
    const TemporaryFolder folder;
    const std::string stem = folder / "it";
    EXPECT_EQ(ConversionCommand(Kind::ClassicPcap, stem + ".pcap", "convert ", " to "),
              "convert " + stem + ".pcap to " + stem + ".pcapng");
    folder.Write("it.pcapng", "");
    folder.Write("it-2.pcapng", "");
    EXPECT_EQ(ConversionCommand(Kind::ClassicPcap, stem + ".pcap", "convert "),
              "convert " + stem + ".pcap " + stem + "-3.pcapng");
}

TEST(ReplayFileKindTest, CommandIsReadByAShell) {
    EXPECT_EQ(ConversionCommand(Kind::ClassicPcap, "-two words.pcap", "convert "),
              "convert './-two words.pcap' './-two words.pcapng'");
}

TEST(ReplayFileKindTest, CommandForLongNamesFitsInALine) {
    EXPECT_EQ(ConversionCommand(Kind::ClassicPcap, std::string(200, 'x'), "convert "),
              "convert FILE NEW_FILE");
}

} // namespace
} // namespace flowlane
