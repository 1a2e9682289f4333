// What the AVTP source does with every kind of frame: the log line, the counters, and the packets that reach
// the sink.

#include "streaming/AvtpSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "streaming/AvtpSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Spoil = std::function<void(FrameBytes&)>;

Spoil SetByte(std::size_t offset, std::uint8_t value) {
    return [=](FrameBytes& frame) { frame[offset] = value; };
}

Spoil SetBytes(std::size_t offset, const std::vector<std::uint8_t>& values) {
    return [=](FrameBytes& frame) {
        std::copy(values.begin(), values.end(), frame.begin() + static_cast<std::ptrdiff_t>(offset));
    };
}

Spoil CutTo(std::size_t length) {
    return [=](FrameBytes& frame) { frame.resize(length); };
}

// Cut within the CIP header or the data, with a stream data length that agrees.
Spoil CutDataTo(std::uint16_t streamDataLength) {
    return [=](FrameBytes& frame) {
        frame.resize(14u + 24 + streamDataLength);
        frame[34] = static_cast<std::uint8_t>(streamDataLength >> 8);
        frame[35] = static_cast<std::uint8_t>(streamDataLength);
    };
}

enum class Outcome {
    Forwarded,        // counted as received; its packet is delivered and the batch sent
    NothingToForward, // the same without a packet
    Ignored,          // no effect on the stream
    Damaged,          // not counted; the packet being put together is discarded
    Rejected,         // counted; the packet being put together is discarded
};

struct FrameCase {
    const char* name;
    Spoil spoil = [](FrameBytes&) {}; // what makes the frame special
    Outcome outcome;
    std::optional<CapturedMessage> message = std::nullopt;
    bool usesSequenceNumber = false; // although it is not counted
    bool isTagged = false;
    TNET_EthernetMacAddress sender = cAnySender; // the only one to accept
    bool filterByUniqueId = false;
};

void PrintTo(const FrameCase& test, std::ostream* stream) {
    *stream << test.name;
}

const std::vector<std::uint8_t> cOwnAddress = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

