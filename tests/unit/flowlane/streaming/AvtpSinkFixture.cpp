#include "streaming/AvtpSinkFixture.h"

#include <initializer_list>
#include <iterator>

namespace testsupport {

using namespace flowlane;

namespace {

constexpr std::int64_t TimeOf(unsigned ordinal) {
    return 0x12345678ABCD0000 + ordinal * std::int64_t{0x01010101};
}

} // namespace

void FillPacket(TSPacket& packet, unsigned ordinal) {
    for (unsigned i = 0; i < sizeof packet.mData; ++i) {
        packet.mData[i] = static_cast<std::uint8_t>(ordinal * 31 + i);
    }
    packet.mData[0] = 0x47;
    packet.mDeliverTime = TSPacketTimePoint(TSPacketDuration(TimeOf(ordinal)));
}

AvtpSinkTest::AvtpSinkTest() {
    OpenToSend();
    mFake.ClearCalls();
}

void AvtpSinkTest::CreateAndStart(std::uint16_t vlanTCI, unsigned maxSourcePacketCount) {
    ASSERT_EQ(Create(vlanTCI, maxSourcePacketCount), KESTATUS_SUCCESS);
    ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    mFake.ClearCalls();
}

KESTATUS AvtpSinkTest::Deliver(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        TSPacket packet;
        FillPacket(packet, mNextOrdinal++);
        const KESTATUS st = mSink.DeliverTSPacket(packet);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    return KESTATUS_SUCCESS;
}

FakeFrame AvtpSinkTest::ExpectedFrame(const FrameSpec& spec) const {
    FakeFrame frame = {
        0x91, 0xE0, 0xF0, 0x00, 0xFE, 0x07, // destination
        0x00, 0x11, 0x22, 0x33, 0x44, 0x55, // source
    };
    const auto put = [&frame](std::initializer_list<unsigned> bytes) {
        for (const unsigned byte : bytes) {
            frame.push_back(static_cast<std::uint8_t>(byte));
        }
    };
    if (mVlanTCI != 0) {
        put({0x81, 0x00, mVlanTCI / 256u, mVlanTCI % 256u});
    }
    put({0x22, 0xF0});
    put({0x00, 0x80, spec.sequenceNumber, 0x00});          // subtype, sv, sequence number
    put({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x12, 0x34}); // stream ID
    put({0, 0, 0, 0, 0, 0, 0, 0});                         // timestamp, gateway info
    const auto length = static_cast<unsigned>(8 + 192 * spec.packets.size());
    put({length / 256, length % 256, 0x5F, 0xA0});               // length, tag and channel, tcode
    put({0x3F, 0x06, 0xC4, spec.dataBlockCount, 0xA0, 0, 0, 0}); // CIP
    for (const unsigned ordinal : spec.packets) {
        const auto time = static_cast<std::uint64_t>(TimeOf(ordinal)) % 0x100000000;
        put({static_cast<unsigned>(time >> 24), static_cast<unsigned>(time >> 16 & 0xFF),
             static_cast<unsigned>(time >> 8 & 0xFF), static_cast<unsigned>(time & 0xFF)});
        TSPacket packet;
        FillPacket(packet, ordinal);
        frame.insert(frame.end(), std::begin(packet.mData), std::end(packet.mData));
    }
    return frame;
}

void AvtpSinkTest::ExpectFrames(const std::vector<FrameSpec>& specs) const {
    const std::vector<FakeFrame> frames = mFake.SubmittedFrames();
    ASSERT_EQ(frames.size(), specs.size());
    for (std::size_t i = 0; i < specs.size(); ++i) {
        EXPECT_EQ(frames[i], ExpectedFrame(specs[i])) << "frame " << i;
    }
}

void AvtpSinkTest::ExpectStatistics(std::uint64_t sent, std::uint64_t noResources) const {
    const AvtpSink::Statistics statistics = mSink.QuerryStatistics();
    EXPECT_EQ(statistics.infAvtpPacketsSent, sent);
    EXPECT_EQ(statistics.errNoResourcesToSent, noResources);
}

} // namespace testsupport
