// Parsing of each kind of block: its fields and options, and what is refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
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

// --- Valid blocks by hand ------------------------------------------------------------------------

const ByteList cOptions =
    Concat({LE16(2), LE16(3), {'a', 'b', 'c', 0}, LE16(9), LE16(1), {9, 0, 0, 0}, LE32(0)});

ByteList SectionHeader(const ByteList& options) {
    return Block(0x0A0D0D0A,
                 Concat({LE32(0x1A2B3C4D), LE16(0x0201), LE16(0x0403), LE64(0x1112131415161718), options}));
}
ByteList InterfaceDesc(const ByteList& options) {
    return Block(1, Concat({LE16(0x0102), LE16(0xFFFF), LE32(0x03040506), options}));
}
ByteList EnhPacket(const ByteList& data, std::uint64_t captured, const ByteList& options) {
    return Block(6, Concat({LE32(3), LE32(0x01020304), LE32(0x05060708), LE32(captured), LE32(2000), data,
                            ByteList((4 - data.size() % 4) % 4, 0xFF), options}));
}

ByteList SetBytes(ByteList block, std::size_t offset, const ByteList& bytes) {
    std::copy(bytes.begin(), bytes.end(), block.begin() + static_cast<std::ptrdiff_t>(offset));
    return block;
}

class BlockParseTest : public testing::Test {
protected:
    LogCapture mLog;
    PcapNgSectionHeaderBlock mSection;
    PcapNgInterfaceDescBlock mInterface;
    PcapNgEnhPacketBlock mPacket;
};

