// Creating an AVTP sink, and the frames that it sends, byte by byte.

#include <cstdint>

#include "streaming/AvtpSinkFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using AvtpFrameTest = AvtpSinkTest;

TEST_F(AvtpFrameTest, CreateReadsTheMacAddressAndWhereLossesAreCountedFrom) {
    EXPECT_EQ(Create(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre("GetDevicePropertyBinary(101, 33040, 6)",   // 0x8110
                                           "GetDevicePropertyBinary(101, 33265, 8)")); // 0x81F1
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpFrameTest, CreatePassesAFailureOn) {
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_TIMEOUT});
    EXPECT_EQ(Create(), KESTATUS_TIMEOUT);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{
                    KEERROR, "GetDevicePropertyBinary failed, st=0xe0000003(KESTATUS_TIMEOUT)"}));
}

TEST_F(AvtpFrameTest, CreateRefusesAMacAddressOfAnotherLength) {
    for (const std::size_t length : {0u, 5u, 7u, 8u}) {
        FakeInstance instance;
        instance.macAddress.assign(length, 0xAA);
        mFake.SetInstances({instance});
        mLog.Clear();
        EXPECT_EQ(Create(), KESTATUS_LENGTH_MISMATCH);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(CapturedMessage{KEERROR, "MAC address length mismatch, got " +
                                                             std::to_string(length) + ", exp 6"}));
    }
}

