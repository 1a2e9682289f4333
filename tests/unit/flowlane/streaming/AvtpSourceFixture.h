// An AVTP source on the fake device, with a sink that records what it is given.
#ifndef FLOWLANE_TESTS_AVTPSOURCEFIXTURE_H
#define FLOWLANE_TESTS_AVTPSOURCEFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "WaitUntil.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/AvtpSource.h"
#include "streaming/RecordingSink.h"

namespace testsupport {

// Source addresses to accept: any, and that of AvtpFrame.
constexpr kestrelon::TNET_EthernetMacAddress cAnySender{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
constexpr kestrelon::TNET_EthernetMacAddress cTalker{{0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE}};

class AvtpSourceTest : public FakeDeviceTest {
protected:
    AvtpSourceTest() { OpenToReceive(); }

    KESTATUS Create(const kestrelon::TNET_EthernetMacAddress& sender = cAnySender,
                    bool filterByUniqueId = false) {
        return mSource.CreateAvtpSource(mDevice, mSink, sender, 0x1234, filterByUniqueId);
    }

    // Runs the source until it has taken these frames and found no more.
    void Receive(const std::vector<FrameBytes>& frames) {
        const std::size_t callsBefore = mFake.CallCount(Qbx::GetReceivedRawFrame);
        for (const FrameBytes& frame : frames) {
            mFake.QueueReceivedFrame(frame);
        }
        ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
        const auto calls = [&] { return mFake.CallCount(Qbx::GetReceivedRawFrame) - callsBefore; };
        ASSERT_TRUE(WaitUntil([&] { return calls() >= frames.size() + 1; }, calls));
        mSource.StopSource();
    }

    // These packets have reached the sink, in this order.
    void ExpectPackets(const std::vector<unsigned>& ordinals) const {
        std::vector<FrameBytes> expected;
        expected.reserve(ordinals.size());
        for (const unsigned ordinal : ordinals) {
            expected.push_back(PacketBytes(ordinal));
        }
        EXPECT_EQ(mSink.mPackets, expected);
    }

    RecordingSink mSink;
    LogCapture mLog;
    flowlane::AvtpSource mSource;
};

} // namespace testsupport

#endif
