#include "segment/FlowControl.h"

namespace quayside2::segment {

bool FlowControl::MustWait(std::uint64_t reclaim, std::uint64_t end, std::int64_t now) {
    bool wait = false;
    for (std::uint32_t port = 0; port < cPortCount; ++port) {
        // Every receiver is looked at each time, so that each one's patience runs from its own stop.
        if (port != mOwnPort && MustWaitFor(port, reclaim, end, now)) {
            wait = true;
        }
    }
    return wait;
}

bool FlowControl::MustWaitFor(std::uint32_t port, std::uint64_t reclaim, std::uint64_t end,
                              std::int64_t now) {
    Observation& seen = mObservations[port];
    const ReceiverState& receiver = mControl.receivers[port];
    const std::uint32_t epoch = receiver.epoch.load(std::memory_order_acquire);
    const std::uint64_t cursor = receiver.cursors[mOwnPort].position.load(std::memory_order_acquire);
    // A cursor beyond the end is damage; nobody can be waited for there.
    const bool behind = epoch % 2 == 1 && cursor <= end && NextRecordPosition(cursor) < reclaim;
    if (!behind) {
        seen.behind = false;
        return false;
    }
    if (!seen.behind || seen.epoch != epoch || seen.cursor != cursor) {
        seen = {epoch, cursor, now, true, false};
    }
    if (!seen.givenUp && (now - seen.since >= cPatience || !mIsHeld(port))) {
        seen.givenUp = true;
    }
    return !seen.givenUp;
}

} // namespace quayside2::segment