const FrameCase cFrameCases[] = {
    {.name = "Good", .outcome = Outcome::Forwarded},
    {.name = "GoodTagged", .outcome = Outcome::Forwarded, .isTagged = true},
    {.name = "TagControlIsNotLookedAt",
     .spoil = SetBytes(14, {0xFF, 0xFF}),
     .outcome = Outcome::Forwarded,
     .isTagged = true},
    // The Ethernet header.
    {.name = "Empty",
     .spoil = CutTo(0),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEERROR, "frame length 0 too small, min. 14"}},
    {.name = "ThirteenBytes",
     .spoil = CutTo(13),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEERROR, "frame length 13 too small, min. 14"}},
    {.name = "OwnAddress", .spoil = SetBytes(0, cOwnAddress), .outcome = Outcome::Forwarded},
    {.name = "OtherUnicast",
     .spoil = SetBytes(0, {0x00, 0x11, 0x22, 0x33, 0x44, 0x56}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "destination MAC address mismatch"}},
    {.name = "Multicast",
     .spoil = SetBytes(0, {0x01, 0x00, 0x5E, 0x00, 0x00, 0x01}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore frame with multicast MAC address"}},
    {.name = "AvtpMulticast",
     .spoil = SetBytes(0, {0x91, 0xE0, 0xF0, 0x00, 0x0E, 0x80}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore frame with multicast MAC address"}},
    {.name = "FilteredSender", .outcome = Outcome::Forwarded, .sender = cTalker},
    {.name = "OtherSender",
     .spoil = SetByte(11, 0xEF),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "source MAC address mismatch"},
     .sender = cTalker},
    {.name = "AnySender", .spoil = SetByte(11, 0xEF), .outcome = Outcome::Forwarded},
    {.name = "OtherEtherType",
     .spoil = SetBytes(12, {0x08, 0x00}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore frame with unsupported EtherType 0x0800"}},
    {.name = "OtherEtherTypeTagged",
     .spoil = SetBytes(16, {0x08, 0xAB}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore frame with unsupported EtherType 0x08AB"},
     .isTagged = true},
    {.name = "SecondTag",
     .spoil = SetBytes(16, {0x81, 0x00}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore frame with unsupported EtherType 0x8100"},
     .isTagged = true},
    {.name = "SeventeenBytesTagged",
     .spoil = CutTo(17),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEERROR, "VLAN frame length 17 too small, min. 18"},
     .isTagged = true},
    // The AVTP header.
    {.name = "EthernetHeaderOnly",
     .spoil = CutTo(14),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEERROR, "AVTP packet length 0 too small, min. 24"}},
    {.name = "AvtpHeaderCut",
     .spoil = CutTo(37),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEERROR, "AVTP packet length 23 too small, min. 24"}},
    {.name = "Subtype",
     .spoil = SetByte(14, 0x02),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore unsupported subtype 0x02"}},
    {.name = "SubtypeAllOnes",
     .spoil = SetByte(14, 0xFF),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore unsupported subtype 0xFF"}},
    {.name = "Version1",
     .spoil = SetByte(15, 0x90),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore unsupported version 1"}},
    {.name = "Version7",
     .spoil = SetByte(15, 0xF0),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "ignore unsupported version 7"}},
    {.name = "NoStreamId", .spoil = SetByte(15, 0x00), .outcome = Outcome::Forwarded},
    {.name = "NoStreamIdFiltered",
     .spoil = SetByte(15, 0x00),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEWARN, "ignore packet with invalid StreamID"},
     .filterByUniqueId = true},
    {.name = "UniqueIdFiltered", .outcome = Outcome::Forwarded, .filterByUniqueId = true},
    {.name = "OtherUniqueId", .spoil = SetBytes(24, {0x12, 0x35}), .outcome = Outcome::Forwarded},
    {.name = "OtherUniqueIdFiltered",
     .spoil = SetBytes(24, {0x12, 0x35}),
     .outcome = Outcome::Ignored,
     .message = CapturedMessage{KEINFO, "unique ID mismatch, got 4661, exp. 4660"},
     .filterByUniqueId = true},
    {.name = "AddressOfTheStreamIdIsNotLookedAt",
     .spoil = SetByte(18, 0x77),
     .outcome = Outcome::Forwarded,
     .sender = cTalker,
     .filterByUniqueId = true},
    {.name = "FlagsThatAreNotChecked", .spoil = SetByte(15, 0x8B), .outcome = Outcome::Forwarded},
    {.name = "FieldsThatAreNotChecked",
     .spoil = SetBytes(26, {1, 2, 3, 4, 5, 6, 7, 8}),
     .outcome = Outcome::Forwarded},
    {.name = "TagAndTcodeAreNotChecked", .spoil = SetBytes(36, {0x00, 0x00}), .outcome = Outcome::Forwarded},
    {.name = "DataLengthOneTooSmall",
     .spoil = SetBytes(34, {0x00, 0xC7}),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEWARN, "stream data length mismatch, got 199, exp. 200"},
     .usesSequenceNumber = true},
    {.name = "DataLengthOneTooLarge",
     .spoil = SetBytes(34, {0x00, 0xC9}),
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEWARN, "stream data length mismatch, got 201, exp. 200"},
     .usesSequenceNumber = true},
    {.name = "PaddedByOne",
     .spoil = [](FrameBytes& frame) { frame.push_back(0); },
     .outcome = Outcome::Damaged,
     .message = CapturedMessage{KEWARN, "stream data length mismatch, got 200, exp. 201"},
     .usesSequenceNumber = true},
    {.name = "AvtpHeaderOnly",
     .spoil = CutDataTo(0),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEERROR, "CIP length 0 too small, min. 8"}},
    {.name = "CipHeaderCut",
     .spoil = CutDataTo(7),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEERROR, "CIP length 7 too small, min. 8"}},
    // The CIP header and the data.
    {.name = "CipHeaderOnly", .spoil = CutDataTo(8), .outcome = Outcome::NothingToForward},
    {.name = "Dbs",
     .spoil = SetByte(39, 5),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEINFO, "ignore unsupported DBS 5"}},
    {.name = "Fn",
     .spoil = SetByte(40, 0x84),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEINFO, "ignore unsupported FN 2"}},
    {.name = "NoSph",
     .spoil = SetByte(40, 0xC0),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEINFO, "ignore data without source packet header"}},
    {.name = "QpcIsNotChecked", .spoil = SetByte(40, 0xFC), .outcome = Outcome::Forwarded},
    {.name = "Fmt",
     .spoil = SetByte(42, 0x90),
     .outcome = Outcome::Rejected,
     .message = CapturedMessage{KEINFO, "ignore unsupported FMT 16"}},
    {.name = "Qi2IsNotChecked", .spoil = SetByte(42, 0x20), .outcome = Outcome::Forwarded},
    {.name = "SidAndFdfAreNotChecked", .spoil = SetByte(38, 0x00), .outcome = Outcome::Forwarded},
    {.name = "OneByteShort",
     .spoil = CutDataTo(199),
     .outcome = Outcome::Rejected,
     .message =
         CapturedMessage{KEWARN, "unexpected byte count 191 not multiple of data block size (24 bytes)"}},
    {.name = "OneByteOfData",
     .spoil = CutDataTo(9),
     .outcome = Outcome::Rejected,
     .message =
         CapturedMessage{KEWARN, "unexpected byte count 1 not multiple of data block size (24 bytes)"}},
};

