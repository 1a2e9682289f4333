// What the AVTP source makes of every kind of frame: log line, counters, and the packets that reach the sink.

#include "streaming/AvtpSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "SystemCallFaults.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/KeepingSink.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr TNET_EthernetMacAddress cAnySender{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
constexpr TNET_EthernetMacAddress cTalker{{0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE}};

class AvtpSourceTest : public testing::Test {
protected:
    AvtpSourceTest() {
        mFake.Reset();
        unsigned count = 0;
        EXPECT_EQ(mEnumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        EXPECT_EQ(mDevice.OpenRawRxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    }

    KESTATUS Create(const TNET_EthernetMacAddress& sender = cAnySender, bool filterByUniqueId = false) {
        return mSource.CreateAvtpSource(mDevice, mSink, sender, 0x1234, filterByUniqueId);
    }

    // Runs the source until it has taken these frames and found no more.
    void Receive(const std::vector<FrameBytes>& frames) {
        const std::size_t callsBefore = mFake.CallCount(Qbx::GetReceivedRawFrame);
        for (const FrameBytes& frame : frames) {
            mFake.QueueReceivedFrame(frame);
        }
        ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        const auto taken = [&] { return mFake.CallCount(Qbx::GetReceivedRawFrame) - callsBefore; };
        ASSERT_TRUE(WaitUntil([&] { return taken() >= frames.size() + 1; }, taken));
        mSource.StopSource();
    }

    void ExpectPackets(const std::vector<unsigned>& ordinals) const {
        std::vector<FrameBytes> expected;
        expected.reserve(ordinals.size());
        for (const unsigned ordinal : ordinals) {
            expected.push_back(PacketBytes(ordinal));
        }
        EXPECT_EQ(mSink.mPackets, expected);
    }

    FakeDevice& mFake = FakeDevice::Instance();
    QuaysideEnumerator mEnumerator;
    QuaysideDevice mDevice;
    KeepingSink mSink;
    LogCapture mLog;
    AvtpSource mSource;
};

// One frame between a good one before (packet 0) and one after (packet 20); all three in sequence unless the
// row says otherwise.
struct FrameCase {
    const char* name;
    std::function<void(FrameBytes&)> spoil;
    KELogLevel level;
    const char* line; // null: no line at all
    bool isCounted;   // as a received AVTP packet
    bool isDelivered; // its packet 10
    bool isSent;      // SendDeliveredPackets after it
    bool isReset;     // the assembler: seen from what follows
    bool isTagged = false;
    TNET_EthernetMacAddress sender = cAnySender;
    bool filterByUniqueId = false;
};

void PrintTo(const FrameCase& test, std::ostream* stream) {
    *stream << test.name;
}

std::function<void(FrameBytes&)> SetByte(std::size_t offset, std::uint8_t value) {
    return [=](FrameBytes& frame) { frame[offset] = value; };
}

std::function<void(FrameBytes&)> SetBytes(std::size_t offset, const std::vector<std::uint8_t>& values) {
    return [=](FrameBytes& frame) {
        std::copy(values.begin(), values.end(), frame.begin() + static_cast<std::ptrdiff_t>(offset));
    };
}

std::function<void(FrameBytes&)> CutTo(std::size_t length) {
    return [=](FrameBytes& frame) { frame.resize(length); };
}

// Cut within the CIP header or the data, with a stream data length that agrees.
std::function<void(FrameBytes&)> CutDataTo(std::uint16_t streamDataLength) {
    return [=](FrameBytes& frame) {
        frame.resize(14u + 24 + streamDataLength);
        frame[34] = static_cast<std::uint8_t>(streamDataLength >> 8);
        frame[35] = static_cast<std::uint8_t>(streamDataLength);
    };
}

const std::vector<std::uint8_t> cOwnAddress = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

const FrameCase cFrameCases[] = {
    {"Good", [](FrameBytes&) {}, KEINFO, nullptr, true, true, true, false},
    {"GoodTagged", [](FrameBytes&) {}, KEINFO, nullptr, true, true, true, false, true},
    {"TagControlIsNotLookedAt", SetBytes(14, {0xFF, 0xFF}), KEINFO, nullptr, true, true, true, false, true},
    // Ethernet header.
    {"Empty", CutTo(0), KEERROR, "frame length 0 too small, min. 14", false, false, false, true},
    {"ThirteenBytes", CutTo(13), KEERROR, "frame length 13 too small, min. 14", false, false, false, true},
    {"OwnAddress", SetBytes(0, cOwnAddress), KEINFO, nullptr, true, true, true, false},
    {"OtherUnicast", SetBytes(0, {0x00, 0x11, 0x22, 0x33, 0x44, 0x56}), KEINFO,
     "destination MAC address mismatch", false, false, false, false},
    {"Multicast", SetBytes(0, {0x01, 0x00, 0x5E, 0x00, 0x00, 0x01}), KEINFO,
     "ignore frame with multicast MAC address", false, false, false, false},
    {"AvtpMulticast", SetBytes(0, {0x91, 0xE0, 0xF0, 0x00, 0x0E, 0x80}), KEINFO,
     "ignore frame with multicast MAC address", false, false, false, false},
    {"FilteredSender", [](FrameBytes&) {}, KEINFO, nullptr, true, true, true, false, false, cTalker},
    {"OtherSender", SetByte(11, 0xEF), KEINFO, "source MAC address mismatch", false, false, false, false,
     false, cTalker},
    {"AnySender", SetByte(11, 0xEF), KEINFO, nullptr, true, true, true, false},
    {"OtherEtherType", SetBytes(12, {0x08, 0x00}), KEINFO, "ignore frame with unsupported EtherType 0x0800",
     false, false, false, false},
    {"OtherEtherTypeTagged", SetBytes(16, {0x08, 0xAB}), KEINFO,
     "ignore frame with unsupported EtherType 0x08AB", false, false, false, false, true},
    {"SecondTag", SetBytes(16, {0x81, 0x00}), KEINFO, "ignore frame with unsupported EtherType 0x8100", false,
     false, false, false, true},
    {"SeventeenBytesTagged", CutTo(17), KEERROR, "VLAN frame length 17 too small, min. 18", false, false,
     false, true, true},
    // AVTP header.
    {"EthernetHeaderOnly", CutTo(14), KEERROR, "AVTP packet length 0 too small, min. 24", false, false, false,
     true},
    {"AvtpHeaderCut", CutTo(37), KEERROR, "AVTP packet length 23 too small, min. 24", false, false, false,
     true},
    {"Subtype", SetByte(14, 0x02), KEINFO, "ignore unsupported subtype 0x02", false, false, false, false},
    {"SubtypeAllOnes", SetByte(14, 0xFF), KEINFO, "ignore unsupported subtype 0xFF", false, false, false,
     false},
    {"Version1", SetByte(15, 0x90), KEINFO, "ignore unsupported version 1", false, false, false, false},
    {"Version7", SetByte(15, 0xF0), KEINFO, "ignore unsupported version 7", false, false, false, false},
    {"NoStreamId", SetByte(15, 0x00), KEINFO, nullptr, true, true, true, false},
    {"NoStreamIdFiltered", SetByte(15, 0x00), KEWARN, "ignore packet with invalid StreamID", false, false,
     false, false, false, cAnySender, true},
    {"UniqueIdFiltered", [](FrameBytes&) {}, KEINFO, nullptr, true, true, true, false, false, cAnySender,
     true},
    {"OtherUniqueId", SetBytes(24, {0x12, 0x35}), KEINFO, nullptr, true, true, true, false},
    {"OtherUniqueIdFiltered", SetBytes(24, {0x12, 0x35}), KEINFO, "unique ID mismatch, got 4661, exp. 4660",
     false, false, false, false, false, cAnySender, true},
    {"AddressOfTheStreamIdIsNotLookedAt", SetByte(18, 0x77), KEINFO, nullptr, true, true, true, false, false,
     cTalker, true},
    {"FlagsThatAreNotChecked", SetByte(15, 0x8B), KEINFO, nullptr, true, true, true, false},
    {"FieldsThatAreNotChecked", SetBytes(26, {1, 2, 3, 4, 5, 6, 7, 8}), KEINFO, nullptr, true, true, true,
     false},
    {"TagAndTcodeAreNotChecked", SetBytes(36, {0x00, 0x00}), KEINFO, nullptr, true, true, true, false},
    {"DataLengthOneTooSmall", SetBytes(34, {0x00, 0xC7}), KEWARN,
     "stream data length mismatch, got 199, exp. 200", false, false, false, true},
    {"DataLengthOneTooLarge", SetBytes(34, {0x00, 0xC9}), KEWARN,
     "stream data length mismatch, got 201, exp. 200", false, false, false, true},
    {"PaddedByOne", [](FrameBytes& frame) { frame.push_back(0); }, KEWARN,
     "stream data length mismatch, got 200, exp. 201", false, false, false, true},
    {"AvtpHeaderOnly", CutDataTo(0), KEERROR, "CIP length 0 too small, min. 8", true, false, false, true},
    {"CipHeaderCut", CutDataTo(7), KEERROR, "CIP length 7 too small, min. 8", true, false, false, true},
    // CIP header.
    {"CipHeaderOnly", CutDataTo(8), KEINFO, nullptr, true, false, true, false},
    {"Dbs", SetByte(39, 5), KEINFO, "ignore unsupported DBS 5", true, false, false, true},
    {"Fn", SetByte(40, 0x84), KEINFO, "ignore unsupported FN 2", true, false, false, true},
    {"NoSph", SetByte(40, 0xC0), KEINFO, "ignore data without source packet header", true, false, false,
     true},
    {"QpcIsNotChecked", SetByte(40, 0xFC), KEINFO, nullptr, true, true, true, false},
    {"Fmt", SetByte(42, 0x90), KEINFO, "ignore unsupported FMT 16", true, false, false, true},
    {"Qi2IsNotChecked", SetByte(42, 0x20), KEINFO, nullptr, true, true, true, false},
    {"SidAndFdfAreNotChecked", SetByte(38, 0x00), KEINFO, nullptr, true, true, true, false},
    {"OneByteShort", CutDataTo(199), KEWARN,
     "unexpected byte count 191 not multiple of data block size (24 bytes)", true, false, false, true},
    {"OneByteOfData", CutDataTo(9), KEWARN,
     "unexpected byte count 1 not multiple of data block size (24 bytes)", true, false, false, true},
};

class AvtpSourceFrame : public AvtpSourceTest, public testing::WithParamInterface<FrameCase> {};

TEST_P(AvtpSourceFrame, IsTakenOrIgnored) {
    const FrameCase& test = GetParam();
    ASSERT_EQ(Create(test.sender, test.filterByUniqueId), KESTATUS_SUCCESS);
    // The first frame ends in the middle of packet 1, so that it shows whether the assembler was reset: the
    // last frame brings the rest of that packet, which is worth something only to one that was not.
    const bool continues = test.isDelivered;
    AvtpFrameSpec before{.sequenceNumber = 254, .dataBlockCount = 248, .firstPacket = 0, .blocks = 12};
    AvtpFrameSpec middle{
        .sequenceNumber = 255, .dataBlockCount = 0, .firstPacket = 10, .isTagged = test.isTagged};
    AvtpFrameSpec after{
        .sequenceNumber = 255, .dataBlockCount = 4, .firstPacket = 1, .firstBlock = 4, .blocks = 12};
    if (continues) {
        before.blocks = 8;
        after = {.sequenceNumber = 0, .dataBlockCount = 8, .firstPacket = 20, .blocks = 8};
    }
    FrameBytes spoilt = AvtpFrame(middle);
    if (!continues) {
        // Its data block counter would be the next one.
        spoilt[(test.isTagged ? 18u : 14u) + 27] = 4;
    }
    test.spoil(spoilt);
    const bool movesSequence =
        test.isCounted || (test.line && std::string(test.line).starts_with("stream data length"));
    after.sequenceNumber = movesSequence ? 0 : 255;
    Receive({AvtpFrame(before), spoilt, AvtpFrame(after)});

    if (test.line) {
        EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{test.level, test.line}));
    } else {
        EXPECT_THAT(mLog.Messages(), IsEmpty());
    }
    if (continues) {
        ExpectPackets({0, 10, 20});
    } else if (test.isReset) {
        ExpectPackets({0, 2}); // packet 1 was forgotten, its second half is passed over
    } else {
        ExpectPackets({0, 1, 2});
    }
    const AvtpSource::Statistics stats = mSource.QuerryStatistics();
    EXPECT_EQ(stats.infAvtpPacketsReceived, test.isCounted ? 3u : 2u);
    EXPECT_EQ(stats.infTsPacketsDelivered, mSink.mPackets.size());
    EXPECT_EQ(mSink.mSendCalls, test.isSent ? 3u : 2u);
}

