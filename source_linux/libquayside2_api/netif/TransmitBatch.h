// The frames of a transmit handle that are submitted and not yet sent: a bounded queue, laid out for
// sendmmsg(2).
//
// Not for several threads at once.
#ifndef QUAYSIDE2_NETIF_TRANSMITBATCH_H
#define QUAYSIDE2_NETIF_TRANSMITBATCH_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <sys/socket.h>

namespace quayside2::netif {

class TransmitBatch {
public:
    static constexpr std::uint32_t cMaxFrames = 64;

    TransmitBatch() noexcept;
    TransmitBatch(const TransmitBatch&) = delete; // the messages point into it
    TransmitBatch& operator=(const TransmitBatch&) = delete;

    // Makes places for frames of up to this length. Requires an empty batch. Throws std::bad_alloc and is
    // then as before.
    void SetMaxFrameBytes(std::uint32_t bytes);
    std::uint32_t MaxFrameBytes() const noexcept { return mMaxFrameBytes; }

    bool IsEmpty() const noexcept { return mCount == 0; }
    std::uint32_t FrameCount() const noexcept { return mCount; }
    std::uint32_t FreeFrames() const noexcept { return cMaxFrames - mCount; }

    // Requires a free place and a length of at most MaxFrameBytes.
    void Add(const std::uint8_t* frame, std::uint32_t length) noexcept;
    // The oldest frames, as many as lie together.
    struct mmsghdr* FirstMessages() noexcept {
        return &mMessages[mFirst];
    }
    std::uint32_t FirstMessageCount() const noexcept { return std::min(mCount, cMaxFrames - mFirst); }
    // Requires that there are as many.
    void RemoveFirst(std::uint32_t count) noexcept;

private:
    std::uint32_t mMaxFrameBytes = 0;
    std::uint32_t mFirst = 0;
    std::uint32_t mCount = 0;
    std::unique_ptr<std::uint8_t[]> mFrames; // places of mMaxFrameBytes each
    std::array<struct iovec, cMaxFrames> mVectors{};
    std::array<struct mmsghdr, cMaxFrames> mMessages{};
};

} // namespace quayside2::netif

#endif
