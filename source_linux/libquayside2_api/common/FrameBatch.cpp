#include "common/FrameBatch.h"

#include <cstring>

namespace quayside2 {

namespace {

constexpr std::size_t cAlignment = 16;

} // namespace

void FrameBatch::SetMaxFrameBytes(std::uint32_t bytes) {
    const std::size_t placeBytes = (std::size_t{bytes} + cAlignment - 1) / cAlignment * cAlignment;
    mBytes.reset(new std::uint8_t[cMaxFrames * placeBytes]); // not set to 0: most is never touched
    mPlaceBytes = placeBytes;
    mMaxFrameBytes = bytes;
}

void FrameBatch::Add(const std::uint8_t* frame, std::uint32_t length) noexcept {
    const std::uint32_t place = (mFirst + mCount) % cMaxFrames;
    std::memcpy(Place(place), frame, length);
    mLengths[place] = length;
    ++mCount;
}

FrameBatch::Frame FrameBatch::At(std::uint32_t number) const noexcept {
    const std::uint32_t place = (mFirst + number) % cMaxFrames;
    return {Place(place), mLengths[place]};
}

void FrameBatch::RemoveFirst(std::uint32_t count) noexcept {
    mCount -= count;
    mFirst = mCount == 0 ? 0 : (mFirst + count) % cMaxFrames; // the first places stay in the cache
}

} // namespace quayside2
