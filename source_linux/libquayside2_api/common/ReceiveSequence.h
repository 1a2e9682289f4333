// The numbers in the receive headers of one handle. They show every loss.
//
// Each delivered item, frame or idle item, has the next number. A loss is a gap before the next item. A
// reader sees a gap only when it has a number to compare with: when frames are lost before the first item, an
// idle item comes first. Not for several threads at once.
#ifndef QUAYSIDE2_RECEIVESEQUENCE_H
#define QUAYSIDE2_RECEIVESEQUENCE_H

#include <cstdint>
#include <utility>

namespace quayside2 {

class ReceiveSequence {
public:
    // Reception is enabled: numbers begin with 0, and nothing has been lost yet.
    void Start() noexcept {
        mNext = 0;
        mIsBegun = false;
        mUnreported = 0;
    }

    // Frames were lost because the reader was too slow.
    void Lose(std::uint32_t count) noexcept {
        mUnreported += count;
        mLost += count;
    }
    // A frame is left out because it does not fit into the reader's buffer.
    void Skip() noexcept { ++mUnreported; }

    // Whether an idle item is due before the next frame. isFrameReady: that frame is there.
    bool IsIdleDue(bool isFrameReady) const noexcept {
        return mUnreported != 0 && (!isFrameReady || !mIsBegun);
    }
    // The number of the item that is delivered now.
    std::uint32_t Take() noexcept {
        if (mIsBegun) {
            mNext += std::exchange(mUnreported, 0);
        }
        mIsBegun = true;
        return mNext++;
    }

    // Frames lost so far, since the handle was opened.
    std::uint64_t Lost() const noexcept { return mLost; }

private:
    std::uint32_t mNext = 0;
    bool mIsBegun = false;         // an item was delivered since the enabling
    std::uint32_t mUnreported = 0; // lost and skipped frames that no gap has shown yet
    std::uint64_t mLost = 0;
};

} // namespace quayside2

#endif