TEST_F(AvtpFrameTest, AFullFrame) {
    CreateAndStart();
    EXPECT_EQ(Deliver(6), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), IsEmpty());
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre("CheckSubmitRawFrame(101, 1390)", "SubmitRawFrame(101, 1390)"));
    ExpectFrames({{0, 0, {0, 1, 2, 3, 4, 5, 6}}});
    ExpectStatistics(1, 0);
    EXPECT_FALSE(mFake.IsReservedUsed());
    // The frame was full: nothing is left to send, and nothing is flushed.
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(mFake.CallCount(Qbx::SendRawFrames), 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

// The tag is sent as it was given; 0 means no tag.
TEST_F(AvtpFrameTest, VlanTags) {
    const std::vector<std::uint16_t> tags = {0x0000, 0x6002, 0x0001, 0xE000, 0xFFFE};
    for (const std::uint16_t vlanTCI : tags) {
        SCOPED_TRACE(vlanTCI);
        CreateAndStart(vlanTCI);
        mNextOrdinal = 0;
        EXPECT_EQ(Deliver(8), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
        const std::vector<FakeFrame> frames = mFake.SubmittedFrames();
        ASSERT_GE(frames.size(), 2u);
        EXPECT_EQ(frames[frames.size() - 2], ExpectedFrame({0, 0, {0, 1, 2, 3, 4, 5, 6}}));
        EXPECT_EQ(frames.back(), ExpectedFrame({1, 56, {7}}));
        EXPECT_EQ(frames[frames.size() - 2].size(), vlanTCI != 0 ? 1394u : 1390u);
    }
    EXPECT_EQ(mFake.SubmittedFrames().size(), 2 * tags.size());
}

TEST_F(AvtpFrameTest, APartFilledFrame) {
    CreateAndStart();
    EXPECT_EQ(Deliver(3), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(1), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS); // nothing gathered
    ExpectFrames({{0, 0, {0, 1, 2}}, {1, 24, {3}}});
    EXPECT_EQ(mFake.SubmittedFrames()[0][14 + 20], 584 / 256); // stream data length
    EXPECT_EQ(mFake.SubmittedFrames()[0][14 + 21], 584 % 256);
    EXPECT_THAT(mFake.Calls(), ElementsAre("CheckSubmitRawFrame(101, 622)", "SubmitRawFrame(101, 622)",
                                           "SendRawFrames(101)", "CheckSubmitRawFrame(101, 238)",
                                           "SubmitRawFrame(101, 238)", "SendRawFrames(101)"));
    EXPECT_EQ(mFake.SentFrameCount(), 2u);
}

// Seven packets fit; 0 and higher numbers mean seven.
TEST_F(AvtpFrameTest, PacketsPerFrame) {
    for (const unsigned requested : {0u, 1u, 2u, 6u, 7u, 8u, 100u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(requested);
        const unsigned expected = requested == 0 || requested > 7 ? 7 : requested;
        CreateAndStart(0x6002, requested);
        const std::size_t before = mFake.SubmittedFrames().size();
        EXPECT_EQ(Deliver(expected - 1), KESTATUS_SUCCESS);
        EXPECT_EQ(mFake.SubmittedFrames().size(), before);
        EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
        ASSERT_EQ(mFake.SubmittedFrames().size(), before + 1);
        EXPECT_EQ(mFake.SubmittedFrames().back().size(), 18 + 24 + 8 + 192 * expected);
    }
    EXPECT_EQ(AvtpSink::MaxStreamDataPayloadLength, 1468u);
}

// 300 frames of seven packets. Each counter is modulo 256.
TEST_F(AvtpFrameTest, CountersWrap) {
    CreateAndStart();
    EXPECT_EQ(Deliver(300 * 7), KESTATUS_SUCCESS);
    std::vector<FrameSpec> specs;
    for (unsigned i = 0; i < 300; ++i) {
        specs.push_back({static_cast<std::uint8_t>(i % 256), static_cast<std::uint8_t>(i * 56 % 256), {}});
        for (unsigned k = 0; k < 7; ++k) {
            specs.back().packets.push_back(i * 7 + k);
        }
    }
    ExpectFrames(specs);
    EXPECT_EQ(mFake.SubmittedFrames()[255][14 + 2], 255);
    EXPECT_EQ(mFake.SubmittedFrames()[256][14 + 2], 0);
    ExpectStatistics(300, 0);
}

TEST_F(AvtpFrameTest, SourcePacketHeaderIsTheLowHalfOfTheTime) {
    CreateAndStart(0, 1);
    const std::pair<std::int64_t, std::vector<std::uint8_t>> cases[] = {
        {0, {0, 0, 0, 0}},
        {0x0000000112345678, {0x12, 0x34, 0x56, 0x78}},
        {0x7FFFFFFFFFFFFFFF, {0xFF, 0xFF, 0xFF, 0xFF}},
        {-1, {0xFF, 0xFF, 0xFF, 0xFF}},
        {-0x100000000, {0, 0, 0, 0}},
    };
    for (const auto& [time, bytes] : cases) {
        TSPacket packet;
        packet.mDeliverTime = TSPacketTimePoint(TSPacketDuration(time));
        ASSERT_EQ(mSink.DeliverTSPacket(packet), KESTATUS_SUCCESS);
        const FakeFrame frame = mFake.SubmittedFrames().back();
        EXPECT_EQ(std::vector<std::uint8_t>(frame.begin() + 46, frame.begin() + 50), bytes) << time;
    }
}

// A start begins a new stream and discards a part-filled frame. The statistics go on.
TEST_F(AvtpFrameTest, StartResets) {
    CreateAndStart();
    EXPECT_EQ(Deliver(8), KESTATUS_SUCCESS);
    mSink.StopSink();
    EXPECT_EQ(mFake.SubmittedFrames().size(), 1u);
    EXPECT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(7), KESTATUS_SUCCESS);
    ExpectFrames({{0, 0, {0, 1, 2, 3, 4, 5, 6}}, {0, 0, {8, 9, 10, 11, 12, 13, 14}}});
    ExpectStatistics(2, 0);
}

TEST_F(AvtpFrameTest, AStartDoesNotWaitForResourcesOfTheLastStream) {
    CreateAndStart(0, 1);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mFake.CallCount(Qbx::WaitForTxResources), 0u);
    ExpectFrames({{0, 0, {1}}});
    ExpectStatistics(1, 1);
}

TEST_F(AvtpFrameTest, ASinkThatWasNotCreatedHasNoHeaderType) {
    AvtpSink sink;
    EXPECT_EQ(sink.DeliverTSPacket(TSPacket()), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(sink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(sink.StartSink(), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEFATAL, "unsupported Ethernet header type 0"}));
    EXPECT_EQ(sink.DeliverTSPacket(TSPacket()), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(sink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(Create(), KESTATUS_SUCCESS); // created, but not started
    EXPECT_EQ(Deliver(), KESTATUS_NOT_INITIALIZED);
}

TEST(EthernetHeaderTypeTest, PrintsItsNumber) {
    EXPECT_EQ(KEStdStringFormat("{} {} {:3}", EthernetHeaderType::Undefined, EthernetHeaderType::IEEE_802_3,
                                EthernetHeaderType::IEEE_802_1q),
              "0 1   2");
}
