#include "segment/SegmentRxDevice.h"

#include <algorithm>

#include "common/Clock.h"
#include "segment/Futex.h"

namespace quayside2::segment {

namespace {

// A waiting receiver looks by itself this often, against a sender that died between sending and waking.
constexpr std::int64_t cWaitSlice = 100 * cNanosecondsPerMillisecond;

bool IsEnabled(std::uint32_t epoch) {
    return epoch % 2 == 1;
}

} // namespace

SegmentRxDevice::SegmentRxDevice(const DeviceProperties& properties, bool receiveHeader,
                                 std::unique_ptr<SegmentPort> port)
    : mProperties(properties),
      mPort(std::move(port)),
      mEpoch(mPort->OwnReceiver().epoch.load(std::memory_order_relaxed) & ~1u),
      mFrames(*mPort),
      mDelivery(receiveHeader) {}

SegmentRxDevice::~SegmentRxDevice() {
    if (IsEnabled(mEpoch.load(std::memory_order_relaxed))) {
        ChangeEpoch();
    }
}

// As far as frames have been taken: a loss is known when the next frame is looked at.
KESTATUS SegmentRxDevice::GetLostFrames(std::uint64_t& count) {
    const std::lock_guard lock(mMutex);
    count = mDelivery.Lost();
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentRxDevice::EnableRawRx() {
    const std::lock_guard lock(mMutex);
    if (!IsEnabled(mEpoch.load(std::memory_order_relaxed))) {
        mDelivery.Start();
        mFrames.Start();
        ChangeEpoch();
    }
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentRxDevice::DisableRawRx() {
    const std::lock_guard lock(mMutex);
    if (IsEnabled(mEpoch.load(std::memory_order_relaxed))) {
        ChangeEpoch();
    }
    return KESTATUS_SUCCESS;
}

// Enables or disables, for senders and for threads that wait.
void SegmentRxDevice::ChangeEpoch() noexcept {
    const std::uint32_t epoch = mEpoch.load(std::memory_order_relaxed) + 1;
    mEpoch.store(epoch, std::memory_order_release);
    mPort->OwnReceiver().epoch.store(epoch, std::memory_order_release);
    if (!IsEnabled(epoch)) {
        FutexWake(mPort->OwnReceiver().wakeWord);
        mFrames.ReleaseSenders();
    }
}

void SegmentRxDevice::Shutdown() noexcept {
    mIsShutdown.store(true, std::memory_order_release);
    FutexWake(mPort->OwnReceiver().wakeWord);
}

bool SegmentRxDevice::HasData() {
    const std::lock_guard lock(mMutex);
    return mFrames.HasData();
}

// Whether a wait that began in an epoch may go on.
KESTATUS SegmentRxDevice::WaitState(std::uint32_t epoch) const noexcept {
    if (mIsShutdown.load(std::memory_order_acquire)) {
        return KESTATUS_INVALID_HANDLE;
    }
    const bool goOn = IsEnabled(epoch) && mEpoch.load(std::memory_order_acquire) == epoch;
    return goOn ? KESTATUS_SUCCESS : KESTATUS_NOT_ENABLED;
}

KESTATUS SegmentRxDevice::WaitForRawFrame(std::int32_t timeoutMs) {
    const std::uint32_t epoch = mEpoch.load(std::memory_order_acquire);
    KESTATUS st = WaitState(epoch);
    if (st != KESTATUS_SUCCESS || HasData()) {
        return st;
    }
    if (timeoutMs == 0) {
        return KESTATUS_TIMEOUT;
    }
    const std::int64_t deadline = DeadlineAfter(timeoutMs);
    ReceiverState& shared = mPort->OwnReceiver();
    for (;;) {
        const std::uint32_t word = shared.wakeWord.load(std::memory_order_acquire);
        shared.sleeping.store(1, std::memory_order_relaxed);
        // Pairs with the fence of SegmentTxDevice::PublishAndWake. Here: sleeping, fence, heads of the rings.
        // There: head, fence, sleeping. So either this thread sees the frames or the sender sees that it
        // sleeps.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        st = WaitState(epoch);
        if (st != KESTATUS_SUCCESS || HasData()) {
            return st;
        }
        const std::int64_t now = SteadyNow();
        if (now >= deadline) {
            return KESTATUS_TIMEOUT;
        }
        FutexWait(shared.wakeWord, word, std::min(cWaitSlice, deadline - now));
    }
}

KESTATUS SegmentRxDevice::GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                              std::uint32_t bufferSize, std::uint32_t& receivedLength) {
    const std::lock_guard lock(mMutex);
    const KESTATUS st = WaitState(mEpoch.load(std::memory_order_relaxed));
    return st == KESTATUS_SUCCESS ? mDelivery.TakeItem(mFrames, type, buffer, bufferSize, receivedLength)
                                  : st;
}

} // namespace quayside2::segment