using Statistics = AvtpSource::Statistics;

// The counter of a frame that is not forwarded, known by the message.
std::uint64_t Statistics::*CounterOf(const std::string& message) {
    struct Counter {
        const char* part;
        std::uint64_t Statistics::*field;
    };
    constexpr Counter cCounters[] = {
        {"destination MAC address", &Statistics::infOtherDestination},
        {"multicast MAC address", &Statistics::infOtherDestination},
        {"source MAC address", &Statistics::infOtherSender},
        {"EtherType", &Statistics::infOtherProtocol},
        {"StreamID", &Statistics::infOtherUniqueId},
        {"unique ID", &Statistics::infOtherUniqueId},
        {"ignore unsupported", &Statistics::infOtherFormat},
        {"ignore data without source packet header", &Statistics::infOtherFormat},
        {"", &Statistics::errFramesDamaged},
    };
    return std::find_if(
               std::begin(cCounters), std::end(cCounters),
               [&](const Counter& counter) { return message.find(counter.part) != std::string::npos; })
        ->field;
}

class AvtpSourceFrameTest : public AvtpSourceTest, public testing::WithParamInterface<FrameCase> {
protected:
    // Two good frames enclose the frame of the test. When that is forwarded, its packet 10 comes between
    // packets 0 and 20.
    std::vector<FrameBytes> FramesAroundAForwardedOne() const {
        FrameBytes middle = AvtpFrame(
            {.sequenceNumber = 255, .dataBlockCount = 0, .firstPacket = 10, .isTagged = GetParam().isTagged});
        GetParam().spoil(middle);
        return {AvtpFrame({.sequenceNumber = 254, .dataBlockCount = 248, .firstPacket = 0}), middle,
                AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 8, .firstPacket = 20})};
    }
    // When it is not, the frame before ends in the middle of packet 1 and the frame after brings the rest:
    // packet 1 arrives only if the source did not discard its first half.
    std::vector<FrameBytes> FramesAroundAnotherOne() const {
        FrameBytes middle = AvtpFrame(
            {.sequenceNumber = 255, .dataBlockCount = 4, .firstPacket = 10, .isTagged = GetParam().isTagged});
        GetParam().spoil(middle);
        const std::uint8_t next = IsCounted() || GetParam().usesSequenceNumber ? 0 : 255;
        return {AvtpFrame({.sequenceNumber = 254, .dataBlockCount = 248, .firstPacket = 0, .blocks = 12}),
                middle,
                AvtpFrame({.sequenceNumber = next,
                           .dataBlockCount = 4,
                           .firstPacket = 1,
                           .firstBlock = 4,
                           .blocks = 12})};
    }

    bool IsCounted() const {
        return GetParam().outcome != Outcome::Ignored && GetParam().outcome != Outcome::Damaged;
    }
    bool IsSent() const {
        return GetParam().outcome == Outcome::Forwarded || GetParam().outcome == Outcome::NothingToForward;
    }
};

