// The frames of a transmit handle that are submitted and not yet sent: a bounded queue with copies of them.
//
// Not for several threads at once.
#ifndef QUAYSIDE2_FRAMEBATCH_H
#define QUAYSIDE2_FRAMEBATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace quayside2 {

class FrameBatch {
public:
    static constexpr std::uint32_t cMaxFrames = 64;

    // A frame in the batch; valid until it is removed.
    struct Frame {
        const std::uint8_t* data;
        std::uint32_t length;
    };

    FrameBatch() = default;
    FrameBatch(const FrameBatch&) = delete;
    FrameBatch& operator=(const FrameBatch&) = delete;

    // Makes places for frames of up to this length. Requires an empty batch. Throws std::bad_alloc and is
    // then as before.
    void SetMaxFrameBytes(std::uint32_t bytes);
    std::uint32_t MaxFrameBytes() const noexcept { return mMaxFrameBytes; }

    bool IsEmpty() const noexcept { return mCount == 0; }
    std::uint32_t FrameCount() const noexcept { return mCount; }
    std::uint32_t FreeFrames() const noexcept { return cMaxFrames - mCount; }

    // Copies a frame. Requires a free place and a length of at most MaxFrameBytes.
    void Add(const std::uint8_t* frame, std::uint32_t length) noexcept;
    // The frame of this number, counted from the oldest on. Requires a number below FrameCount.
    Frame At(std::uint32_t number) const noexcept;
    // Removes the oldest frames. Requires that there are as many.
    void RemoveFirst(std::uint32_t count) noexcept;

private:
    std::uint8_t* Place(std::uint32_t place) const noexcept { return mBytes.get() + place * mPlaceBytes; }

    std::uint32_t mMaxFrameBytes = 0;
    std::size_t mPlaceBytes = 0; // mMaxFrameBytes, rounded up so that every place is aligned for words
    std::uint32_t mFirst = 0;    // the oldest frame's place
    std::uint32_t mCount = 0;
    std::array<std::uint32_t, cMaxFrames> mLengths{};
    std::unique_ptr<std::uint8_t[]> mBytes; // places of mPlaceBytes each
};

} // namespace quayside2

#endif
