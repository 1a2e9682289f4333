#include "segment/RingReader.h"

#include "segment/Futex.h"
#include "segment/RingWords.h"

namespace quayside2::segment {

namespace {

// How often Peek follows a sender that overruns it again and again, before it leaves the rest to the
// next call.
constexpr int cPeekTries = 8;
// How often Start looks again because a sender was faster. A look is far shorter than a sender's lap of the
// ring, so more than two looks mean damage.
constexpr int cStartTries = 8;
// A number that no frame has.
constexpr std::uint64_t cUnknownCount = ~std::uint64_t{0};

bool IsRecordEnd(std::uint64_t position) {
    return position % cRecordAlignment == 0;
}

} // namespace

void RingReader::Start() noexcept {
    mPeeked = false;
    mPassedOver = 0;
    mDamaged = false;
    mLost = 0;
    mNextCount = cUnknownCount;
    // Senders do not wait for this reader yet, so they may be overwriting the count that it reads.
    for (int tries = 0; mNextCount == cUnknownCount && tries < cStartTries; ++tries) {
        mHead = mSender.head.load(std::memory_order_acquire);
        if (!IsRecordEnd(mHead)) {
            mHead = 0;
        }
        const std::uint64_t count = CountAt(mHead);
        if (mHead == 0 || !IsOverwritten(mHead - cWordBytes)) {
            mNextCount = count + 1;
        }
    }
    MoveTo(mHead);
}

bool RingReader::HasData() const noexcept {
    return mHead != mPosition || mSender.head.load(std::memory_order_acquire) != mPosition;
}

bool RingReader::Peek() noexcept {
    for (int tries = 0; !mPeeked && tries < cPeekTries; ++tries) {
        if (mHead == mPosition) {
            const std::uint64_t head = mSender.head.load(std::memory_order_acquire);
            if (head == mPosition) {
                return false;
            }
            if (head < mPosition || !IsRecordEnd(head)) {
                SkipDamage(head);
                return false;
            }
            mHead = head;
        }
        mRecord = NextRecordPosition(mPosition);
        const Word* const record = &WordAt(mRecord);
        const std::uint64_t mark = record[0].load(std::memory_order_relaxed);
        mTime = record[1].load(std::memory_order_relaxed);
        mLength = static_cast<std::uint32_t>(mark);
        const bool isRecord = mark >> 32 == cRecordMark && mLength >= cMinFrameBytes &&
                              mLength <= cMaxTaggedFrameBytes && mRecord <= mHead &&
                              mHead - mRecord >= RecordBytes(mLength);
        const std::uint64_t count = isRecord ? CountAt(mRecord + RecordBytes(mLength)) : 0;
        if (IsOverwritten(mRecord)) {
            Resynchronise();
            continue;
        }
        if (!isRecord) {
            SkipDamage(mHead);
            return false;
        }
        CountLoss(count);
        mPeeked = true;
        mPassedOver = 0;
    }
    return mPeeked;
}

// Counts what was lost before the frame of this number. Until that frame is taken it counts as lost too.
void RingReader::CountLoss(std::uint64_t count) noexcept {
    // When numbers go back, the sender had to start its ring afresh, and the loss is unknown.
    const bool unknownLoss = mDamaged || count < mNextCount;
    const std::uint32_t lost = count > mNextCount ? static_cast<std::uint32_t>(count - mNextCount) : 0;
    mLost += unknownLoss && lost == 0 ? 1 : lost;
    mDamaged = false;
    mNextCount = count;
}

bool RingReader::Take(std::uint8_t* to) noexcept {
    mPeeked = false;
    const std::uint64_t end = mRecord + RecordBytes(mLength);
    if (to) {
        LoadBytes(to, &WordAt(mRecord + cRecordHeaderBytes), mLength);
    }
    if (IsOverwritten(mRecord)) {
        Resynchronise();
        return false;
    }
    ++mNextCount;
    const bool newBlock = BlockStart(end) != BlockStart(mPosition);
    MoveTo(end);
    if (newBlock || end == mHead) {
        WakeSender();
    }
    return true;
}

void RingReader::WakeSender() noexcept {
    // Pairs with the fence of SegmentTxDevice::SleepForRoom. Here: cursor, fence, roomWanted. There:
    // roomWanted, fence, cursor. So either the sender sees how far this reader is or this reader sees that it
    // waits.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    std::uint64_t wanted = mSender.roomWanted.load(std::memory_order_relaxed);
    if (wanted != 0 && mPosition >= wanted &&
        mSender.roomWanted.compare_exchange_strong(wanted, 0, std::memory_order_relaxed)) {
        FutexWake(mSender.roomWord);
    }
}

void RingReader::ReleaseSender() noexcept {
    // Pairs with the fence of SegmentTxDevice::SleepForRoom. Here: epoch, which the caller has changed,
    // fence, roomWanted. There: roomWanted, fence, epoch.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (mSender.roomWanted.load(std::memory_order_relaxed) != 0) {
        FutexWake(mSender.roomWord);
    }
}

std::uint64_t RingReader::CountAt(std::uint64_t position) const noexcept {
    return position == 0 ? 0 : WordAt(position - cWordBytes).load(std::memory_order_relaxed);
}

// For words behind position that have been read already: when it is false, they were good.
bool RingReader::IsOverwritten(std::uint64_t position) const noexcept {
    std::atomic_thread_fence(std::memory_order_acquire);
    return mSender.reclaim.load(std::memory_order_relaxed) > position;
}

// After an overrun: goes on with the oldest record that is still there.
void RingReader::Resynchronise() noexcept {
    const std::uint64_t oldest = mSender.reclaim.load(std::memory_order_acquire);
    const std::uint64_t head = mSender.head.load(std::memory_order_acquire);
    if (oldest % cBlockBytes != 0 || !IsRecordEnd(head) || oldest > head || oldest <= mPosition) {
        SkipDamage(head);
        return;
    }
    mHead = head;
    MoveTo(oldest);
    WakeSender();
}

// What comes before the end cannot be read: at least one frame was lost.
void RingReader::SkipDamage(std::uint64_t head) noexcept {
    mHead = head;
    mDamaged = true;
    MoveTo(head);
    WakeSender();
}

void RingReader::MoveTo(std::uint64_t position) noexcept {
    mPeeked = false;
    mPosition = position;
    mCursor.store(position, std::memory_order_release);
}

} // namespace quayside2::segment
