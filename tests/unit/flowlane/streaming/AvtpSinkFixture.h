// A created AVTP sink on the fake device, and frames as they have to be.
#ifndef FLOWLANE_TESTS_AVTPSINKFIXTURE_H
#define FLOWLANE_TESTS_AVTPSINKFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "VirtualClock.h"
#include "streaming/AvtpSink.h"

namespace testsupport {

// A packet with contents and a time that follow from its ordinal.
void FillPacket(flowlane::TSPacket& packet, unsigned ordinal);

// What a frame has to be, apart from the addresses, which the fixture knows.
struct FrameSpec {
    std::uint8_t sequenceNumber;
    std::uint8_t dataBlockCount;
    std::vector<unsigned> packets; // their ordinals
};

class AvtpSinkTest : public testing::Test {
protected:
    static constexpr kestrelon::TNET_EthernetMacAddress cDestination{{0x91, 0xE0, 0xF0, 0x00, 0xFE, 0x07}};
    static constexpr std::uint16_t cUniqueId = 0x1234;

    AvtpSinkTest();

    KESTATUS Create(std::uint16_t vlanTCI = 0, unsigned maxSourcePacketCount = 0) {
        mVlanTCI = vlanTCI;
        return mSink.CreateAvtpSink(mDevice, cDestination, cUniqueId, vlanTCI, maxSourcePacketCount);
    }
    // Creates, starts and forgets the calls until then.
    void CreateAndStart(std::uint16_t vlanTCI = 0, unsigned maxSourcePacketCount = 0);
    // Delivers packets with the next ordinals; stops at the first failure and returns it.
    KESTATUS Deliver(unsigned count = 1);

    FakeFrame ExpectedFrame(const FrameSpec& spec) const;
    // The frames submitted since the start of the test are these.
    void ExpectFrames(const std::vector<FrameSpec>& specs) const;
    void ExpectStatistics(std::uint64_t sent, std::uint64_t noResources) const;

    FakeDevice& mFake = FakeDevice::Instance();
    flowlane::QuaysideEnumerator mEnumerator;
    flowlane::QuaysideDevice mDevice;
    VirtualClock mClock;
    flowlane::AvtpSink mSink{mClock};
    LogCapture mLog;
    unsigned mNextOrdinal = 0;
    std::uint16_t mVlanTCI = 0;
};

} // namespace testsupport

#endif