TEST_F(BlockParseTest, SectionHeaderFields) {
    const ExactCopy block(SectionHeader(cOptions));
    ASSERT_EQ(mSection.InitSectionHeaderBlock(block.View()), KESTATUS_SUCCESS);
    EXPECT_EQ(mSection.MajorVersion(), 0x0201);
    EXPECT_EQ(mSection.MinorVersion(), 0x0403);
    EXPECT_EQ(mSection.SectionLength(), 0x1112131415161718u);
    ASSERT_NE(mSection.LookupOptionByCode(2), nullptr);
    EXPECT_EQ(Contents(mSection.LookupOptionByCode(2)->Value()), Text("abc"));
    EXPECT_NE(mSection.LookupOptionByCode(9), nullptr);
    EXPECT_EQ(mSection.LookupOptionByCode(3), nullptr);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(BlockParseTest, InterfaceDescFields) {
    const ExactCopy block(InterfaceDesc(cOptions));
    ASSERT_EQ(mInterface.InitInterfaceDescBlock(block.View()), KESTATUS_SUCCESS);
    EXPECT_EQ(mInterface.LinkType(), 0x0102);
    EXPECT_EQ(mInterface.SnapLen(), 0x03040506u);
    EXPECT_NE(mInterface.LookupOptionByCode(9), nullptr);
}

TEST_F(BlockParseTest, EnhPacketFields) {
    const ByteList data = Counting(5);
    const ExactCopy block(EnhPacket(data, 5, cOptions));
    ASSERT_EQ(mPacket.InitEnhPacketBlock(block.View()), KESTATUS_SUCCESS);
    EXPECT_EQ(mPacket.InterfaceID(), 3u);
    EXPECT_EQ(mPacket.Timestamp(), 0x0102030405060708u);
    EXPECT_EQ(mPacket.OriginalLength(), 2000u);
    EXPECT_EQ(Contents(mPacket.PacketData()), data);
    EXPECT_EQ(mPacket.PacketData().mData, block.View().mData + 28); // not copied
    EXPECT_TRUE(mPacket.IsPacketDataTruncated());
    EXPECT_FALSE(mPacket.IsPacketDataCut());
    EXPECT_NE(mPacket.LookupOptionByCode(9), nullptr);
}

TEST_F(BlockParseTest, ShortestBlocksHaveNoOptionsAtAll) {
    const ExactCopy section(SectionHeader({}));
    ASSERT_EQ(section.View().mLength, 28u);
    EXPECT_EQ(mSection.InitSectionHeaderBlock(section.View()), KESTATUS_SUCCESS);
    const ExactCopy interface(InterfaceDesc({}));
    ASSERT_EQ(interface.View().mLength, 20u);
    EXPECT_EQ(mInterface.InitInterfaceDescBlock(interface.View()), KESTATUS_SUCCESS);
    const ExactCopy packet(EnhPacket({}, 0, {}));
    ASSERT_EQ(packet.View().mLength, 32u);
    EXPECT_EQ(mPacket.InitEnhPacketBlock(packet.View()), KESTATUS_SUCCESS);
    EXPECT_EQ(mPacket.PacketData().mLength, 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(BlockParseTest, TrailingLengthIsNotCompared) {
    ByteList bytes = InterfaceDesc(cOptions);
    bytes = SetBytes(bytes, bytes.size() - 4, LE32(0xDEADBEEF));
    EXPECT_EQ(mInterface.InitInterfaceDescBlock(ExactCopy(bytes).View()), KESTATUS_SUCCESS);
}

// --- The checks ----------------------------------------------------------------------------------

enum Kind { Section, Interface, Packet };

struct Refusal {
    KESTATUS status;
    const char* line;
};

struct CheckRow {
    const char* name;
    Kind kind;
    std::function<ByteList(ByteList)> spoil; // a valid block
    Refusal refusal;
};

class BlockCheckTest : public BlockParseTest, public testing::WithParamInterface<CheckRow> {
protected:
    ByteList Valid() const {
        switch (GetParam().kind) {
        case Section:
            return SectionHeader(cOptions);
        case Interface:
            return InterfaceDesc(cOptions);
        default:
            return EnhPacket(Counting(4), 4, cOptions);
        }
    }
    KESTATUS Parse(const ByteList& bytes) {
        const ExactCopy block(bytes);
        switch (GetParam().kind) {
        case Section:
            return mSection.InitSectionHeaderBlock(block.View());
        case Interface:
            return mInterface.InitInterfaceDescBlock(block.View());
        default:
            return mPacket.InitEnhPacketBlock(block.View());
        }
    }
};

std::function<ByteList(ByteList)> Cut(std::size_t length) {
    return [=](ByteList block) {
        block.resize(length);
        return block;
    };
}
std::function<ByteList(ByteList)> Set(std::size_t offset, const ByteList& bytes) {
    return [=](const ByteList& block) { return SetBytes(block, offset, bytes); };
}
// Two faults: the one that is checked first is reported.
std::function<ByteList(ByteList)> Both(const std::function<ByteList(ByteList)>& a,
                                       const std::function<ByteList(ByteList)>& b) {
    return [=](const ByteList& block) { return b(a(block)); };
}

TEST_P(BlockCheckTest, RefusesWithTheFieldsUnchanged) {
    const CheckRow& row = GetParam();
    ASSERT_EQ(Parse(Valid()), KESTATUS_SUCCESS);
    mLog.Clear();
    // All fields have other values, to show that none is taken.
    ByteList other = Valid();
    for (std::size_t i = row.kind == Section ? 12 : 8; i < 16; ++i) {
        other[i] ^= 0xFF;
    }
    EXPECT_EQ(Parse(row.spoil(other)), row.refusal.status);
    const char* const functions[] = {"InitSectionHeaderBlock", "InitInterfaceDescBlock",
                                     "InitEnhPacketBlock"};
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, functions[row.kind], row.refusal.line)));
    if (row.kind == Section) {
        EXPECT_EQ(mSection.MajorVersion(), 0x0201);
        EXPECT_EQ(mSection.MinorVersion(), 0x0403);
    } else if (row.kind == Interface) {
        EXPECT_EQ(mInterface.LinkType(), 0x0102);
        EXPECT_EQ(mInterface.SnapLen(), 0x03040506u);
    } else {
        EXPECT_EQ(mPacket.InterfaceID(), 3u);
        EXPECT_EQ(mPacket.Timestamp(), 0x0102030405060708u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Checks, BlockCheckTest,
    testing::Values(
        CheckRow{"SectionEmpty", Section, Cut(0), {KESTATUS_INVALID_LENGTH, "invalid length 0, min. 28"}},
        CheckRow{"SectionShort", Section, Cut(27), {KESTATUS_INVALID_LENGTH, "invalid length 27, min. 28"}},
        CheckRow{"SectionType", Section, Set(0, LE32(1)), {KESTATUS_INVALID_TYPE, "invalid block type 1"}},
        CheckRow{"SectionMagic",
                 Section,
                 Set(8, LE32(0x4D3C2B1A)),
                 {KESTATUS_MAGIC_MISMATCH, "invalid byte-order magic 0x4D3C2B1A, exp. 0x1A2B3C4D"}},
        CheckRow{"SectionLength",
                 Section,
                 Set(4, LE32(47)),
                 {KESTATUS_LENGTH_MISMATCH, "length mismatch got 48, exp. 47"}},
        CheckRow{"SectionLengthFirst",
                 Section,
                 Both(Cut(20), Set(0, LE32(1))),
                 {KESTATUS_INVALID_LENGTH, "invalid length 20, min. 28"}},
        CheckRow{"SectionTypeBeforeMagic",
                 Section,
                 Both(Set(8, LE32(0)), Set(0, LE32(6))),
                 {KESTATUS_INVALID_TYPE, "invalid block type 6"}},
        CheckRow{"SectionMagicBeforeLength",
                 Section,
                 Both(Set(8, LE32(0)), Set(4, LE32(1))),
                 {KESTATUS_MAGIC_MISMATCH, "invalid byte-order magic 0x00000000, exp. 0x1A2B3C4D"}},
        CheckRow{
            "InterfaceShort", Interface, Cut(19), {KESTATUS_INVALID_LENGTH, "invalid length 19, min. 20"}},
        CheckRow{"InterfaceType",
                 Interface,
                 Set(0, LE32(0x0A0D0D0A)),
                 {KESTATUS_INVALID_TYPE, "invalid block type 168627466"}},
        CheckRow{"InterfaceLength",
                 Interface,
                 Set(4, LE32(44)),
                 {KESTATUS_LENGTH_MISMATCH, "length mismatch got 40, exp. 44"}},
        CheckRow{"InterfaceTypeBeforeLength",
                 Interface,
                 Both(Set(4, LE32(44)), Set(0, LE32(6))),
                 {KESTATUS_INVALID_TYPE, "invalid block type 6"}},
        CheckRow{"PacketShort", Packet, Cut(31), {KESTATUS_INVALID_LENGTH, "invalid length 31, min. 32"}},
        CheckRow{"PacketType", Packet, Set(0, LE32(3)), {KESTATUS_INVALID_TYPE, "invalid block type 3"}},
        CheckRow{"PacketLength",
                 Packet,
                 Set(4, LE32(0xFFFFFFFF)),
                 {KESTATUS_LENGTH_MISMATCH, "length mismatch got 56, exp. 4294967295"}},
        CheckRow{"PacketTypeBeforeLength",
                 Packet,
                 Both(Set(4, LE32(0)), Set(0, LE32(1))),
                 {KESTATUS_INVALID_TYPE, "invalid block type 1"}}),
    [](const auto& row) { return row.param.name; });

// --- Packet data ---------------------------------------------------------------------------------

struct CapturedRow {
    std::uint64_t captured; // as the block says; it has 8 bytes of data, and the options
    std::size_t dataLength;
    bool isCut;
    bool hasOptions;
};

TEST_F(BlockParseTest, CapturedLengthBeyondTheBlock) {
    const std::size_t room = 8 + cOptions.size();
    for (const CapturedRow& row :
         {CapturedRow{8, 8, false, true}, CapturedRow{7, 7, false, true}, CapturedRow{5, 5, false, true},
          CapturedRow{room, room, false, false}, CapturedRow{room - 1, room - 1, false, false},
          CapturedRow{room + 1, room, true, false}, CapturedRow{0x7FFFFFFF, room, true, false},
          CapturedRow{0xFFFFFFFC, room, true, false}, CapturedRow{0xFFFFFFFD, room, true, false},
          CapturedRow{0xFFFFFFFF, room, true, false}}) {
        SCOPED_TRACE(row.captured);
        PcapNgEnhPacketBlock packet;
        const ExactCopy block(EnhPacket(Counting(8), row.captured, cOptions));
        EXPECT_EQ(packet.InitEnhPacketBlock(block.View()), KESTATUS_SUCCESS);
        EXPECT_EQ(packet.PacketData().mLength, row.dataLength);
        EXPECT_EQ(packet.CapturedLength(), row.captured);
        EXPECT_EQ(packet.IsPacketDataCut(), row.isCut);
        EXPECT_EQ(packet.IsPacketDataTruncated(), row.captured < 2000);
        EXPECT_EQ(packet.LookupOptionByCode(9) != nullptr, row.hasOptions);
        EXPECT_EQ(Contents(packet.PacketData()).size(), row.dataLength); // all of it can be read
    }
}

TEST_F(BlockParseTest, BlockThatIsNoMultipleOfFour) {
    // The data fill the block without padding.
    ByteList bytes = EnhPacket({}, 5, {});
    bytes.insert(bytes.begin() + 28, {1, 2, 3, 4, 5});
    bytes = SetBytes(bytes, 4, LE32(37));
    const ExactCopy block(bytes);
    EXPECT_EQ(mPacket.InitEnhPacketBlock(block.View()), KESTATUS_SUCCESS);
    EXPECT_EQ(Contents(mPacket.PacketData()), (ByteList{1, 2, 3, 4, 5}));
    EXPECT_FALSE(mPacket.IsPacketDataCut());
}

// --- Options -------------------------------------------------------------------------------------

struct OptionsRow {
    const char* name;
    ByteList bytes;
    std::vector<unsigned> codes; // of the options that are taken
    const char* warning;         // null: none
};

class OptionsTest : public BlockParseTest, public testing::WithParamInterface<OptionsRow> {};

TEST_P(OptionsTest, TakesWhatIsComplete) {
    const OptionsRow& row = GetParam();
    const ExactCopy options(row.bytes);
    EXPECT_EQ(mInterface.ParseOptionsData(options.View()), KESTATUS_SUCCESS);
    std::uint64_t length = 4;
    for (const unsigned code : row.codes) {
        const PcapNgOption* option = mInterface.LookupOptionByCode(static_cast<std::uint16_t>(code));
        ASSERT_NE(option, nullptr) << code;
        length += option->TotalLength();
    }
    EXPECT_EQ(mInterface.TotalOptionsLength(), length); // and no others
    if (row.warning) {
        EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEWARN, "ParseOptionsData", row.warning)));
    } else {
        EXPECT_THAT(mLog.Messages(), IsEmpty());
    }
}

