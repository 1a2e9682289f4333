#include "netif/NetifRxDevice.h"

#include <utility>

#include "common/Clock.h"
#include "netif/NetifQuery.h"

namespace quayside2::netif {

namespace {

// A capture may wait for its disk, and its frames may come late: few wake-ups, and blocks for 4 s. A
// forwarder wants frames soon: after 1 ms, and blocks for 1 s.
constexpr PacketReceiver::RingSize cRingOfCapture = {128u << 10, 512, 8};
constexpr PacketReceiver::RingSize cRingOfForwarder = {64u << 10, 1024, 1};

} // namespace

KESTATUS NetifRxDevice::Open() {
    KESTATUS st = MakeReceiver(); // first, so that a missing privilege is reported before all else
    if (st == KESTATUS_SUCCESS) {
        st = mReceiver->CheckInterface(mInterfaceIndex);
    }
    return st == KESTATUS_SUCCESS ? mLock.Take(mInterfaceIndex, InterfaceLock::Direction::Receive) : st;
}

KESTATUS NetifRxDevice::MakeReceiver() {
    auto receiver = std::make_shared<PacketReceiver>();
    const KESTATUS st = receiver->Create(mHasReceiveHeader ? cRingOfCapture : cRingOfForwarder);
    if (st == KESTATUS_SUCCESS) {
        mReceiver = std::move(receiver);
    }
    return st;
}

KESTATUS NetifRxDevice::GetState(std::string& state) const {
    return QueryStateInUse(mInterfaceIndex, state);
}

KESTATUS NetifRxDevice::GetLostFrames(std::uint64_t& count) {
    const std::lock_guard lock(mMutex);
    CountDrops();
    count = mDelivery.Lost();
    return KESTATUS_SUCCESS;
}

KESTATUS NetifRxDevice::EnableRawRx() {
    const std::lock_guard lock(mMutex);
    if (mIsEnabled) {
        return KESTATUS_SUCCESS;
    }
    KESTATUS st = mReceiver ? KESTATUS_SUCCESS : MakeReceiver();
    if (st == KESTATUS_SUCCESS) {
        st = mReceiver->Start(mInterfaceIndex);
    }
    if (st != KESTATUS_SUCCESS) {
        mReceiver.reset();
        return st;
    }
    mIsEnabled = true;
    mDelivery.Start();
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
    const KESTATUS st = State();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    if (mReceiver != receiver) {
        return KESTATUS_NOT_ENABLED; // it was disabled, and has been enabled again since
    }
    return mReceiver->HasFrame() ? KESTATUS_SUCCESS : KESTATUS_TIMEOUT;
}

KESTATUS NetifRxDevice::WaitForRawFrame(std::int32_t timeoutMs) {
    const std::int64_t deadline = DeadlineAfter(timeoutMs);
    std::unique_lock lock(mMutex);
    const std::shared_ptr<PacketReceiver> receiver = mReceiver;
    for (;;) {
        const KESTATUS st = WaitState(receiver);
        const std::int64_t now = SteadyNow();
        if (st != KESTATUS_TIMEOUT || now >= deadline) {
            return st;
        }
        lock.unlock();
        const KESTATUS waitSt = receiver->Wait(deadline - now);
        lock.lock();
        if (waitSt != KESTATUS_SUCCESS) {
            const KESTATUS last = WaitState(receiver);
            return last == KESTATUS_TIMEOUT ? waitSt : last;
        }
    }
}

KESTATUS NetifRxDevice::GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                            std::uint32_t bufferSize, std::uint32_t& receivedLength) {
    const std::lock_guard lock(mMutex);
    const KESTATUS st = State();
    return st == KESTATUS_SUCCESS ? mDelivery.TakeItem(*mReceiver, type, buffer, bufferSize, receivedLength)
                                  : st;
}

void NetifRxDevice::CountDrops() noexcept {
    if (mReceiver) {
        mDelivery.Lose(mReceiver->TakeDropCount());
    }
}

} // namespace quayside2::netif
