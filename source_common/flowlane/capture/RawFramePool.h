// A fixed number of frames with buffers of one size. All of them are made in two allocations, so that no
// frame needs one later. Frames are reused first in, first out, and are as their last user left them. The
// pool owns all frames, also those that are handed out. No locking: its user serialises access. Messages go
// to the Global logger.
#ifndef FLOWLANE_RAWFRAMEPOOL_H
#define FLOWLANE_RAWFRAMEPOOL_H

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "capture/RawFrame.h"
#include "kestatus.h"

namespace flowlane {

class RawFramePool {
public:
    RawFramePool() noexcept : mItemList(&RawFrame::mListEntry) {}
    // Frees the pool.
    ~RawFramePool() { FreeFramePool(); }
    RawFramePool(const RawFramePool&) = delete;
    RawFramePool& operator=(const RawFramePool&) = delete;

    // frameSize: bytes of each buffer. Throws std::bad_alloc, and has no frames then.
    //   KESTATUS_INTERNAL_ERROR     it has frames already
    //   KESTATUS_INVALID_PARAMETER  the buffers together would exceed 4 GiB
    [[nodiscard]] KESTATUS AllocateFramePool(unsigned count, unsigned frameSize);
    // Frees all frames. Frames that are still handed out are freed too, which is logged.
    void FreeFramePool() noexcept;

    // The frame that was free longest, or null when none is free.
    RawFrame* GetRawFrame() noexcept;
    // The frame that GetRawFrame would give, or null. It stays in the pool.
    const RawFrame* NextRawFrame() const noexcept { return mItemList.Head(); }
    // Gives back a frame of this pool. It is in no list.
    void PutRawFrame(RawFrame* frame) noexcept;
    // Adds a frame that the caller owns. It outlives the pool.
    void AddItem(RawFrame* frame) noexcept;

    bool IsAllocated() const noexcept { return mTotalCount != 0; }
    // The number of all frames, and of the free ones.
    std::uint32_t TotalCount() const noexcept { return mTotalCount; }
    std::uint32_t CurrentCount() const noexcept { return mCurrentCount; }

private:
    struct FreeMemory {
        void operator()(unsigned char* memory) const noexcept { std::free(memory); }
    };

    RawFrameList mItemList; // the free frames
    std::unique_ptr<RawFrame[]> mRawFrameMemory;
    std::unique_ptr<unsigned char[], FreeMemory> mFrameBufferMemory;
    std::uint32_t mTotalCount = 0;
    std::uint32_t mCurrentCount = 0;
};

} // namespace flowlane

#endif
