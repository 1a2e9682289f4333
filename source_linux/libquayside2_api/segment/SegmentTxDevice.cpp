#include "segment/SegmentTxDevice.h"

#include <algorithm>

#include "common/Clock.h"
#include "segment/Futex.h"

namespace quayside2::segment {

namespace {

// A waiting sender looks by itself this often: whether receivers died, and against a lost wake-up.
constexpr std::int64_t cRoomSlice = 10 * cNanosecondsPerMillisecond;
// A waiting sender is woken when so much more than the next block is free. So a sender that is faster than
// its receiver does not sleep for every block.
constexpr std::uint64_t cRoomHysteresis = cRingBytes / 4;

} // namespace

SegmentTxDevice::SegmentTxDevice(const DeviceProperties& properties, std::unique_ptr<SegmentPort> port)
    : TransmitDevice(properties),
      mPort(std::move(port)),
      mWriter(mPort->OwnRing(), mPort->OwnSender()),
      mFlowControl(mPort->Control(), mPort->Number(),
                   [this](std::uint32_t number) { return mPort->File().IsPortHeld(number); }) {
    SetMaxUntaggedBytes(cMaxFrameBytes);
}

KESTATUS SegmentTxDevice::GetLostFrames(std::uint64_t& count) {
    count = 0;
    return KESTATUS_SUCCESS;
}

void SegmentTxDevice::Shutdown() noexcept {
    TransmitDevice::Shutdown();
    FutexWake(mPort->OwnSender().roomWord);
}

KESTATUS SegmentTxDevice::SendBatch(Lock& lock, const SendTerms& terms) {
    while (!Batch().IsEmpty()) {
        const Room room = MakeRoom(lock, terms);
        if (room == Room::None) {
            break;
        }
        if (room == Room::Free) {
            const FrameBatch::Frame frame = Batch().At(0);
            mWriter.Append(frame.data, frame.length);
            Batch().RemoveFirst(1);
        }
    }
    PublishAndWake();
    return KESTATUS_SUCCESS;
}

// Makes room in the ring for one frame. Changed: it has slept, and another thread may have sent the frame
// meanwhile. None: there is no room by the terms.
SegmentTxDevice::Room SegmentTxDevice::MakeRoom(Lock& lock, const SendTerms& terms) {
    const std::uint64_t reclaim = mWriter.ReclaimWanted();
    if (reclaim <= mWriter.Reclaimed()) {
        return Room::Free;
    }
    const std::int64_t now = SteadyNow();
    if (mFlowControl.MustWait(reclaim, mWriter.SentEnd(), now)) {
        const bool isOver = IsOver(terms, now);
        if (Batch().FreeFrames() >= terms.enoughPlaces || (isOver && terms.atDeadline == AtDeadline::Keep)) {
            return Room::None;
        }
        if (!isOver) {
            SleepForRoom(lock, reclaim, terms.deadline);
            return Room::Changed;
        }
    }
    mWriter.Reclaim(reclaim);
    return Room::Free;
}

// Sends what was appended and sleeps without the lock until there may be room, at most for a moment.
void SegmentTxDevice::SleepForRoom(Lock& lock, std::uint64_t reclaim, std::int64_t deadline) {
    PublishAndWake();
    SenderState& state = mPort->OwnSender();
    const std::uint32_t word = state.roomWord.load(std::memory_order_acquire);
    state.roomWanted.store(std::min(reclaim + cRoomHysteresis, mWriter.SentEnd()), std::memory_order_relaxed);
    // Pairs with the fences of RingReader::WakeSender and RingReader::ReleaseSender. Here: roomWanted, fence,
    // cursors and epochs of the receivers. There: cursor or epoch, fence, roomWanted. One of the two sees
    // what the other one has written.
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
    // Pairs with the fence of SegmentRxDevice::WaitForRawFrame. Here: head of the ring, fence, sleeping.
    // There: sleeping, fence, head. So either the receiver sees the frames or this thread sees that it
    // sleeps.
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