const ByteList cNineOption = {9, 0, 1, 0, 9, 0, 0, 0};

INSTANTIATE_TEST_SUITE_P(
    Lists, OptionsTest,
    testing::Values(
        OptionsRow{"Nothing", {}, {}, nullptr}, OptionsRow{"WithoutEnd", cNineOption, {9}, nullptr},
        OptionsRow{"WithEnd", Concat({cNineOption, LE32(0)}), {9}, nullptr},
        OptionsRow{"EndStopsBeforeMore", Concat({cNineOption, LE32(0), {2, 0, 0, 0}}), {9}, nullptr},
        OptionsRow{"EndWithALength", Concat({{0, 0, 1, 0, 5, 0, 0, 0}, cNineOption}), {}, nullptr},
        OptionsRow{"EndWithALengthTooLong", {0, 0, 9, 0, 5, 0, 0, 0}, {}, "ignore incomplete option"},
        OptionsRow{"OneStrayByte", Concat({cNineOption, {7}}), {9}, "ignore incomplete option header"},
        OptionsRow{
            "ThreeStrayBytes", Concat({cNineOption, {7, 0, 0}}), {9}, "ignore incomplete option header"},
        OptionsRow{"EmptyValue", {2, 0, 0, 0}, {2}, nullptr},
        OptionsRow{"ValueCut", Concat({cNineOption, {2, 0, 4, 0, 1, 2, 3}}), {9}, "ignore incomplete option"},
        OptionsRow{
            "PaddingCut", Concat({cNineOption, {2, 0, 3, 0, 1, 2, 3}}), {9}, "ignore incomplete option"},
        OptionsRow{"LongValueCut", {2, 0, 0xFC, 0xFF, 1, 2, 3, 4}, {}, "ignore incomplete option"},
        OptionsRow{"LongestValueCut", {2, 0, 0xFF, 0xFF, 1, 2, 3, 4}, {}, "ignore incomplete option"},
        OptionsRow{"WrappingValueCut", {2, 0, 0xFD, 0xFF, 1, 2, 3, 4}, {}, "ignore incomplete option"},
        OptionsRow{
            "Three", Concat({cNineOption, {2, 0, 1, 0, 'a', 0, 0, 0}, {3, 0, 0, 0}}), {9, 2, 3}, nullptr}),
    [](const auto& row) { return row.param.name; });

