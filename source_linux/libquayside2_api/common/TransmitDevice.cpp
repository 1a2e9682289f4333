#include "common/TransmitDevice.h"

#include "common/Clock.h"
#include "common/EthernetFrame.h"

namespace quayside2 {

namespace {

// The longest that one call of SendRawFrames, or the sending of a close, waits for room.
constexpr std::int64_t cSendLimit = cNanosecondsPerSecond;

} // namespace

void TransmitDevice::SetMaxUntaggedBytes(std::uint32_t bytes) {
    mMaxUntaggedBytes = bytes;
    if (mBatch.MaxFrameBytes() == 0) {
        mBatch.SetMaxFrameBytes(MaxTaggedBytes());
    }
}

std::uint32_t TransmitDevice::MaxTaggedBytes() const noexcept {
    return mMaxUntaggedBytes + cVlanTagBytes;
}

// Whether the link carries a frame of this length, with a tag if it needs one.
KESTATUS TransmitDevice::CheckLength(std::uint32_t length) {
    if (length < cMinFrameBytes) {
        return KESTATUS_INVALID_LENGTH;
    }
    if (length <= MaxTaggedBytes()) {
        return KESTATUS_SUCCESS;
    }
    const KESTATUS st = UpdateMaxFrame();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    return length <= MaxTaggedBytes() ? KESTATUS_SUCCESS : KESTATUS_INVALID_LENGTH;
}

// Whether the batch has a place for a frame of this length. The places grow while the batch is empty.
KESTATUS TransmitDevice::MakePlace(std::uint32_t length) {
    if (length > mBatch.MaxFrameBytes() && mBatch.IsEmpty()) {
        mBatch.SetMaxFrameBytes(MaxTaggedBytes());
    }
    return mBatch.FreeFrames() == 0 || length > mBatch.MaxFrameBytes() ? KESTATUS_NO_SPACE : KESTATUS_SUCCESS;
}

KESTATUS TransmitDevice::CheckSubmitRawFrame(std::uint32_t length) {
    const Lock lock(mMutex);
    const KESTATUS st = CheckLength(length);
    return st == KESTATUS_SUCCESS ? MakePlace(length) : st;
}

KESTATUS TransmitDevice::SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) {
    const Lock lock(mMutex);
    KESTATUS st = CheckLength(length);
    if (st == KESTATUS_SUCCESS && length > mMaxUntaggedBytes && !IsVlanTagged(frame)) {
        st = KESTATUS_INVALID_LENGTH;
    }
    if (st == KESTATUS_SUCCESS) {
        st = MakePlace(length);
    }
    if (st == KESTATUS_SUCCESS) {
        mBatch.Add(frame, length);
    }
    return st;
}

KESTATUS TransmitDevice::WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) {
    if (count == 0 || count > FrameBatch::cMaxFrames) {
        return KESTATUS_INVALID_PARAMETER;
    }
    Lock lock(mMutex);
    if (mBatch.FreeFrames() < count) {
        const KESTATUS st = SendBatch(lock, {count, DeadlineAfter(timeoutMs), AtDeadline::Keep});
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    if (mBatch.FreeFrames() >= count) {
        return KESTATUS_SUCCESS;
    }
    return mIsShutdown.load(std::memory_order_relaxed) ? KESTATUS_INVALID_HANDLE : KESTATUS_TIMEOUT;
}

KESTATUS TransmitDevice::SendRawFrames() {
    Lock lock(mMutex);
    if (mBatch.IsEmpty()) {
        return KESTATUS_NO_DATA;
    }
    return SendBatch(lock, {FrameBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Remove});
}

void TransmitDevice::Shutdown() noexcept {
    mIsShutdown.store(true, std::memory_order_relaxed);
}

void TransmitDevice::Finish() noexcept {
    Lock lock(mMutex);
    // A close has no status for frames that are lost; who must know sends before it closes.
    static_cast<void>(
        SendBatch(lock, {FrameBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Remove}));
}

bool TransmitDevice::IsOver(const SendTerms& terms, std::int64_t now) const noexcept {
    // A call that removes the rest also ends soon without being told: it has the time limit of a close.
    const bool isClosed = terms.atDeadline == AtDeadline::Keep && mIsShutdown.load(std::memory_order_relaxed);
    return isClosed || now >= terms.deadline;
}

} // namespace quayside2
