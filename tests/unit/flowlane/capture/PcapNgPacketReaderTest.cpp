// What the reader makes of every kind of block in every state: the next state, the counter, the line in the
// log, and whether the packet is sent.

#include "capture/PcapNgPacketReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ReplayFixture.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

using State = PcapNgPacketReader::State;
using Statistics = PcapNgReaderStatistics;

constexpr State cSection = State::ExpSectionHeader;
constexpr State cInterface = State::ExpInterfaceDesc;
constexpr State cPacket = State::ReadPacket;
constexpr State cStates[] = {cSection, cInterface, cPacket};

// --- States and blocks ---------------------------------------------------------------------------

// A block, and what the reader makes of it where it looks at it. In the states before it is skipped.
struct BlockCase {
    const char* name;
    ByteList block;
    State firstState;                             // the first state in which it is looked at
    State after;                                  // the state behind it then
    std::uint64_t Statistics::*counter = nullptr; // raised by one; null for none
    KELogLevel level = KEERROR;                   // of the line
    const char* line = "";                        // part of it, when there is a counter
};

// It is valid, and leads on to the next state. A packet is sent.
BlockCase Accepted(State firstState, const char* name, ByteList block) {
    return {.name = name,
            .block = std::move(block),
            .firstState = firstState,
            .after = firstState == cSection ? cInterface : cPacket};
}
// It is counted and logged, and the reader goes on to wait for such a block.
BlockCase Refused(State firstState, const char* name, ByteList block, std::uint64_t Statistics::*counter,
                  KELogLevel level, const char* line) {
    return {.name = name,
            .block = std::move(block),
            .firstState = firstState,
            .after = firstState,
            .counter = counter,
            .level = level,
            .line = line};
}
// It is accepted, though something in it is counted and logged.
BlockCase AcceptedWithWarning(State firstState, const char* name, ByteList block,
                              std::uint64_t Statistics::*counter, const char* line) {
    BlockCase accepted = Accepted(firstState, name, std::move(block));
    accepted.counter = counter;
    accepted.level = KEWARN;
    accepted.line = line;
    return accepted;
}
// It is looked at in no state.
BlockCase Skipped(const char* name, ByteList block) {
    return {.name = name, .block = std::move(block), .firstState = State::Done, .after = State::Done};
}

class PcapNgBlockTest : public ReplayTest, public testing::WithParamInterface<BlockCase> {
protected:
    // The blocks that lead to a state.
    static ByteList LeadTo(State state) {
        return state == cSection ? ByteList{} : state == cInterface ? Section() : FileOf({});
    }
    // Blocks that show the state by the packets that are sent: 201 only in ReadPacket, 202 not in
    // ExpSectionHeader, 203 always.
    static ByteList Probe() {
        return Concat({Packet(201), Interface(), Packet(202), Section(), Interface(), Packet(203)});
    }
    static std::vector<unsigned> PacketsOfProbe(State state) {
        return state == cSection     ? std::vector<unsigned>{203}
               : state == cInterface ? std::vector<unsigned>{202, 203}
                                     : std::vector<unsigned>{201, 202, 203};
    }
};

