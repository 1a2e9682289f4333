// An AVTP sink on the fake device, and the frames that it must send.
#ifndef FLOWLANE_TESTS_AVTPSINKFIXTURE_H
#define FLOWLANE_TESTS_AVTPSINKFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "VirtualClock.h"
#include "streaming/AvtpSink.h"

namespace testsupport {

// Gives a packet the contents and the time that follow from its ordinal.
void FillPacket(flowlane::TSPacket& packet, unsigned ordinal);

// What a frame must be. The fixture knows the rest: the addresses and the VLAN tag.
struct FrameSpec {
    std::uint8_t sequenceNumber;
    std::uint8_t dataBlockCount;
    std::vector<unsigned> packets; // their ordinals
};

class AvtpSinkTest : public FakeDeviceTest {
protected:
    static constexpr kestrelon::TNET_EthernetMacAddress cDestination{{0x91, 0xE0, 0xF0, 0x00, 0xFE, 0x07}};
    static constexpr std::uint16_t cUniqueId = 0x1234;

    AvtpSinkTest();

    KESTATUS Create(std::uint16_t vlanTCI = 0, unsigned maxSourcePacketCount = 0) {
        mVlanTCI = vlanTCI;
        return mSink.CreateAvtpSink(mDevice, cDestination, cUniqueId, vlanTCI, maxSourcePacketCount);
    }
    // Creates and starts the sink. The fake device forgets the calls for it.
    void CreateAndStart(std::uint16_t vlanTCI = 0, unsigned maxSourcePacketCount = 0);
    // Delivers packets with the next ordinals; stops at the first failure and returns it.
    KESTATUS Deliver(unsigned count = 1);

    FakeFrame ExpectedFrame(const FrameSpec& spec) const;
    // The frames submitted since the start of the test are these.
    void ExpectFrames(const std::vector<FrameSpec>& specs) const;
    void ExpectStatistics(std::uint64_t sent, std::uint64_t noResources) const;

    VirtualClock mClock;
    flowlane::AvtpSink mSink{mClock};
    LogCapture mLog;
    unsigned mNextOrdinal = 0;
    std::uint16_t mVlanTCI = 0;
};

} // namespace testsupport

#endif
