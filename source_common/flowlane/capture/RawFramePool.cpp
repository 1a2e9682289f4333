#include "capture/RawFramePool.h"

#include <new>
#include <utility>

#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

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
    // Zeroed without being touched: a page takes memory once a frame uses it.
    decltype(mFrameBufferMemory) buffers(static_cast<unsigned char*>(std::calloc(count, frameSize)));
    if (!buffers && count != 0 && frameSize != 0) {
        throw std::bad_alloc();
    }
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

void RawFramePool::PutRawFrame(RawFrame* frame) noexcept {
    mItemList.AppendTail(*frame);
    ++mCurrentCount;
}

void RawFramePool::AddItem(RawFrame* frame) noexcept {
    PutRawFrame(frame);
    ++mTotalCount;
}

} // namespace flowlane
