// The numbers in the receive headers of one handle, from which its user learns of every loss.
//
// Each delivered item, frame or idle item, has the next number; a loss is a gap before the next item. So the
// first item after an enabling must not be the one with the gap: an idle item comes before it. Not for
// several threads at once.
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
        mUntold = 0;
    }

    // Frames were lost because the reader was too slow.
    void Lose(std::uint32_t count) noexcept {
        mUntold += count;
        mLost += count;
    }
    // A frame is left out because it does not fit into the reader's buffer.
    void Skip() noexcept { ++mUntold; }

    // Whether an idle item is due before the next frame. isFrameReady: that frame is there.
    bool IsIdleDue(bool isFrameReady) const noexcept { return mUntold != 0 && (!isFrameReady || !mIsBegun); }
    // The number of the item that is delivered now.
    std::uint32_t Take() noexcept {
        if (mIsBegun) {
            mNext += std::exchange(mUntold, 0);
        }
        mIsBegun = true;
        return mNext++;
    }

    // Frames lost so far, since the handle was opened.
    std::uint64_t Lost() const noexcept { return mLost; }

private:
    std::uint32_t mNext = 0;
    bool mIsBegun = false;     // an item was delivered since the enabling
    std::uint32_t mUntold = 0; // lost and skipped frames that no number has shown yet
    std::uint64_t mLost = 0;
};

} // namespace quayside2

#endif
