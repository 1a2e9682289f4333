#include "capture/RawFramePool.h"

#include <algorithm>
#include <utility>

#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::size_t cCacheLine = 64; // bytes

} // namespace

KESTATUS RawFramePool::AllocateFramePool(unsigned count, unsigned frameSize) {
    if (IsAllocated()) {
        KEOutputLogMessage(logger::Global, KEFATAL, "already allocated");
        return KESTATUS_INTERNAL_ERROR;
    }
    if (std::uint64_t{count} * frameSize > UINT32_MAX) {
        KEOutputLogMessage(logger::Global, KEERROR, "count {} x size {} exceeds 4 GiB", count, frameSize);
        return KESTATUS_INVALID_PARAMETER;
    }
    auto frames = std::make_unique<RawFrame[]>(count);
    auto buffers = std::make_unique<unsigned char[]>(std::size_t{count} * frameSize);
    for (unsigned i = 0; i < count; ++i) {
        frames[i].InitRawFrame({buffers.get() + std::size_t{i} * frameSize, frameSize});
        AddItem(&frames[i]);
    }
    mRawFrameMemory = std::move(frames);
    mFrameBufferMemory = std::move(buffers);
    return KESTATUS_SUCCESS;
}

void RawFramePool::FreeFramePool() noexcept {
    if (!IsAllocated()) {
        return;
    }
    if (mCurrentCount != mTotalCount) {
        KEOutputLogMessage(logger::Global, KEFATAL,
                           "There are outstanding frames, current/total count: {}/{}", mCurrentCount,
                           mTotalCount);
    }
    while (mItemList.RemoveHead()) {
    }
    mFrameBufferMemory.reset();
    mRawFrameMemory.reset();
    mTotalCount = 0;
    mCurrentCount = 0;
}

RawFrame* RawFramePool::GetRawFrame() noexcept {
    RawFrame* const frame = mItemList.RemoveHead();
    if (frame) {
        --mCurrentCount;
    }
    return frame;
}

void RawFramePool::PrefetchNextFrame(std::size_t bytes) const noexcept {
    if (const RawFrame* const frame = mItemList.Head()) {
        const KEBufferReference buffer = frame->mFrameBuffer;
        for (std::size_t offset = 0; offset < std::min(bytes, buffer.mLength); offset += cCacheLine) {
            __builtin_prefetch(buffer.mData + offset, 1);
        }
    }
}

void RawFramePool::PutRawFrame(RawFrame* frame) noexcept {
    mItemList.AppendTail(*frame);
    ++mCurrentCount;
}

void RawFramePool::AddItem(RawFrame* frame) noexcept {
    PutRawFrame(frame);
    ++mTotalCount;
}

} // namespace flowlane
