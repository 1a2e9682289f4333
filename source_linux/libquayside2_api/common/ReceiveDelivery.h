// What a receive handle of any back end delivers: frames and idle items, numbered, each behind its receive
// header when the handle was opened with one. Not for several threads at once.
#ifndef QUAYSIDE2_RECEIVEDELIVERY_H
#define QUAYSIDE2_RECEIVEDELIVERY_H

#include <cstdint>

#include "common/ReceiveSequence.h"
#include "common/ReceivedFrames.h"
#include "quayside2_api.h"

namespace quayside2 {

class ReceiveDelivery {
public:
    // receiveHeader: each item has the receive header of type 2. Without it there are no idle items.
    explicit ReceiveDelivery(bool receiveHeader) noexcept
        : mHeaderBytes(receiveHeader ? QBX_RAW_HEADER_2_SIZE : 0) {}

    // Reception is enabled: numbers begin with 0.
    void Start() noexcept { mSequence.Start(); }
    // Frames were lost that nobody will find in the frames any more.
    void Lose(std::uint32_t count) noexcept { mSequence.Lose(count); }
    // Frames lost so far, since the handle was opened.
    std::uint64_t Lost() const noexcept { return mSequence.Lost(); }

    // Delivers the next item, as GetReceivedRawFrame of Device.h says, of frames whose delivery is enabled.
    // A call that skips very many frames ends with KESTATUS_NO_DATA; the next one goes on.
    [[nodiscard]] KESTATUS TakeItem(ReceivedFrames& frames, QBXRawFrameType& type, std::uint8_t* buffer,
                                    std::uint32_t bufferSize, std::uint32_t& receivedLength) noexcept;

private:
    void WriteHeader(ReceivedFrames& frames, std::uint64_t time, std::uint8_t* to) noexcept;

    const std::uint32_t mHeaderBytes; // 0 without the receive header
    ReceiveSequence mSequence;
};

} // namespace quayside2

#endif
