// A sink that records what it is given and fails when it is told to.
#ifndef FLOWLANE_TESTS_RECORDINGSINK_H
#define FLOWLANE_TESTS_RECORDINGSINK_H

#include <atomic>
#include <vector>

#include "VirtualClock.h"
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

// The records are for the test once the source has been stopped.
class RecordingSink final : public flowlane::SinkBase {
public:
    explicit RecordingSink(VirtualClock& clock) : mClock(clock) {}

    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}

    KESTATUS DeliverTSPacket(const flowlane::TSPacket& packet) override {
        mDeliverCalls.fetch_add(1);
        if (mDeliverCalls.load() == mFailingDeliver) {
            return mStatus;
        }
        mDeliveries.push_back({TSStream::OrdinalOf(packet), packet.mDeliverTime.time_since_epoch().count(),
                               mClock.Now().time_since_epoch().count()});
        return KESTATUS_SUCCESS;
    }

    KESTATUS SendDeliveredPackets() override {
        mBatches.push_back(mDeliveries.size());
        return mBatches.size() == mFailingSend ? mStatus : KESTATUS_SUCCESS;
    }

    // 1 for the first call; 0 for none.
    unsigned mFailingDeliver = 0;
    unsigned mFailingSend = 0;
    KESTATUS mStatus = KESTATUS_DEVICE_REMOVED;

    std::atomic<unsigned> mDeliverCalls{0};
    std::vector<Delivery> mDeliveries;
    std::vector<std::size_t> mBatches; // how many packets had been taken at each SendDeliveredPackets

private:
    VirtualClock& mClock;
};

} // namespace testsupport

#endif