TEST_F(BlockParseTest, LongestValuesHaveASpanOfFour) {
    // The value of the first option is read again as options: here, as the end mark.
    const ByteList bytes = Concat({{2, 0, 0xFF, 0xFF}, ByteList(65535, 0)});
    EXPECT_EQ(mInterface.ParseOptionsData(ExactCopy(bytes).View()), KESTATUS_SUCCESS);
    ASSERT_NE(mInterface.LookupOptionByCode(2), nullptr);
    EXPECT_EQ(mInterface.LookupOptionByCode(2)->OptionLength(), 65535u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    // One of 65532 is spanned whole.
    PcapNgInterfaceDescBlock other;
    const ByteList spanned = Concat({{2, 0, 0xFC, 0xFF}, ByteList(65532, 0), cNineOption});
    EXPECT_EQ(other.ParseOptionsData(ExactCopy(spanned).View()), KESTATUS_SUCCESS);
    EXPECT_NE(other.LookupOptionByCode(9), nullptr);
}

// Each option takes 65540 bytes and overlaps the next: together they may be longer than the bytes by one.
TEST_F(BlockParseTest, OptionsThatOverlapAreLimited) {
    for (const auto& [length, options] :
         {std::pair<std::size_t, std::size_t>{70000, 2}, {131076, 2}, {131080, 3}, {1'000'000, 16}}) {
        SCOPED_TRACE(length);
        mLog.Clear();
        ByteList bytes(length);
        for (std::size_t i = 0; i < length; i += 4) {
            std::copy_n(ByteList{2, 0, 0xFF, 0xFF}.begin(), 4, bytes.begin() + static_cast<long>(i));
        }
        PcapNgInterfaceDescBlock block;
        EXPECT_EQ(block.ParseOptionsData(ExactCopy(bytes).View()), KESTATUS_SUCCESS);
        EXPECT_EQ(block.TotalOptionsLength(), 4u + options * 65540);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(IsMessageOf(KEWARN, "ParseOptionsData", "ignore incomplete option")));
    }
}

