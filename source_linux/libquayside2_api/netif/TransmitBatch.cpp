#include "netif/TransmitBatch.h"

#include <cstring>

namespace quayside2::netif {

TransmitBatch::TransmitBatch() noexcept {
    for (std::uint32_t place = 0; place < cMaxFrames; ++place) {
        mMessages[place].msg_hdr.msg_iov = &mVectors[place];
        mMessages[place].msg_hdr.msg_iovlen = 1;
    }
}

void TransmitBatch::SetMaxFrameBytes(std::uint32_t bytes) {
    mFrames.reset(new std::uint8_t[std::size_t{cMaxFrames} * bytes]); // not set to 0: most is never touched
    mMaxFrameBytes = bytes;
}

void TransmitBatch::Add(const std::uint8_t* frame, std::uint32_t length) noexcept {
    const std::uint32_t place = (mFirst + mCount) % cMaxFrames;
    std::uint8_t* const to = mFrames.get() + std::size_t{place} * mMaxFrameBytes;
    std::memcpy(to, frame, length);
    mVectors[place] = {to, length};
    ++mCount;
}

void TransmitBatch::RemoveFirst(std::uint32_t count) noexcept {
    mCount -= count;
    mFirst = mCount == 0 ? 0 : (mFirst + count) % cMaxFrames;
}

} // namespace quayside2::netif
