// One Ethernet frame between the device and a pcap-ng file: received and waiting to be written, or read and
// waiting to be sent. A pool (RawFramePool.h) owns the frames and their memory. No locking.
#ifndef FLOWLANE_RAWFRAME_H
#define FLOWLANE_RAWFRAME_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/KEBuffer.h"
#include "base/KEDList.h"
#include "base/PipelineClock.h"
#include "quayside2_api.h"

namespace flowlane {

using RawFrameTimePoint = PipelineClock::TimePoint;
using RawFrameTimeDuration = PipelineClock::Duration;

// Where a replay has read a frame.
struct RawFrameOrigin {
    std::uint32_t fileNumber = 0;   // of the file set
    std::uint64_t packetNumber = 0; // in its file, from 1
    RawFrameTimeDuration time{};    // recorded, since the first packet of the pass
};

class RawFrame {
public:
    RawFrame() = default;
    RawFrame(const RawFrame&) = delete;
    RawFrame& operator=(const RawFrame&) = delete;

    // Gives the frame its buffer, which outlives it. Clears size, type and lost frames.
    void InitRawFrame(kestrelon::KEBufferReference buffer) noexcept {
        mFrameBuffer = buffer;
        mFrameSize = 0;
        mFrameType = QBXRawFrameType_Unknown;
        mFramesDropped = 0;
    }

    // The bytes in use. mFrameBuffer is the whole buffer.
    kestrelon::KEBufferReference FrameData() noexcept { return {mFrameBuffer.mData, mFrameSize}; }
    kestrelon::KEConstBufferReference FrameData() const noexcept { return {mFrameBuffer.mData, mFrameSize}; }

    // When the frame is to be sent.
    void SetSendTime(RawFrameTimePoint time) noexcept { mSendTime = time; }
    RawFrameTimePoint SendTime() const noexcept { return mSendTime; }

    // For the one list that the frame is in: the pool's free list or a queue of its user.
    kestrelon::KEDListEntry mListEntry;
    kestrelon::KEBufferReference mFrameBuffer;
    std::uint32_t mFrameSize = 0; // bytes in use, at most the buffer's
    QBXRawFrameType mFrameType = QBXRawFrameType_Unknown;
    RawFrameOrigin mOrigin;           // replay
    std::uint64_t mFramesDropped = 0; // capture: frames lost between the previous frame and this one

private:
    RawFrameTimePoint mSendTime;
};

using RawFrameList = kestrelon::KEDList<RawFrame>;

// Begins to fetch the first bytes of the buffer of a frame, which may be null, into the cache. A pool is
// larger than the cache and its frames are used in turn, so each would have to be waited for.
inline void PrefetchRawFrame(const RawFrame* frame, std::size_t bytes) noexcept {
    constexpr std::size_t cCacheLine = 64;
    const std::size_t end = frame ? std::min(bytes, frame->mFrameBuffer.mLength) : 0;
    for (std::size_t offset = 0; offset < end; offset += cCacheLine) {
        __builtin_prefetch(frame->mFrameBuffer.mData + offset);
    }
}

} // namespace flowlane

#endif