INSTANTIATE_TEST_SUITE_P(Table, AvtpSourceFrame, testing::ValuesIn(cFrameCases),
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
class AvtpSourceSplit : public AvtpSourceTest, public testing::WithParamInterface<unsigned> {};

TEST_P(AvtpSourceSplit, IsPutTogether) {
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

TEST_P(AvtpSourceSplit, IsPassedOverWhenItsStartWasNotSeen) {
    const unsigned split = GetParam();
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.dataBlockCount = static_cast<std::uint8_t>(split),
                        .firstPacket = 1,
                        .firstBlock = split,
                        .blocks = 16 - split})});
    ExpectPackets(split == 0 ? std::vector<unsigned>{1, 2} : std::vector<unsigned>{2});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Blocks, AvtpSourceSplit, testing::Range(0u, 8u));

// Two streams at once, and nobody tells them apart: each change of stream is a jump. Only packets whose
// blocks stand in one frame come through.
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

// A frame that fills the buffer, of which the device says that it is longer.
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
    mSink.mDeliverStatus = KESTATUS_FAILED;
    mSink.mSendStatus = KESTATUS_BUSY;
    Receive({AvtpFrame({.sequenceNumber = 0, .dataBlockCount = 0, .firstPacket = 0}),
             AvtpFrame({.sequenceNumber = 1, .dataBlockCount = 8, .firstPacket = 1})});
    ExpectPackets({0, 1});
    EXPECT_EQ(mSource.QuerryStatistics().infTsPacketsDelivered, 2u);
    EXPECT_EQ(mLog.Count(KEERROR, "DeliverTSPacket failed, st=0xe0000001(KESTATUS_FAILED)"), 2u);
    EXPECT_EQ(mLog.Count(KEERROR, "SendDeliveredPackets failed, st=0xe0000007(KESTATUS_BUSY)"), 2u);
}

