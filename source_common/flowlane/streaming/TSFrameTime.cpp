#include "streaming/TSFrameTime.h"

#include <algorithm>
#include <chrono>

namespace flowlane {

namespace {

constexpr std::chrono::milliseconds cMaxFrameDelay{10};

} // namespace

TSPacketTimePoint TSFrameTime(const TSPacketQueue& packets, std::uint32_t packetsPerFrame,
                              bool isComplete) noexcept {
    const TSPacket* packet = packets.Head();
    if (!packet) {
        return TSPacketTimePoint::max();
    }
    const TSPacketTimePoint latest = packet->mDeliverTime + cMaxFrameDelay;
    TSPacketTimePoint allDue = packet->mDeliverTime;
    std::uint32_t count = 0;
    for (; packet && count < packetsPerFrame; packet = packets.Next(*packet)) {
        allDue = std::max(allDue, packet->mDeliverTime);
        ++count;
    }
    return isComplete || count == packetsPerFrame ? std::min(allDue, latest) : latest;
}

} // namespace flowlane
