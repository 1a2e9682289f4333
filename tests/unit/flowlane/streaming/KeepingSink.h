// A sink that keeps the bytes of the packets it is given, and answers what it is told to.
#ifndef FLOWLANE_TESTS_KEEPINGSINK_H
#define FLOWLANE_TESTS_KEEPINGSINK_H

#include <functional>
#include <vector>

#include "streaming/AvtpFrameBuilder.h"
#include "streaming/SinkBase.h"

namespace testsupport {

// The records are for the test once the source has been stopped.
class KeepingSink final : public flowlane::SinkBase {
public:
    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}
    KESTATUS DeliverTSPacket(const flowlane::TSPacket& packet) override {
        mPackets.emplace_back(packet.mData, packet.mData + sizeof packet.mData);
        if (mOnDeliver) {
            mOnDeliver();
        }
        return mDeliverStatus;
    }
    KESTATUS SendDeliveredPackets() override {
        ++mSendCalls;
        return mSendStatus;
    }

    std::vector<FrameBytes> mPackets;
    unsigned mSendCalls = 0;
    KESTATUS mDeliverStatus = KESTATUS_SUCCESS;
    KESTATUS mSendStatus = KESTATUS_SUCCESS;
    std::function<void()> mOnDeliver; // runs on the source's thread
};

} // namespace testsupport

#endif
