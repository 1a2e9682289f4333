#include "common/ReceiveDelivery.h"

#include <cstring>

#include "common/Clock.h"

namespace quayside2 {

namespace {

// How many frames one call skips because the buffer is too small, before it answers "no data".
constexpr int cMaxSkips = 1024;

} // namespace

KESTATUS ReceiveDelivery::TakeItem(ReceivedFrames& frames, QBXRawFrameType& type, std::uint8_t* buffer,
                                   std::uint32_t bufferSize, std::uint32_t& receivedLength) noexcept {
    if (bufferSize < mHeaderBytes) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    for (int skips = 0; skips < cMaxSkips; ++skips) {
        ReceivedFrames::Frame frame;
        const bool isReady = frames.Peek(frame);
        mSequence.Lose(frames.TakeLoss());
        if (mHeaderBytes != 0 && mSequence.IsIdleDue(isReady)) {
            WriteHeader(frames, isReady ? frame.time : TimeOfDay(), buffer);
            type = QBXRawFrameType_Idle;
            receivedLength = mHeaderBytes;
            return KESTATUS_SUCCESS;
        }
        if (!isReady) {
            break;
        }
        if (frame.isCut || frame.length > bufferSize - mHeaderBytes) {
            if (frames.Take(nullptr)) {
                mSequence.Skip();
            }
        } else if (frames.Take(buffer + mHeaderBytes)) {
            WriteHeader(frames, frame.time, buffer);
            type = QBXRawFrameType_Data;
            receivedLength = mHeaderBytes + frame.length;
            return KESTATUS_SUCCESS;
        }
    }
    return KESTATUS_NO_DATA;
}

// Numbers the item that is delivered now, and writes its header if there is one.
void ReceiveDelivery::WriteHeader(ReceivedFrames& frames, std::uint64_t time, std::uint8_t* to) noexcept {
    const std::uint32_t sequence = mSequence.Take();
    if (mHeaderBytes == 0) {
        return;
    }
    time = frames.DeliveryTime(time);
    const std::uint64_t seconds = time / cNanosecondsPerSecond;
    const auto nanoseconds = static_cast<std::uint32_t>(time % cNanosecondsPerSecond);
    std::memcpy(to + QBX_RAW_HEADER_2_SECONDS_OFFSET, &seconds, sizeof seconds);
    std::memcpy(to + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, &nanoseconds, sizeof nanoseconds);
    std::memcpy(to + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, &sequence, sizeof sequence);
}

} // namespace quayside2
