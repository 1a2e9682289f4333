// A sink that records what it is given, and answers as a test wants.
#ifndef FLOWLANE_TESTS_RECORDINGSINK_H
#define FLOWLANE_TESTS_RECORDINGSINK_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include "streaming/AvtpFrameBuilder.h"
#include "streaming/SinkBase.h"
#include "streaming/TSStream.h"

namespace testsupport {

struct Delivery {
    std::uint32_t ordinal;
    std::int64_t deliverTime; // ns
    std::int64_t wakeTime;    // ns, when it was handed over

    friend bool operator==(const Delivery&, const Delivery&) = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Delivery& delivery) {
    return stream << "{packet " << delivery.ordinal << ", due " << delivery.deliverTime << ", at "
                  << delivery.wakeTime << "}";
}

// The source's thread calls it. Set the answers before the source is started, and read the records when it is
// stopped; mDeliverCalls can be read at any time.
class RecordingSink final : public flowlane::SinkBase {
public:
    using Answer = std::function<KESTATUS()>;

    RecordingSink() = default; // all wake times are 0
    explicit RecordingSink(flowlane::PipelineClock& clock) : mClock(&clock) {}

    [[nodiscard]] KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}

    [[nodiscard]] KESTATUS DeliverTSPacket(const flowlane::TSPacket& packet) override {
        mPackets.emplace_back(packet.mData, packet.mData + sizeof packet.mData);
        mDeliveries.push_back({.ordinal = TSStream::OrdinalOf(packet),
                               .deliverTime = packet.mDeliverTime.time_since_epoch().count(),
                               .wakeTime = mClock ? mClock->Now().time_since_epoch().count() : 0});
        mDeliverCalls.fetch_add(1);
        return mOnDeliver ? mOnDeliver() : KESTATUS_SUCCESS;
    }
    [[nodiscard]] KESTATUS SendDeliveredPackets() override {
        mBatches.push_back(mDeliveries.size());
        return mOnSend ? mOnSend() : KESTATUS_SUCCESS;
    }

    // Return the sink's answer, after the call is recorded. Not set: success.
    Answer mOnDeliver;
    Answer mOnSend;

    std::atomic<unsigned> mDeliverCalls{0};
    std::vector<FrameBytes> mPackets; // the bytes of each packet
    std::vector<Delivery> mDeliveries;
    std::vector<std::size_t> mBatches; // the number of packets at each SendDeliveredPackets

private:
    flowlane::PipelineClock* mClock = nullptr;
};

} // namespace testsupport

#endif