TEST_F(AvtpSourceTest, CreateReportsTheDevicesAddress) {
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_NOT_FOUND});
    EXPECT_EQ(Create(), KESTATUS_NOT_FOUND);
    FakeInstance instance;
    instance.macAddress = {1, 2, 3, 4, 5};
    mFake.SetInstances({instance});
    EXPECT_EQ(Create(), KESTATUS_LENGTH_MISMATCH);
    EXPECT_THAT(mLog.Texts(), ElementsAre("GetDevicePropertyBinary failed, st=0xe0000039(KESTATUS_NOT_FOUND)",
                                          "MAC address length mismatch, got 5, exp 6"));
    EXPECT_EQ(mSource.StartSource(), KESTATUS_NOT_INITIALIZED);
}

TEST_F(AvtpSourceTest, StartReportsWhatFails) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::EnableRawRx, {KESTATUS_DEVICE_REMOVED});
    EXPECT_EQ(mSource.StartSource(), KESTATUS_DEVICE_REMOVED);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{
                                     KEERROR, "EnableRawRx failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED)"}));
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 0u);
}

TEST_F(AvtpSourceTest, AThreadThatCannotBeCreatedLeavesReceptionOff) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_create", EAGAIN);
        EXPECT_EQ(mSource.StartSource(), KEStatusFromErrno(EAGAIN));
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_EQ(mLog.Texts().back(), KEStdStringFormat("CreateThread failed, st={}",
                                                     KEFormatArgKEStatus(KEStatusFromErrno(EAGAIN))));
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mLog.Clear();
    Receive({AvtpFrame({.firstPacket = 3})}); // a later start works
    ExpectPackets({3});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpSourceTest, StartingTwiceLeavesTheFirstStartAlone) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.StartSource(), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(mFake.CallCount(Qbx::EnableRawRx), 1u);
    mFake.QueueReceivedFrame(AvtpFrame({.firstPacket = 4}));
    ASSERT_TRUE(WaitUntil([&] { return mSource.QuerryStatistics().infTsPacketsDelivered == 1; }));
    mSource.StopSource();
    ExpectPackets({4});
}

