#include "netif/NetifTxDevice.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <time.h>

#include "common/Clock.h"
#include "netif/NetifQuery.h"

namespace quayside2::netif {

namespace {

constexpr std::uint32_t cHeaderBytes = 14; // without a tag; also the shortest frame
constexpr std::uint32_t cTagBytes = 4;

// The longest that one call of SendRawFrames waits for a busy link.
constexpr std::int64_t cSendLimit = cNanosecondsPerSecond;
// A waiting sender looks this often by itself: whether the handle is being closed, and whether another thread
// has sent its frames.
constexpr std::int64_t cRoomSlice = 20 * cNanosecondsPerMillisecond;
// A link that takes nothing is given this long to recover before frames are lost.
constexpr std::int64_t cRetryLimit = 5 * cNanosecondsPerMillisecond;
constexpr std::int64_t cRetryPause = 200'000;

// Whether the system does not take a frame now, but may soon.
bool IsRefusal(int error) noexcept {
    return error == ENOBUFS || error == ENOMEM || error == ENETDOWN;
}

bool IsVlanTagged(const std::uint8_t* frame) {
    return frame[12] == 0x81 && frame[13] == 0x00;
}

} // namespace

KESTATUS NetifTxDevice::Open() {
    // Protocol 0: a sending socket must not fill with what is received.
    const int error = mSocket.OpenSocket(AF_PACKET, SOCK_RAW, 0);
    if (error != 0) {
        return StatusForError(error);
    }
    KESTATUS status = mLock.Take(mInterfaceIndex, InterfaceLock::Direction::Transmit);
    if (status != KESTATUS_SUCCESS) {
        return status;
    }
    struct sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(mInterfaceIndex);
    if (::bind(mSocket.Descriptor(), reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) !=
        0) {
        return StatusForError(errno);
    }
    status = UpdateMtu();
    if (status == KESTATUS_SUCCESS) {
        mBatch.SetMaxFrameBytes(mMaxUntaggedBytes + cTagBytes);
    }
    return status;
}

KESTATUS NetifTxDevice::GetLostFrames(std::uint64_t& count) {
    count = mLostFrames.load(std::memory_order_relaxed);
    return KESTATUS_SUCCESS;
}

KESTATUS NetifTxDevice::UpdateMtu() {
    std::uint32_t mtu = 0;
    const KESTATUS status = QueryMtu(mSocket.Descriptor(), mInterfaceIndex, mtu);
    if (status == KESTATUS_SUCCESS) {
        mMaxUntaggedBytes = mtu + cHeaderBytes;
    }
    return status;
}

// Whether there is a place for a frame of this length, with a tag if it needs one.
KESTATUS NetifTxDevice::CheckLength(std::uint32_t length) {
    if (length < cHeaderBytes) {
        return KESTATUS_INVALID_LENGTH;
    }
    if (length > mMaxUntaggedBytes + cTagBytes) { // the MTU may have grown
        const KESTATUS status = UpdateMtu();
        if (status != KESTATUS_SUCCESS) {
            return status;
        }
        if (length > mMaxUntaggedBytes + cTagBytes) {
            return KESTATUS_INVALID_LENGTH;
        }
    }
    if (mBatch.FreeFrames() == 0) {
        return KESTATUS_NO_SPACE;
    }
    if (length > mBatch.MaxFrameBytes()) {
        if (!mBatch.IsEmpty()) {
            return KESTATUS_NO_SPACE;
        }
        mBatch.SetMaxFrameBytes(mMaxUntaggedBytes + cTagBytes);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS NetifTxDevice::CheckSubmitRawFrame(std::uint32_t length) {
    const std::lock_guard lock(mMutex);
    return CheckLength(length);
}

KESTATUS NetifTxDevice::SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) {
    const std::lock_guard lock(mMutex);
    const KESTATUS status = CheckLength(length);
    if (status != KESTATUS_SUCCESS) {
        return status;
    }
    if (length > mMaxUntaggedBytes && !IsVlanTagged(frame)) {
        return KESTATUS_INVALID_LENGTH;
    }
    mBatch.Add(frame, length);
    return KESTATUS_SUCCESS;
}

KESTATUS NetifTxDevice::WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) {
    if (count == 0 || count > TransmitBatch::cMaxFrames) {
        return KESTATUS_INVALID_PARAMETER;
    }
    Lock lock(mMutex);
    if (mBatch.FreeFrames() < count) {
        const KESTATUS status = SendBatch(lock, count, DeadlineAfter(timeoutMs), AtDeadline::Keep);
        if (status != KESTATUS_SUCCESS) {
            return status;
        }
    }
    if (mBatch.FreeFrames() >= count) {
        return KESTATUS_SUCCESS;
    }
    return mShutdown.load(std::memory_order_relaxed) ? KESTATUS_INVALID_HANDLE : KESTATUS_TIMEOUT;
}

KESTATUS NetifTxDevice::SendRawFrames() {
    Lock lock(mMutex);
    return mBatch.IsEmpty()
               ? KESTATUS_NO_DATA
               : SendBatch(lock, TransmitBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Lose);
}

void NetifTxDevice::Shutdown() noexcept {
    mShutdown.store(true, std::memory_order_relaxed);
}

void NetifTxDevice::Finish() noexcept {
    Lock lock(mMutex);
    SendBatch(lock, TransmitBatch::cMaxFrames, SteadyNow() + cSendLimit, AtDeadline::Lose);
}

// Hands the batch to the kernel. Frames that cannot be sent are counted and are no failure, or a cable that
// is pulled for a moment would end every stream. Once so many frames can be submitted it does not wait for
// the rest.
KESTATUS NetifTxDevice::SendBatch(Lock& lock, std::uint32_t enough, std::int64_t deadline,
                                  AtDeadline atDeadline) {
    if (mBatch.IsEmpty()) {
        return KESTATUS_SUCCESS;
    }
    bool isLinkUp = true;
    KESTATUS result = QueryIsLinkUp(mSocket.Descriptor(), mInterfaceIndex, isLinkUp);
    if (result == KESTATUS_DEVICE_REMOVED) {
        LoseFirst(mBatch.FrameCount());
        return result;
    }
    result = KESTATUS_SUCCESS;
    const bool keep = atDeadline == AtDeadline::Keep;
    std::int64_t refusedSince = cNever; // when the first frame was refused first
    while (!mBatch.IsEmpty()) {
        const int sent = ::sendmmsg(mSocket.Descriptor(), mBatch.FirstMessages(), mBatch.FirstMessageCount(),
                                    MSG_DONTWAIT);
        const int error = sent > 0 ? 0 : errno;
        if (sent > 0) {
            // Without a carrier the kernel takes frames and drops them.
            mLostFrames.fetch_add(isLinkUp ? 0 : static_cast<std::uint32_t>(sent), std::memory_order_relaxed);
            mBatch.RemoveFirst(static_cast<std::uint32_t>(sent));
            mIsLosing = !isLinkUp;
            refusedSince = cNever;
            continue;
        }
        if (error != EAGAIN && !IsRefusal(error)) {
            const KESTATUS status = LoseUnsendable(error);
            result = status == KESTATUS_SUCCESS ? result : status;
            continue;
        }
        const std::int64_t now = SteadyNow();
        const bool isOver = now >= deadline || (keep && mShutdown.load(std::memory_order_relaxed));
        if (IsRefusal(error)) {
            refusedSince = std::min(refusedSince, now);
            if (!isLinkUp || mIsLosing || now - refusedSince >= cRetryLimit || (isOver && !keep)) {
                mIsLosing = true;
                LoseFirst(1);
                continue;
            }
        }
        if (isOver && !keep) {
            LoseFirst(mBatch.FrameCount());
        } else if (isOver || mBatch.FreeFrames() >= enough) {
            break;
        } else {
            SleepForRoom(lock, error, deadline - now);
        }
    }
    return result;
}

// The first frame can never be sent as it is.
KESTATUS NetifTxDevice::LoseUnsendable(int error) {
    switch (error) {
    case EINTR:
        return KESTATUS_SUCCESS;
    case EMSGSIZE: // the MTU has become smaller since the frame was submitted
        LoseFirst(1);
        return UpdateMtu();
    case ENXIO:
    case ENODEV:
        LoseFirst(mBatch.FrameCount());
        return KESTATUS_DEVICE_REMOVED;
    default:
        LoseFirst(1);
        return KEStatusFromErrno(error);
    }
}

// Sleeps without the lock until there may be room, or another try makes sense.
void NetifTxDevice::SleepForRoom(Lock& lock, int error, std::int64_t nanoseconds) {
    struct pollfd waitedFor = {mSocket.Descriptor(), POLLOUT, 0};
    const bool isFull = error == EAGAIN;
    const struct timespec limit = {
        0, static_cast<long>(std::min(isFull ? cRoomSlice : cRetryPause, nanoseconds))};
    lock.unlock();
    // Room, or something wrong that sending tells, ends the sleep at once. A refusal says nothing of room.
    ::ppoll(&waitedFor, isFull ? 1 : 0, &limit, nullptr);
    lock.lock();
}

void NetifTxDevice::LoseFirst(std::uint32_t count) noexcept {
    mBatch.RemoveFirst(count);
    mLostFrames.fetch_add(count, std::memory_order_relaxed);
}

} // namespace quayside2::netif
