// When a frame of packets is to be sent, if each frame has a time of its own.
#ifndef FLOWLANE_TSFRAMETIME_H
#define FLOWLANE_TSFRAMETIME_H

#include <cstdint>

#include "streaming/TSPacketQueue.h"

namespace flowlane {

// The time at which the first packets of a queue leave in one frame. A full frame, or one behind which
// nothing follows, leaves when all its packets are due. For another one more packets may come. No frame
// leaves later than 10 ms after its first packet was due. isComplete: no packet will follow those in the
// queue. The end of time when the queue is empty.
TSPacketTimePoint TSFrameTime(const TSPacketQueue& packets, std::uint32_t packetsPerFrame,
                              bool isComplete) noexcept;

} // namespace flowlane

#endif
