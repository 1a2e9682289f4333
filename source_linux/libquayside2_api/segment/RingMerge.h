// The rings of the other ports, merged into one sequence of frames in the order of their time stamps.
//
// The times that it delivers never go back, unless the clock of the machine was set back. A sender stamps its
// frames just before they can be seen. When it is held up in between, frames that others stamped later may
// have been delivered. A frame that comes so late gets the time of the one before it.
//
// Not for several threads at once.
#ifndef QUAYSIDE2_SEGMENT_RINGMERGE_H
#define QUAYSIDE2_SEGMENT_RINGMERGE_H

#include <vector>

#include "common/ReceivedFrames.h"
#include "segment/RingReader.h"
#include "segment/SegmentPort.h"

namespace quayside2::segment {

class RingMerge : public ReceivedFrames {
public:
    // Merges the rings of all ports but this one, which was opened with Rings::All and outlives the object.
    explicit RingMerge(const SegmentPort& port);

    // Starts after everything that was sent so far.
    void Start() noexcept;
    // Whether there is something to look at with Peek.
    bool HasData() const noexcept;
    // Reading has been disabled: senders that wait for this port go on.
    void ReleaseSenders() noexcept;

    [[nodiscard]] bool Peek(Frame& frame) noexcept override;
    [[nodiscard]] std::uint32_t TakeLoss() noexcept override;
    [[nodiscard]] bool Take(std::uint8_t* to) noexcept override;
    std::uint64_t DeliveryTime(std::uint64_t time) noexcept override;

private:
    RingReader* ChooseReader() noexcept;

    std::vector<RingReader> mReaders;
    RingReader* mChosen = nullptr; // the one whose frame Peek has shown
    std::uint64_t mLastTime = 0;   // delivered since the start
};

} // namespace quayside2::segment

#endif
