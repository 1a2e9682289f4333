#include "SegmentTxDevice.h"

#include <algorithm>

#include "../Clock.h"
#include "Futex.h"

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
    const std::lock_guard lock(mMutex);
    if (mBatch.FreeFrames() < count) {
        MoveBatch(DeadlineAfter(timeoutMs), AtDeadline::Keep);
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
    const std::lock_guard lock(mMutex);
    if (mBatch.IsEmpty()) {
        return KESTATUS_NO_DATA;
    }
    MoveBatch(SteadyNow() + cSendLimit, AtDeadline::Overwrite);
    return KESTATUS_SUCCESS;
}

void SegmentTxDevice::Shutdown() noexcept {
    mShutdown.store(true, std::memory_order_relaxed);
    FutexWake(mPort->OwnSender().roomWord);
}

void SegmentTxDevice::Finish() noexcept {
    const std::lock_guard lock(mMutex);
    MoveBatch(SteadyNow() + cSendLimit, AtDeadline::Overwrite);
}

// Moves the batch into the ring and sends it.
void SegmentTxDevice::MoveBatch(std::int64_t deadline, AtDeadline atDeadline) {
    std::uint64_t time = TimeOfDay();
    while (!mBatch.IsEmpty()) {
        const std::uint64_t reclaim = mWriter.ReclaimWanted();
        if (reclaim > mWriter.Reclaimed()) {
            if (mFlowControl.MustWait(reclaim, mWriter.SentEnd(), SteadyNow())) {
                PublishAndWake();
                const bool keep = atDeadline == AtDeadline::Keep;
                if (!WaitForRoom(reclaim, deadline, keep) && keep) {
                    return;
                }
                time = TimeOfDay();
            }
            mWriter.Reclaim(reclaim);
        }
        mWriter.Append(mBatch.Front(), time);
        mBatch.PopFront();
    }
    PublishAndWake();
}

// False when the deadline came first.
bool SegmentTxDevice::WaitForRoom(std::uint64_t reclaim, std::int64_t deadline, bool stopAtShutdown) {
    SenderState& state = mPort->OwnSender();
    const std::uint64_t wanted = std::min(reclaim + cRoomHysteresis, mWriter.SentEnd());
    bool room = false;
    for (;;) {
        const std::uint32_t word = state.roomWord.load(std::memory_order_acquire);
        state.roomWanted.store(wanted, std::memory_order_relaxed);
        // Receivers move first and look for waiting senders then; the other way round here.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        const std::int64_t now = SteadyNow();
        room = !mFlowControl.MustWait(reclaim, mWriter.SentEnd(), now);
        if (room || now >= deadline || (stopAtShutdown && mShutdown.load(std::memory_order_relaxed))) {
            break;
        }
        FutexWait(state.roomWord, word, std::min(cRoomSlice, deadline - now));
    }
    state.roomWanted.store(0, std::memory_order_relaxed);
    return room;
}

void SegmentTxDevice::PublishAndWake() noexcept {
    if (!mWriter.Publish()) {
        return;
    }
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