TEST_F(BlockParseTest, LastOptionIsTakenOut) {
    EXPECT_FALSE(mInterface.TakeLastOption().IsValid());
    ASSERT_EQ(mInterface.ParseOptionsData(View(cOptions)), KESTATUS_SUCCESS);
    EXPECT_EQ(mInterface.TakeLastOption().OptionCode(), 9u);
    EXPECT_EQ(mInterface.LookupOptionByCode(9), nullptr);
    EXPECT_EQ(mInterface.TakeLastOption().OptionCode(), 2u);
    EXPECT_EQ(mInterface.TotalOptionsLength(), 4u);
}

TEST_F(BlockParseTest, FirstOfTwoOptionsIsFound) {
    const ByteList bytes = {2, 0, 1, 0, 'a', 0, 0, 0, 2, 0, 1, 0, 'b', 0, 0, 0};
    EXPECT_EQ(mInterface.ParseOptionsData(View(bytes)), KESTATUS_SUCCESS);
    EXPECT_EQ(Contents(mInterface.LookupOptionByCode(2)->Value()), Text("a"));
    EXPECT_EQ(mInterface.ParseOptionsData(View(cNineOption)), KESTATUS_SUCCESS); // adds to them
    EXPECT_EQ(mInterface.TotalOptionsLength(), 4u + 8 + 8 + 8);
}

// --- Damaged blocks ------------------------------------------------------------------------------

TEST_F(BlockParseTest, DamageNeverReadsBeyondTheBlock) {
    const LogCapture quiet(logger::Global, KEFATAL); // they are many
    const auto parse = [](const ByteList& bytes) {
        const ExactCopy block(bytes);
        PcapNgSectionHeaderBlock section;
        PcapNgInterfaceDescBlock interface;
        PcapNgEnhPacketBlock packet;
        static_cast<void>(section.InitSectionHeaderBlock(block.View()));
        static_cast<void>(interface.InitInterfaceDescBlock(block.View()));
        if (packet.InitEnhPacketBlock(block.View()) == KESTATUS_SUCCESS) {
            unsigned sum = 0;
            for (const unsigned char byte : Contents(packet.PacketData())) {
                sum += byte;
            }
            EXPECT_LE(packet.PacketData().mLength, bytes.size()) << sum;
        }
    };
    unsigned parsed = 0;
    for (const ByteList& valid :
         {SectionHeader(cOptions), InterfaceDesc(cOptions), EnhPacket(Counting(7), 7, cOptions)}) {
        for (std::size_t length = 0; length <= valid.size(); ++length) {
            ByteList cut(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(length));
            parse(cut);
            if (length >= 8) {
                parse(SetBytes(cut, 4, LE32(length))); // with a length that agrees
            }
            ++parsed;
        }
        for (std::size_t place = 0; place < valid.size(); ++place) {
            for (const unsigned value :
                 {0x00u, 0x01u, 0x03u, 0x04u, 0x05u, 0x7Fu, 0x80u, 0xFCu, 0xFDu, 0xFFu}) {
                ByteList damaged = valid;
                damaged[place] = static_cast<unsigned char>(value);
                parse(damaged);
                for (std::size_t second = place + 1; second < valid.size() && second < place + 4; ++second) {
                    damaged[second] = static_cast<unsigned char>(value);
                    parse(damaged);
                }
                ++parsed;
            }
        }
    }
    EXPECT_GT(parsed, 1400u);
}

} // namespace