TEST_P(AvtpSourceFrameTest, IsTakenOrIgnored) {
    const FrameCase& test = GetParam();
    ASSERT_EQ(Create(test.sender, test.filterByUniqueId), KESTATUS_SUCCESS);
    if (test.outcome == Outcome::Forwarded) {
        Receive(FramesAroundAForwardedOne());
        ExpectPackets({0, 10, 20});
    } else {
        Receive(FramesAroundAnotherOne());
        const bool isDiscarded = test.outcome == Outcome::Damaged || test.outcome == Outcome::Rejected;
        ExpectPackets(isDiscarded ? std::vector<unsigned>{0, 2} : std::vector<unsigned>{0, 1, 2});
    }
    if (test.message) {
        EXPECT_THAT(mLog.Messages(), ElementsAre(*test.message));
    } else {
        EXPECT_THAT(mLog.Messages(), IsEmpty());
    }
    const AvtpSource::Statistics stats = mSource.QuerryStatistics();
    EXPECT_EQ(stats.infAvtpPacketsReceived, IsCounted() ? 3u : 2u);
    EXPECT_EQ(stats.infTsPacketsDelivered, mSink.mPackets.size());
    EXPECT_EQ(stats.infFramesTaken, 3u);
    if (test.message) {
        EXPECT_EQ(stats.*CounterOf(test.message->text), 1u);
    }
    EXPECT_EQ(SumOfFields(stats), stats.infAvtpPacketsReceived + stats.infTsPacketsDelivered +
                                      stats.infFramesTaken + (test.message ? 1u : 0u));
    EXPECT_EQ(mSink.mBatches.size(), IsSent() ? 3u : 2u);
}

INSTANTIATE_TEST_SUITE_P(Table, AvtpSourceFrameTest, testing::ValuesIn(cFrameCases),
                         [](const auto& row) { return row.param.name; });

TEST_F(AvtpSourceTest, FullFrameYieldsSevenPackets) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.firstPacket = 3, .blocks = 56})});
    ExpectPackets({3, 4, 5, 6, 7, 8, 9});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpSourceTest, SequenceNumbersMayStartAnywhereAndWrap) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 254, .dataBlockCount = 240, .firstPacket = 0}),
             AvtpFrame({.sequenceNumber = 255, .dataBlockCount = 248, .firstPacket = 1}),
             AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 0, .firstPacket = 2})});
    ExpectPackets({0, 1, 2});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpSourceTest, AfterALostFrameTheNewBlockCountIsAdopted) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 7, .dataBlockCount = 0, .firstPacket = 0, .blocks = 56}),
             AvtpFrame({.sequenceNumber = 9, .dataBlockCount = 112, .firstPacket = 14, .blocks = 56})});
    ExpectPackets({0, 1, 2, 3, 4, 5, 6, 14, 15, 16, 17, 18, 19, 20});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "sequence number mismatch, got 9, exp. 8"}));
}

TEST_F(AvtpSourceTest, AJumpOfTheBlockCountAloneIsReported) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 0, .firstPacket = 0, .blocks = 12}),
             AvtpFrame({.sequenceNumber = 1, .dataBlockCount = 16, .firstPacket = 5})});
    ExpectPackets({0, 5});
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEWARN, "DBC mismatch, got 16, exp. 12"}));
    EXPECT_EQ(mSource.QuerryStatistics().errGaps, 1u);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mSource.StopSource();
    EXPECT_EQ(SumOfFields(mSource.QuerryStatistics()), 0u); // since the last start
}

TEST_F(AvtpSourceTest, ARepeatedFrameIsAMismatchAndItsPacketsComeTwice) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    const FrameBytes frame = AvtpFrame({.sequenceNumber = 5, .dataBlockCount = 40, .firstPacket = 1});
    Receive({frame, frame});
    ExpectPackets({1, 1});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "sequence number mismatch, got 5, exp. 6"}));
}

// A source packet that begins in one frame and ends in the next one, at every block.
class AvtpSourceSplitTest : public AvtpSourceTest, public testing::WithParamInterface<unsigned> {};

TEST_P(AvtpSourceSplitTest, IsPutTogether) {
    const unsigned split = GetParam();
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 0, .firstPacket = 0, .blocks = 8 + split}),
             AvtpFrame({.sequenceNumber = 1,
                        .dataBlockCount = static_cast<std::uint8_t>(8 + split),
                        .firstPacket = 1,
                        .firstBlock = split,
                        .blocks = 16 - split})});
    ExpectPackets({0, 1, 2});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_P(AvtpSourceSplitTest, IsPassedOverWhenItsStartWasNotSeen) {
    const unsigned split = GetParam();
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.dataBlockCount = static_cast<std::uint8_t>(split),
                        .firstPacket = 1,
                        .firstBlock = split,
                        .blocks = 16 - split})});
    ExpectPackets(split == 0 ? std::vector<unsigned>{1, 2} : std::vector<unsigned>{2});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Blocks, AvtpSourceSplitTest, testing::Range(0u, 8u));

