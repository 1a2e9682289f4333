// Decides whether a sender has to wait before it overwrites frames that a receiver has not read.
//
// A sender waits for a receiver that is behind, that is enabled, and whose process lives. When the receiver
// has not moved for cPatience, it is given up: frames are overwritten, and the sender does not wait for it
// again until it moves. Not for several threads at once.
#ifndef QUAYSIDE2_SEGMENT_FLOWCONTROL_H
#define QUAYSIDE2_SEGMENT_FLOWCONTROL_H

#include <array>
#include <functional>

#include "segment/SegmentLayout.h"

namespace quayside2::segment {

class FlowControl {
public:
    static constexpr std::int64_t cPatience = 100'000'000; // nanoseconds

    // isHeld tells whether a port has a living holder; asked only while that port's receiver is behind.
    FlowControl(const ControlPages& control, std::uint32_t ownPort, std::function<bool(std::uint32_t)> isHeld)
        : mControl(control), mOwnPort(ownPort), mIsHeld(std::move(isHeld)) {}

    // Whether the sender has to wait for some receiver before it overwrites everything before the position
    // reclaim. end: end of the records sent so far. now: any steady clock, nanoseconds.
    bool MustWait(std::uint64_t reclaim, std::uint64_t end, std::int64_t now);

private:
    // Where a receiver was last seen behind.
    struct Observation {
        std::uint32_t epoch = 0;
        std::uint64_t cursor = 0;
        std::int64_t since = 0;
        bool behind = false;
        bool givenUp = false;
    };

    bool MustWaitFor(std::uint32_t port, std::uint64_t reclaim, std::uint64_t end, std::int64_t now);

    const ControlPages& mControl;
    std::uint32_t mOwnPort;
    std::function<bool(std::uint32_t)> mIsHeld;
    std::array<Observation, cPortCount> mObservations;
};

} // namespace quayside2::segment

#endif
