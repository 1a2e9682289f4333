#include "netif/NetifRxDevice.h"

#include <utility>

#include "common/Clock.h"
#include "common/ReceiveHeader.h"

namespace quayside2::netif {

namespace {

// A capture may wait for its disk and does not mind frames that come late: few wake-ups and 4 s in hand. A
// forwarder wants frames soon: 1 ms, and 1 s in hand.
constexpr PacketReceiver::RingSize cRingOfCapture = {128u << 10, 512, 8};
constexpr PacketReceiver::RingSize cRingOfForwarder = {64u << 10, 1024, 1};

// How many frames one call skips because the buffer is too small, before it answers "no data".
constexpr int cMaxSkips = 1024;

} // namespace

KESTATUS NetifRxDevice::Open() {
    KESTATUS status = MakeReceiver(); // first, so that a missing privilege is what a user hears of
    if (status == KESTATUS_SUCCESS) {
        status = mReceiver->CheckInterface(mInterfaceIndex);
    }
    return status == KESTATUS_SUCCESS ? mLock.Take(mInterfaceIndex, InterfaceLock::Direction::Receive)
                                      : status;
}

KESTATUS NetifRxDevice::MakeReceiver() {
    auto receiver = std::make_shared<PacketReceiver>();
    const KESTATUS status = receiver->Create(mHeaderBytes != 0 ? cRingOfCapture : cRingOfForwarder);
    if (status == KESTATUS_SUCCESS) {
        mReceiver = std::move(receiver);
    }
    return status;
}

KESTATUS NetifRxDevice::GetLostFrames(std::uint64_t& count) {
    const std::lock_guard lock(mMutex);
    CountDrops();
    count = mSequence.Lost();
    return KESTATUS_SUCCESS;
}

KESTATUS NetifRxDevice::EnableRawRx() {
    const std::lock_guard lock(mMutex);
    if (mIsEnabled) {
        return KESTATUS_SUCCESS;
    }
    KESTATUS status = mReceiver ? KESTATUS_SUCCESS : MakeReceiver();
    if (status == KESTATUS_SUCCESS) {
        status = mReceiver->Start(mInterfaceIndex);
    }
    if (status != KESTATUS_SUCCESS) {
        mReceiver.reset();
        return status;
    }
    mIsEnabled = true;
    mSequence.Start();
    return KESTATUS_SUCCESS;
}

KESTATUS NetifRxDevice::DisableRawRx() {
    const std::lock_guard lock(mMutex);
    if (mIsEnabled) {
        CountDrops();
        mIsEnabled = false;
        mReceiver->WakeWaiters();
        mReceiver.reset();
    }
    return KESTATUS_SUCCESS;
}

void NetifRxDevice::Shutdown() noexcept {
    const std::lock_guard lock(mMutex);
    mIsShutdown = true;
    if (mReceiver) {
        mReceiver->WakeWaiters();
    }
}

KESTATUS NetifRxDevice::State() const noexcept {
    if (mIsShutdown) {
        return KESTATUS_INVALID_HANDLE;
    }
    return mIsEnabled ? KESTATUS_SUCCESS : KESTATUS_NOT_ENABLED;
}

// Success when a frame is ready, timeout when a wait for this receiver may go on.
KESTATUS NetifRxDevice::WaitState(const std::shared_ptr<PacketReceiver>& receiver) {
    const KESTATUS state = State();
    if (state != KESTATUS_SUCCESS) {
        return state;
    }
    if (mReceiver != receiver) {
        return KESTATUS_NOT_ENABLED; // it was disabled, and has been enabled again since
    }
    return mReceiver->Ring().HasFrame() ? KESTATUS_SUCCESS : KESTATUS_TIMEOUT;
}

KESTATUS NetifRxDevice::WaitForRawFrame(std::int32_t timeoutMs) {
    const std::int64_t deadline = DeadlineAfter(timeoutMs);
    std::unique_lock lock(mMutex);
    const std::shared_ptr<PacketReceiver> receiver = mReceiver;
    for (;;) {
        const KESTATUS status = WaitState(receiver);
        const std::int64_t now = SteadyNow();
        if (status != KESTATUS_TIMEOUT || now >= deadline) {
            return status;
        }
        lock.unlock();
        const KESTATUS waitStatus = receiver->Wait(deadline - now);
        lock.lock();
        if (waitStatus != KESTATUS_SUCCESS) {
            const KESTATUS last = WaitState(receiver);
            return last == KESTATUS_TIMEOUT ? waitStatus : last;
        }
    }
}

KESTATUS NetifRxDevice::GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                            std::uint32_t bufferSize, std::uint32_t& receivedLength) {
    const std::lock_guard lock(mMutex);
    const KESTATUS state = State();
    if (state != KESTATUS_SUCCESS) {
        return state;
    }
    if (bufferSize < mHeaderBytes) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    PacketRing& ring = mReceiver->Ring();
    PacketRing::Frame frame;
    for (int skips = 0; skips < cMaxSkips; ++skips) {
        const bool isReady = ring.Peek(frame);
        if (!isReady || ring.TakeLossMark()) {
            CountDrops();
        }
        if (mHeaderBytes != 0 && mSequence.IsIdleDue(isReady)) {
            const std::uint64_t now = TimeOfDay();
            WriteHeader(buffer, now / cNanosecondsPerSecond,
                        static_cast<std::uint32_t>(now % cNanosecondsPerSecond));
            type = QBXRawFrameType_Idle;
            receivedLength = mHeaderBytes;
            return KESTATUS_SUCCESS;
        }
        if (!isReady) {
            break;
        }
        if (frame.isCut || frame.WireBytes() > bufferSize - mHeaderBytes) {
            mSequence.Skip();
            ring.Pop();
            continue;
        }
        WriteHeader(buffer, frame.seconds, frame.nanoseconds);
        frame.CopyTo(buffer + mHeaderBytes);
        type = QBXRawFrameType_Data;
        receivedLength = mHeaderBytes + frame.WireBytes();
        ring.Pop();
        return KESTATUS_SUCCESS;
    }
    return KESTATUS_NO_DATA;
}

void NetifRxDevice::CountDrops() noexcept {
    if (mReceiver) {
        mSequence.Lose(mReceiver->TakeDropCount());
    }
}

// Numbers what is delivered now.
void NetifRxDevice::WriteHeader(std::uint8_t* to, std::uint64_t seconds, std::uint32_t nanoseconds) noexcept {
    const std::uint32_t sequence = mSequence.Take();
    if (mHeaderBytes != 0) {
        WriteReceiveHeader(to, seconds, nanoseconds, sequence);
    }
}

} // namespace quayside2::netif
