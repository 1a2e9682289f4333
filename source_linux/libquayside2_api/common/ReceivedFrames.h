// The received frames of a back end, in the order in which they are delivered.
//
// A back end implements it over its ring or socket; ReceiveDelivery takes the frames from there. Not for
// several threads at once.
#ifndef QUAYSIDE2_RECEIVEDFRAMES_H
#define QUAYSIDE2_RECEIVEDFRAMES_H

#include <cstdint>

namespace quayside2 {

class ReceivedFrames {
public:
    struct Frame {
        std::uint64_t time = 0;   // nanoseconds since 1970-01-01 00:00:00 UTC
        std::uint32_t length = 0; // bytes that Take stores
        bool isCut = false;       // only its beginning is there, so it cannot be delivered
    };

    ReceivedFrames() = default;
    ReceivedFrames(const ReceivedFrames&) = delete;
    ReceivedFrames& operator=(const ReceivedFrames&) = delete;
    virtual ~ReceivedFrames() = default;

    // Looks at the next frame. False when none is there.
    [[nodiscard]] virtual bool Peek(Frame& frame) noexcept = 0;
    // Frames lost for want of room before the one that Peek has shown, or up to now when there was none.
    // Reports each loss once.
    [[nodiscard]] virtual std::uint32_t TakeLoss() noexcept = 0;
    // Removes the frame that Peek has shown. Before that copies it to to, unless that is null. False when the
    // frame was lost meanwhile: what was copied is worthless, Peek finds what comes next.
    [[nodiscard]] virtual bool Take(std::uint8_t* to) noexcept = 0;
    // The time that an item of this time is delivered with. Called once for each item, in their order.
    virtual std::uint64_t DeliveryTime(std::uint64_t time) noexcept { return time; }
};

} // namespace quayside2

#endif
