// One receiver's view of one port's ring.
//
// The reader does not trust the shared memory: it checks positions and lengths. When it finds damage it
// starts again at the end of the ring, and counts the frames in between as lost. Not for several threads at
// once.
#ifndef QUAYSIDE2_SEGMENT_RINGREADER_H
#define QUAYSIDE2_SEGMENT_RINGREADER_H

#include <utility>

#include "segment/SegmentLayout.h"

namespace quayside2::segment {

class RingReader {
public:
    // cursor: where the sender looks for how far this reader has come.
    RingReader(const Ring& ring, SenderState& sender, Word& cursor) noexcept
        : mRing(ring), mSender(sender), mCursor(cursor) {}

    // Starts after everything that was sent so far.
    void Start() noexcept;

    // Whether there is something to look at with Peek.
    bool HasData() const noexcept;
    // Looks at the next frame. False when there is none; then HasData is false too, unless a frame came
    // just now. Time, Length and PassedOver are those of that frame until it is taken or skipped.
    bool Peek() noexcept;
    std::uint64_t Time() const noexcept { return mTime; }     // nanoseconds since 1970-01-01 UTC
    std::uint32_t Length() const noexcept { return mLength; } // a length that a frame can have
    // How often another ring's frame was chosen instead of it; PassOver counts one.
    void PassOver() noexcept { ++mPassedOver; }
    std::uint32_t PassedOver() const noexcept { return mPassedOver; }

    // How many frames of this ring were lost before the one that Peek shows. Reports each loss once.
    std::uint32_t TakeLoss() noexcept { return std::exchange(mLost, 0); }

    // Copies the frame, Length() bytes, and goes on to the next. False when the frame was overwritten
    // meanwhile: what was copied is worthless, Peek finds what comes next. Requires a successful Peek.
    bool Take(std::uint8_t* to) noexcept;
    // The same without copying.
    bool Skip() noexcept { return Take(nullptr); }

    // Reading has been disabled: the caller has changed the receiver's epoch. A sender that waits looks again
    // for which receivers it has to wait.
    void ReleaseSender() noexcept;

private:
    const Word& WordAt(std::uint64_t position) const noexcept { return mRing[RingIndex(position)]; }
    // The number of the frame whose record ends at a position, as the record has it.
    std::uint64_t CountAt(std::uint64_t position) const noexcept;
    bool IsOverwritten(std::uint64_t position) const noexcept;
    void CountLoss(std::uint64_t count) noexcept;
    void Resynchronise() noexcept;
    void SkipDamage(std::uint64_t head) noexcept;
    void MoveTo(std::uint64_t position) noexcept;
    void WakeSender() noexcept;

    const Ring& mRing;
    SenderState& mSender;
    Word& mCursor;

    std::uint64_t mPosition = 0;  // what the cursor says
    std::uint64_t mHead = 0;      // end of the records, as seen last; not below mPosition
    std::uint64_t mNextCount = 1; // number of the frame that comes next when none is lost
    bool mDamaged = false;        // something was lost since, whatever the numbers say
    std::uint32_t mLost = 0;      // frames before the next one, not reported yet

    bool mPeeked = false;
    std::uint64_t mRecord = 0; // where the frame's record starts
    std::uint64_t mTime = 0;
    std::uint32_t mLength = 0;
    std::uint32_t mPassedOver = 0;
};

} // namespace quayside2::segment

#endif
