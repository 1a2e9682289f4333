// One receiver's view of one port's ring.
//
// Nothing that is read from the shared memory is trusted: positions and lengths are checked, damage makes
// the reader start again at the end of the ring, and frames passed by are counted as lost. Not for several
// threads at once.
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
    // just now. Afterwards Time, Length and PassedOver tell of that frame, until it is taken or skipped.
    bool Peek() noexcept;
    std::uint64_t Time() const noexcept { return mTime; }     // nanoseconds since 1970-01-01 UTC
    std::uint32_t Length() const noexcept { return mLength; } // a length that a frame can have
    // Counts how often another ring's frame was chosen instead of it.
    void PassOver() noexcept { ++mPassedOver; }
    std::uint32_t PassedOver() const noexcept { return mPassedOver; }

    // How many frames of this ring were lost before the one that Peek shows; each is told once.
    std::uint32_t TakeLoss() noexcept { return std::exchange(mLost, 0); }

    // Copies the frame, Length() bytes, and goes on to the next. False when the frame was overwritten
    // meanwhile: what was copied is worthless, Peek finds what comes next. Requires a successful Peek.
    bool Take(std::uint8_t* to) noexcept;
    // The same without copying.
    bool Skip() noexcept { return Take(nullptr); }

    // This reader stops: a sender that waits looks again whom it has to wait for. The caller has changed the
    // receiver's epoch before.
    void ReleaseSender() noexcept;

private:
    const Word& WordAt(std::uint64_t position) const noexcept { return mRing[RingIndex(position)]; }
    // Frames sent up to a position that is the end of a record, as the record says.
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
    std::uint32_t mLost = 0;      // frames before the next one, not told yet

    bool mPeeked = false;
    std::uint64_t mRecord = 0; // where the frame's record starts
    std::uint64_t mTime = 0;
    std::uint32_t mLength = 0;
    std::uint32_t mPassedOver = 0;
};

} // namespace quayside2::segment

#endif