TEST_F(AvtpSourceTest, EachStartBeginsAnew) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 9, .dataBlockCount = 0, .firstPacket = 0, .blocks = 12})});
    Receive({AvtpFrame({.sequenceNumber = 100, .dataBlockCount = 64, .firstPacket = 7})});
    ExpectPackets({0, 7});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    EXPECT_EQ(mSource.QuerryStatistics().infAvtpPacketsReceived, 1u);
}

TEST_F(AvtpSourceTest, StopWakesAThreadThatWaitsWithoutLimit) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mFake.CallCount(Qbx::WaitForRawFrame) == 1; }));
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

// The worker is behind when the stop comes: disabling reception has to wait, since it discards what the
// worker has not taken.
TEST_F(AvtpSourceTest, WhatWasReceivedBeforeTheStopIsForwarded) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    std::atomic<bool> mayGoOn{false};
    std::atomic<bool> isDelivering{false};
    mSink.mOnDeliver = [&] {
        isDelivering.store(true);
        EXPECT_TRUE(WaitUntil([&] { return mayGoOn.load(); }));
    };
    for (std::uint8_t i = 0; i < 20; ++i) {
        mFake.QueueReceivedFrame(AvtpFrame(
            {.sequenceNumber = i, .dataBlockCount = static_cast<std::uint8_t>(8 * i), .firstPacket = i}));
    }
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return isDelivering.load(); }));
    std::thread stop([&] { mSource.StopSource(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // time to do it wrong
    mayGoOn.store(true);
    stop.join();
    EXPECT_EQ(mSink.mPackets.size(), 20u);
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
}

// Frames that never end do not hold up the stop for ever.
TEST_F(AvtpSourceTest, StopsWhileFramesKeepComing) {
    VirtualClock clock; // its second passes at once
    AvtpSource source(clock);
    ASSERT_EQ(source.CreateAvtpSource(mDevice, mSink, cAnySender, 0, false), KESTATUS_SUCCESS);
    const FrameBytes frame = AvtpFrame({});
    std::atomic<unsigned> deliveries{0};
    mSink.mOnDeliver = [&] {
        ++deliveries;
        mSink.mPackets.clear();
        mFake.QueueReceivedFrame(frame);
    };
    mFake.QueueReceivedFrame(frame);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return deliveries.load() > 100; }));
    source.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
}