// Two streams at once, without a filter: each change of stream is a jump. Only packets whose blocks are all
// in one frame come through.
TEST_F(AvtpSourceTest, InterleavedStreamsDisturbEachOther) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive(
        {AvtpFrame({.sequenceNumber = 10, .dataBlockCount = 0, .firstPacket = 0, .blocks = 12}),
         AvtpFrame({.sequenceNumber = 90, .dataBlockCount = 80, .firstPacket = 50, .uniqueId = 0x1235}),
         AvtpFrame(
             {.sequenceNumber = 11, .dataBlockCount = 12, .firstPacket = 1, .firstBlock = 4, .blocks = 12}),
         AvtpFrame({.sequenceNumber = 91, .dataBlockCount = 88, .firstPacket = 51, .uniqueId = 0x1235})});
    ExpectPackets({0, 50, 2, 51}); // packet 1 was cut by the other stream
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "sequence number mismatch, got 90, exp. 11"},
                            CapturedMessage{KEWARN, "sequence number mismatch, got 11, exp. 91"},
                            CapturedMessage{KEWARN, "sequence number mismatch, got 91, exp. 12"}));
    EXPECT_EQ(mSource.QuerryStatistics().infAvtpPacketsReceived, 4u);
}

TEST_F(AvtpSourceTest, OneOfTwoInterleavedStreamsIsFollowedByItsId) {
    ASSERT_EQ(Create(cAnySender, true), KESTATUS_SUCCESS);
    Receive(
        {AvtpFrame({.sequenceNumber = 10, .dataBlockCount = 0, .firstPacket = 0, .blocks = 12}),
         AvtpFrame({.sequenceNumber = 90, .dataBlockCount = 80, .firstPacket = 50, .uniqueId = 0x1235}),
         AvtpFrame(
             {.sequenceNumber = 11, .dataBlockCount = 12, .firstPacket = 1, .firstBlock = 4, .blocks = 12})});
    ExpectPackets({0, 1, 2});
    EXPECT_THAT(mLog.Texts(), ElementsAre("unique ID mismatch, got 4661, exp. 4660"));
}

TEST_F(AvtpSourceTest, AsksTheDeviceForFramesOfEthernetsSizeWithoutATimeLimit) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({})});
    EXPECT_THAT(mFake.Calls(),
                testing::IsSupersetOf({"WaitForRawFrame(101, -1)", "GetReceivedRawFrame(101, 1518)"}));
    EXPECT_FALSE(mFake.IsFrameTypeAsked());
}

// The frame fills the buffer, and the device reports a greater length.
TEST_F(AvtpSourceTest, ALengthBeyondTheBufferIsCutToIt) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    FrameBytes frame = AvtpFrame({.blocks = 61});
    frame.resize(1518);
    mFake.SetExcessLength(100);
    Receive({frame});
    EXPECT_THAT(mLog.Texts(), ElementsAre("stream data length mismatch, got 1472, exp. 1480"));
}

TEST_F(AvtpSourceTest, AFailingSinkIsReportedAndReceptionGoesOn) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mSink.mOnDeliver = [] { return KESTATUS_FAILED; };
    mSink.mOnSend = [] { return KESTATUS_BUSY; };
    Receive({AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 0, .firstPacket = 0}),
             AvtpFrame({.sequenceNumber = 1, .dataBlockCount = 8, .firstPacket = 1})});
    ExpectPackets({0, 1});
    EXPECT_EQ(mSource.QuerryStatistics().infTsPacketsDelivered, 2u);
    EXPECT_EQ(mLog.Count(KEERROR, "DeliverTSPacket failed, st=0xe0000001(KESTATUS_FAILED)"), 2u);
    EXPECT_EQ(mLog.Count(KEERROR, "SendDeliveredPackets failed, st=0xe0000007(KESTATUS_BUSY)"), 2u);
}

} // namespace
