#include "segment/RingWriter.h"

#include "segment/RingWords.h"

namespace quayside2::segment {

namespace {

// No ring comes this far; a position above is damage.
constexpr std::uint64_t cEndOfTime = 1ull << 60;

} // namespace

RingWriter::RingWriter(Ring& ring, SenderState& state) noexcept
    : mRing(ring),
      mState(state),
      mEnd(state.head.load(std::memory_order_acquire)),
      mSentEnd(mEnd),
      mReclaimed(state.reclaim.load(std::memory_order_acquire)) {
    if (mEnd % cRecordAlignment != 0 || mEnd >= cEndOfTime) {
        mEnd = 0;
        mReclaimed = cEndOfTime; // cannot be right either
    }
    if (mReclaimed % cBlockBytes != 0 || mReclaimed > mEnd || mEnd - mReclaimed > cRingBytes) {
        // Start afresh with the next block; receivers find nothing before it.
        mEnd = BlockStart(mEnd) + cBlockBytes;
        Reclaim(mEnd);
        WordAt(mEnd - cWordBytes).store(0, std::memory_order_relaxed);
        mState.head.store(mEnd, std::memory_order_release);
        mSentEnd = mEnd;
    }
    if (mEnd != 0) {
        mFrameCount = WordAt(mEnd - cWordBytes).load(std::memory_order_relaxed);
    }
}

std::uint64_t RingWriter::ReclaimWanted() const noexcept {
    const std::uint64_t blockEnd = BlockStart(NextRecordPosition(mEnd)) + cBlockBytes;
    return blockEnd > cRingBytes ? blockEnd - cRingBytes : 0;
}

void RingWriter::Reclaim(std::uint64_t position) noexcept {
    mReclaimed = position;
    mState.reclaim.store(position, std::memory_order_relaxed);
    // Whoever sees a word of the records to come also sees that the old ones are gone.
    std::atomic_thread_fence(std::memory_order_release);
}

void RingWriter::Append(const std::uint8_t* frame, std::uint32_t length) noexcept {
    const std::uint64_t start = NextRecordPosition(mEnd);
    mEnd = start + RecordBytes(length);
    mUnsent[mUnsentCount++] = start;
    Word* word = &WordAt(start);
    Word* const last = word + RecordBytes(length) / cWordBytes - 1;
    word[0].store(std::uint64_t{cRecordMark} << 32 | length, std::memory_order_relaxed);
    word[1].store(0, std::memory_order_relaxed); // the time of sending, until it is sent
    word = StoreBytes(word + cRecordHeaderBytes / cWordBytes, frame, length);
    for (; word != last; ++word) {
        word->store(0, std::memory_order_relaxed);
    }
    last->store(++mFrameCount, std::memory_order_relaxed);
}

void RingWriter::Publish(std::uint64_t time) noexcept {
    for (std::size_t i = 0; i < mUnsentCount; ++i) {
        WordAt(mUnsent[i] + cWordBytes).store(time, std::memory_order_relaxed);
    }
    mUnsentCount = 0;
    mSentEnd = mEnd;
    mState.head.store(mEnd, std::memory_order_release);
}

} // namespace quayside2::segment