// The number of lost frames is asked for by the worker, which alone uses the device.
TEST_F(AvtpSourceTest, LostFramesArePublishedOnceASecond) {
    mFake.SetLostFrames(1000); // from before: not the source's
    VirtualClock clock;
    AvtpSource source(clock);
    ASSERT_EQ(source.CreateAvtpSource(mDevice, mSink, cAnySender, 0, false), KESTATUS_SUCCESS);
    const auto asked = [&] { return mFake.CallCount(Qbx::GetDevicePropertyBinary); };
    const std::size_t before = asked();
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    std::size_t taken = 0;
    const auto receiveOne = [&] {
        ++taken;
        mFake.QueueReceivedFrame(AvtpFrame({}));
        ASSERT_TRUE(WaitUntil([&] { return mFake.CallCount(Qbx::WaitForRawFrame) > taken; }));
    };
    mFake.SetLostFrames(1004);
    clock.Sleep(999);
    receiveOne();
    EXPECT_EQ(asked(), before);
    EXPECT_EQ(source.LostFrames(), 0u);
    clock.Sleep(1);
    EXPECT_EQ(source.LostFrames(), 0u); // who asks the source does not ask the device
    EXPECT_EQ(asked(), before);
    receiveOne();
    EXPECT_EQ(asked(), before + 1);
    EXPECT_EQ(source.LostFrames(), 4u);
    mFake.SetLostFrames(1009);
    source.StopSource();
    EXPECT_EQ(source.LostFrames(), 9u);
    EXPECT_EQ(asked(), before + 2);
}

