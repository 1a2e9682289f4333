// The sending side of one ring.
//
// After construction it reads nothing from the shared memory any more, so that damage cannot mislead the
// sender. Not for several threads at once.
#ifndef QUAYSIDE2_SEGMENT_RINGWRITER_H
#define QUAYSIDE2_SEGMENT_RINGWRITER_H

#include <array>

#include "common/FrameBatch.h"
#include "segment/SegmentLayout.h"

namespace quayside2::segment {

class RingWriter {
public:
    // Goes on where the last sender of this ring ended. What that one sent can still be read, unless the ring
    // is damaged.
    RingWriter(Ring& ring, SenderState& state) noexcept;

    // End of all records, sent or not.
    std::uint64_t End() const noexcept { return mEnd; }
    // End of the records that are sent.
    std::uint64_t SentEnd() const noexcept { return mSentEnd; }

    // The next record overwrites everything before ReclaimWanted. When that is above Reclaimed, Reclaim has
    // to be called before Append.
    std::uint64_t ReclaimWanted() const noexcept;
    std::uint64_t Reclaimed() const noexcept { return mReclaimed; }
    void Reclaim(std::uint64_t position) noexcept;

    // Writes a frame of 1 to cMaxTaggedFrameBytes behind the others, not yet visible to anybody. Requires
    // room for it: at most FrameBatch::cMaxFrames are appended and not sent.
    void Append(const std::uint8_t* frame, std::uint32_t length) noexcept;
    bool HasUnsent() const noexcept { return mUnsentCount != 0; }
    // Sends what was appended, with this time.
    void Publish(std::uint64_t time) noexcept;

private:
    Word& WordAt(std::uint64_t position) noexcept { return mRing[RingIndex(position)]; }

    Ring& mRing;
    SenderState& mState;
    std::uint64_t mEnd;
    std::uint64_t mSentEnd;
    std::uint64_t mReclaimed;
    std::uint64_t mFrameCount = 0;
    // Where the records start that are appended and not sent.
    std::array<std::uint64_t, FrameBatch::cMaxFrames> mUnsent{};
    std::size_t mUnsentCount = 0;
};

} // namespace quayside2::segment

#endif
