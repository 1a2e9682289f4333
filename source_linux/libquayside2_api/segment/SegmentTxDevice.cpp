#include "segment/SegmentTxDevice.h"

#include <algorithm>

#include "common/Clock.h"
#include "segment/Futex.h"

namespace quayside2::segment {

namespace {

// The longest that one call of SendRawFrames waits for all receivers together.
constexpr std::int64_t cSendLimit = cNanosecondsPerSecond;
// A waiting sender looks by itself this often: whether receivers died, and against a lost wake-up.
constexpr std::int64_t cRoomSlice = 10 * cNanosecondsPerMillisecond;
// A waiting sender is woken when this much more than the next block is free, so that a sender faster
// than its receiver does not sleep for every block.
constexpr std::uint64_t cRoomHysteresis = cRingBytes / 4;

constexpr std::uint32_t cEtherTypeOffset = 12;

bool IsVlanTagged(const std::uint8_t* frame) {
    return frame[cEtherTypeOffset] == 0x81 && frame[cEtherTypeOffset + 1] == 0x00;
}

} // namespace

SegmentTxDevice::SegmentTxDevice(const DeviceProperties& properties, std::unique_ptr<SegmentPort> port)
    : mProperties(properties),
      mPort(std::move(port)),
      mWriter(mPort->OwnRing(), mPort->OwnSender()),
      mFlowControl(mPort->Control(), mPort->Number(),
                   [this](std::uint32_t number) { return mPort->File().IsPortHeld(number); }) {}

KESTATUS SegmentTxDevice::GetLostFrames(std::uint64_t& count) {
    count = 0;
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentTxDevice::CheckSubmitRawFrame(std::uint32_t length) {
    if (length < cMinFrameBytes || length > cMaxTaggedFrameBytes) {
        return KESTATUS_INVALID_LENGTH;
    }
    const std::lock_guard lock(mMutex);
    return mBatch.FreeFrames() == 0 ? KESTATUS_NO_SPACE : KESTATUS_SUCCESS;
}

KESTATUS SegmentTxDevice::WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) {
    if (count == 0 || count > TxBatch::cMaxFrames) {
        return KESTATUS_INVALID_PARAMETER;
    }
    Lock lock(mMutex);
    if (mBatch.FreeFrames() < count) {
        MoveBatch(lock, count, DeadlineAfter(timeoutMs), AtDeadline::Keep);
    }
    if (mBatch.FreeFrames() >= count) {
        return KESTATUS_SUCCESS;
    }
    return mShutdown.load(std::memory_order_relaxed) ? KESTATUS_INVALID_HANDLE : KESTATUS_TIMEOUT;
}

KESTATUS SegmentTxDevice::SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) {
    if (length < cMinFrameBytes || length > cMaxTaggedFrameBytes ||
        (length > cMaxFrameBytes && !IsVlanTagged(frame))) {
        return KESTATUS_INVALID_LENGTH;
    }
    const std::lock_guard lock(mMutex);
    if (mBatch.FreeFrames() == 0) {
        return KESTATUS_NO_SPACE;
    }
    mBatch.Add(frame, length);
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentTxDevice::SendRawFrames() {
    Lock lock(mMutex);
    if (mBatch.IsEmpty()) {
        return KESTATUS_NO_DATA;
    }
    MoveBatch(lock, TxBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Overwrite);
    return KESTATUS_SUCCESS;
}

void SegmentTxDevice::Shutdown() noexcept {
    mShutdown.store(true, std::memory_order_relaxed);
    FutexWake(mPort->OwnSender().roomWord);
}

void SegmentTxDevice::Finish() noexcept {
    Lock lock(mMutex);
    MoveBatch(lock, TxBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Overwrite);
}

// Moves the batch into the ring and sends it. Once so many frames can be submitted it does not wait for the
// rest.
void SegmentTxDevice::MoveBatch(Lock& lock, std::uint32_t enough, std::int64_t deadline,
                                AtDeadline atDeadline) {
    const bool keep = atDeadline == AtDeadline::Keep;
    while (!mBatch.IsEmpty()) {
        const std::uint64_t reclaim = mWriter.ReclaimWanted();
        if (reclaim > mWriter.Reclaimed()) {
            const std::int64_t now = SteadyNow();
            if (mFlowControl.MustWait(reclaim, mWriter.SentEnd(), now)) {
                const bool isOver = now >= deadline || (keep && mShutdown.load(std::memory_order_relaxed));
                if (mBatch.FreeFrames() >= enough || (isOver && keep)) {
                    break;
                }
                if (!isOver) {
                    SleepForRoom(lock, reclaim, deadline);
                    continue; // another thread may have moved frames meanwhile
                }
            }
            mWriter.Reclaim(reclaim);
        }
        mWriter.Append(mBatch.Front());
        mBatch.PopFront();
    }
    PublishAndWake();
}

// Sends what was appended and sleeps without the lock until there may be room, at most for a moment.
void SegmentTxDevice::SleepForRoom(Lock& lock, std::uint64_t reclaim, std::int64_t deadline) {
    PublishAndWake();
    SenderState& state = mPort->OwnSender();
    const std::uint32_t word = state.roomWord.load(std::memory_order_acquire);
    state.roomWanted.store(std::min(reclaim + cRoomHysteresis, mWriter.SentEnd()), std::memory_order_relaxed);
    // Receivers move first and look for waiting senders then; the other way round here.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const std::int64_t now = SteadyNow();
    if (mFlowControl.MustWait(reclaim, mWriter.SentEnd(), now)) {
        lock.unlock();
        FutexWait(state.roomWord, word, std::min(cRoomSlice, deadline - now));
        lock.lock();
    }
    // When another thread waits too, this costs it no more than its slice.
    state.roomWanted.store(0, std::memory_order_relaxed);
}

void SegmentTxDevice::PublishAndWake() noexcept {
    if (!mWriter.HasUnsent()) {
        return;
    }
    mWriter.Publish(TimeOfDay());
    // Receivers say that they sleep and look for frames then; the other way round here.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    for (std::uint32_t port = 0; port < cPortCount; ++port) {
        ReceiverState& receiver = mPort->Control().receivers[port];
        if (port != mPort->Number() && receiver.sleeping.load(std::memory_order_relaxed) != 0 &&
            receiver.sleeping.exchange(0, std::memory_order_relaxed) != 0) {
            FutexWake(receiver.wakeWord);
        }
    }
}

} // namespace quayside2::segment