TEST_F(AvtpSourceTest, LostFramesAreExactWhenTheWorkerGivesUp) {
    mFake.SetLostFrames(0);
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mFake.SetLostFrames(6);
    mFake.Queue(Qbx::GetReceivedRawFrame, {KESTATUS_DEVICE_REMOVED});
    mFake.QueueReceivedFrame(AvtpFrame({}));
    ASSERT_TRUE(WaitUntil([&] { return mSource.FailureStatus() != KESTATUS_SUCCESS; }));
    EXPECT_EQ(mSource.LostFrames(), 6u);
}

TEST_F(AvtpSourceTest, StopGoesOnWhenReceptionCannotBeDisabled) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForRawFrame, {KESTATUS_DEVICE_REMOVED}); // the thread has ended by itself
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mLog.Texts().size() == 1; }));
    mFake.Queue(Qbx::DisableRawRx, {KESTATUS_HARDWARE_ERROR});
    mSource.StopSource();
    EXPECT_EQ(mLog.Count(KEERROR, "DisableRawRx failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR)"), 1u);
}

struct DeviceFailureCase {
    Qbx function;
    std::vector<KESTATUS> answers;
    std::vector<std::string> lines;
};

class AvtpSourceDeviceFailure : public AvtpSourceTest,
                                public testing::WithParamInterface<DeviceFailureCase> {};

TEST_P(AvtpSourceDeviceFailure, EndsTheThread) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(GetParam().function, GetParam().answers);
    mFake.QueueReceivedFrame(AvtpFrame({}));
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mLog.Texts().size() >= GetParam().lines.size(); }));
    mSource.StopSource();
    EXPECT_THAT(mLog.Texts(), ElementsAreArray(GetParam().lines));
    EXPECT_EQ(mLog.CountContaining(KEERROR, ""), GetParam().lines.size());
    ExpectPackets({});
}

INSTANTIATE_TEST_SUITE_P(
    Table, AvtpSourceDeviceFailure,
    testing::Values(
        DeviceFailureCase{Qbx::WaitForRawFrame,
                          {KESTATUS_NOT_ENABLED, KESTATUS_NOT_ENABLED, KESTATUS_DEVICE_REMOVED},
                          {"WaitForRawFrame failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED), stop thread"}},
        DeviceFailureCase{Qbx::WaitForRawFrame,
                          {KESTATUS_TIMEOUT},
                          {"WaitForRawFrame failed, st=0xe0000003(KESTATUS_TIMEOUT), stop thread"}},
        DeviceFailureCase{Qbx::GetReceivedRawFrame,
                          {KESTATUS_HARDWARE_ERROR},
                          {"GetReceivedRawFrame failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR)",
                           "ProcessData failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR), stop thread"}}));

} // namespace