TEST_P(PcapNgBlockTest, InEachState) {
    const BlockCase& row = GetParam();
    for (const State from : cStates) {
        SCOPED_TRACE(PcapNgPacketReader::StrForState(from));
        OpenToSend();
        mLog.Clear();
        Replay(Concat({LeadTo(from), row.block, Probe()}));

        const bool isLookedAt = from >= row.firstState;
        const bool isCounted = isLookedAt && row.counter;
        std::vector<unsigned> expected = PacketsOfProbe(isLookedAt ? row.after : from);
        if (isLookedAt && row.firstState == cPacket && !row.counter) {
            expected.insert(expected.begin(), 7); // the packet itself
        }
        EXPECT_EQ(SentPackets(), expected);
        EXPECT_EQ(Stats().infFramesSent, expected.size());
        EXPECT_EQ(Stats().TotalErrorsOccurred(), isCounted ? 1u : 0u);
        if (row.counter) {
            EXPECT_EQ(Stats().*row.counter, isCounted ? 1u : 0u);
            EXPECT_EQ(mLog.CountContaining(row.level, row.line), isCounted ? 1u : 0u);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, PcapNgBlockTest,
    testing::Values(
        Accepted(cSection, "Section", Section()),
        Refused(cSection, "SectionVersion20", Section(2, 0), &Statistics::errUnsupportedVersion, KEWARN,
                "ignore section with unsupported version 2.0"),
        Refused(cSection, "SectionVersion11", Section(1, 1), &Statistics::errUnsupportedVersion, KEWARN,
                "ignore section with unsupported version 1.1"),
        Refused(cSection, "SectionBigEndian", Section(1, 0, 0x4D3C2B1A), &Statistics::errInvalidSectionHeader,
                KEERROR, "InitSectionHeaderBlock failed, st=0x"),
        Refused(cSection, "SectionTooShort", Block(0x0A0D0D0A, ByteList(12, 0)),
                &Statistics::errInvalidSectionHeader, KEERROR,
                "InitSectionHeaderBlock failed, st=0xe0000042("),
        Accepted(cInterface, "Interface", Interface()),
        Accepted(cInterface, "InterfaceMicroseconds", Interface(Resolution(6))),
        Accepted(cInterface, "InterfaceNanoseconds", Interface(Resolution(9))),
        Refused(cInterface, "InterfaceOtherLink", Interface({}, 101), &Statistics::errInvalidLinkType, KEWARN,
                "ignore invalid linkType 101"),
        Refused(cInterface, "InterfaceMilliseconds", Interface(Resolution(3)),
                &Statistics::errUnsupportedTimestampResolution, KEWARN, "unsupported timestamp resolution 3"),
        Refused(cInterface, "InterfaceBinaryResolution", Interface(Resolution(0x89)),
                &Statistics::errUnsupportedTimestampResolution, KEWARN,
                "unsupported timestamp resolution 137"),
        AcceptedWithWarning(cInterface, "InterfaceOddResolution", Interface({9, 0, 2, 0, 9, 0, 0, 0}),
                            &Statistics::errInvalidOption,
                            "GetNumericValue failed, st=0xe0000042(KESTATUS_INVALID_LENGTH) (ignore option)"),
        Refused(cInterface, "InterfaceTooShort", Block(1, {1, 0, 0, 0}), &Statistics::errInvalidInterfaceDesc,
                KEERROR, "InitInterfaceDescBlock failed, st=0xe0000042("),
        Accepted(cPacket, "Packet", Packet(7)),
        Refused(cPacket, "PacketTooShort", Block(6, ByteList(16, 0)), &Statistics::errInvalidEnhPacket,
                KEERROR, "InitEnhPacketBlock failed, st=0xe0000042("),
        Refused(cPacket, "PacketBeyondItsBlock", PacketOf(FrameBytes(7), 0, 61, 61),
                &Statistics::errInvalidEnhPacket, KEWARN, "ignore packet with more data than its block"),
        Refused(cPacket, "PacketHugeLength", PacketOf(FrameBytes(7), 0, 60, 0xFFFFFFFF),
                &Statistics::errFrameBufferTooSmall, KEWARN,
                "franme buffer too small, got 1522, req. 4294967295"),
        Refused(cPacket, "PacketBeyondItsBlockOf1522", PacketOf(FrameBytes(7), 0, 1522, 1522),
                &Statistics::errInvalidEnhPacket, KEWARN, "ignore packet with more data than its block"),
        Refused(cPacket, "PacketBeyondItsBlockOf1523", PacketOf(FrameBytes(7), 0, 1523, 1523),
                &Statistics::errFrameBufferTooSmall, KEWARN, "franme buffer too small, got 1522, req. 1523"),
        Refused(cPacket, "PacketBeyondItsBlockTruncated", PacketOf(FrameBytes(7), 0, 6000, 5000),
                &Statistics::errPacketTruncated, KEWARN, "ignore truncated packet"),
        Refused(cPacket, "PacketBeyondItsBlockOf13", PacketOf({}, 0, 13, 13),
                &Statistics::errInvalidFrameLength, KEWARN, "ignore frame with invalid length 13"),
        Refused(cPacket, "PacketBeyondItsBlockWithoutAHeader", PacketOf({}, 0, 60, 60),
                &Statistics::errInvalidEnhPacket, KEWARN, "ignore packet with more data than its block"),
        Refused(cPacket, "PacketTruncated", PacketOf(FrameBytes(7), 0, 61, 60),
                &Statistics::errPacketTruncated, KEWARN, "ignore truncated packet"),
        Refused(cPacket, "PacketOf13", PacketOf(FrameBytes(7, 13), 0, 13, 13),
                &Statistics::errInvalidFrameLength, KEWARN, "ignore frame with invalid length 13"),
        Accepted(cPacket, "PacketOf14", PacketOf(FrameBytes(7, 14), 0, 14, 14)),
        Accepted(cPacket, "PacketOf1522", PacketOf(FrameBytes(7, 1522), 0, 1522, 1522)),
        Refused(cPacket, "PacketOf1523", PacketOf(FrameBytes(7, 1523), 0, 1523, 1523),
                &Statistics::errFrameBufferTooSmall, KEWARN, "franme buffer too small, got 1522, req. 1523"),
        Accepted(cPacket, "OriginalLengthSmaller", PacketOf(FrameBytes(7), 0, 59, 60)),
        Skipped("SimplePacketBlock", Block(3, ByteList(64, 0))),
        Skipped("StatisticsBlock", Block(5, ByteList(12, 0))),
        Skipped("UnknownBlock", Block(0x80001234, {}))),
    [](const auto& row) { return row.param.name; });

using PcapNgPacketReaderTest = ReplayTest;

TEST_F(PcapNgPacketReaderTest, TriggerFramesOfAnotherLengthFieldAreReplayed) {
    Replay(Concat({Section(), Interface(), TriggerPacket(10), Packet(1), TriggerPacket(14)}));
    ASSERT_EQ(mFake.SubmittedFrames().size(), 2u);
    EXPECT_EQ(mFake.SubmittedFrames()[1][13], 14);
    EXPECT_EQ(mLog.Count(KEINFO, "ignore dummy Ethernet frame for external trigger event"), 1u);
    EXPECT_EQ(Stats().TotalErrorsOccurred(), 0u);
}

// What stands behind the data of a packet does not make it a trigger.
TEST_F(PcapNgPacketReaderTest, PacketCutWithinItsHeaderIsNoTriggerFrame) {
    ByteList packet = PacketOf(Concat({ByteList(6, 0), ByteList(6, 0xFF)}), 0, 60, 60);
    packet[packet.size() - 4] = 0; // the trailing length, which is not looked at
    packet[packet.size() - 3] = 10;
    Replay(Concat({Section(), Interface(), packet, Packet(1)}));
    EXPECT_EQ(Stats().errInvalidEnhPacket, 1u);
    EXPECT_EQ(mLog.CountContaining(KEINFO, "trigger"), 0u);
}

TEST_F(PcapNgPacketReaderTest, StatesAreTold) {
    Replay(FileOf(Packet(1)));
    std::vector<std::string> changes;
    for (const CapturedMessage& message : mLog.Messages()) {
        if (message.level == KEVERBOSE) {
            changes.push_back(message.text);
        }
    }
    EXPECT_THAT(changes, ElementsAre("ExpSectionHeader --> ExpInterfaceDesc",
                                     "ExpInterfaceDesc --> ReadPacket", "ReadPacket --> Done"));
    EXPECT_EQ(mLog.Count(KEINFO, "all frames are sent, stop thread"), 1u);
    EXPECT_STREQ(PcapNgFileReader::StrForState(static_cast<State>(5)), "???");
    EXPECT_STREQ(PcapNgFileReader::StrForState(State::Error), "Error");
    EXPECT_EQ(static_cast<unsigned>(State::Error), 4u);
}

TEST_F(PcapNgPacketReaderTest, SourceAddressIsReplaced) {
    mReplaceSrcMacAddr = true;
    Replay(Concat({Section(), Interface(), Packet(9), PacketOf(FrameBytes(8, 14), 0, 14, 14)}));
    FakeFrame expected(60, 9);
    std::copy_n(std::vector<unsigned char>{0, 0x11, 0x22, 0x33, 0x44, 0x55}.begin(), 6, expected.begin() + 6);
    FakeFrame second(14, 8);
    std::copy_n(expected.begin() + 6, 6, second.begin() + 6);
    EXPECT_THAT(mFake.SubmittedFrames(), ElementsAre(expected, second));
}

} // namespace
