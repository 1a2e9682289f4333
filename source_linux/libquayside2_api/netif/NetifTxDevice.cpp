#include "netif/NetifTxDevice.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "common/Clock.h"
#include "common/EthernetFrame.h"
#include "netif/NetifQuery.h"

namespace quayside2::netif {

namespace {

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

} // namespace

KESTATUS NetifTxDevice::Open() {
    // Protocol 0: a sending socket must not fill with what is received.
    const int error = mSocket.OpenSocket(AF_PACKET, SOCK_RAW, 0);
    if (error != 0) {
        return StatusForError(error);
    }
    const KESTATUS st = mLock.Take(mInterfaceIndex, InterfaceLock::Direction::Transmit);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(mInterfaceIndex);
    if (bind(mSocket.Descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return StatusForError(errno);
    }
    return UpdateMaxFrame();
}

KESTATUS NetifTxDevice::GetState(std::string& state) const {
    return QueryStateInUse(mInterfaceIndex, state);
}

KESTATUS NetifTxDevice::GetLostFrames(std::uint64_t& count) {
    count = mLostFrames.load(std::memory_order_relaxed);
    return KESTATUS_SUCCESS;
}

KESTATUS NetifTxDevice::UpdateMaxFrame() {
    std::uint32_t mtu = 0;
    const KESTATUS st = QueryMtu(mSocket.Descriptor(), mInterfaceIndex, mtu);
    if (st == KESTATUS_SUCCESS) {
        SetMaxUntaggedBytes(mtu + cMinFrameBytes);
    }
    return st;
}

// Frames that cannot be sent are counted and are no failure, or a cable that is pulled for a moment would end
// every stream.
KESTATUS NetifTxDevice::SendBatch(Lock& lock, const SendTerms& terms) {
    if (Batch().IsEmpty()) {
        return KESTATUS_SUCCESS;
    }
    Progress progress = {true, cNever};
    // Any other failure leaves it to the kernel to refuse frames.
    if (QueryIsLinkUp(mSocket.Descriptor(), mInterfaceIndex, progress.isLinkUp) == KESTATUS_DEVICE_REMOVED) {
        LoseFirst(Batch().FrameCount());
        return KESTATUS_DEVICE_REMOVED;
    }
    KESTATUS result = KESTATUS_SUCCESS;
    while (!Batch().IsEmpty()) {
        const int error = SendToKernel(progress);
        if (error == 0) {
            continue;
        }
        if (error == EAGAIN || IsRefusal(error)) {
            if (!AwaitRoom(lock, terms, error, progress)) {
                break;
            }
            continue;
        }
        const KESTATUS st = LoseUnsendable(error);
        result = st == KESTATUS_SUCCESS ? result : st;
    }
    return result;
}

// Hands the kernel as many frames as it takes at once. Returns 0, or an errno value when it took none.
int NetifTxDevice::SendToKernel(Progress& progress) noexcept {
    std::array<iovec, FrameBatch::cMaxFrames> vectors;
    std::array<mmsghdr, FrameBatch::cMaxFrames> messages;
    const std::uint32_t count = Batch().FrameCount();
    for (std::uint32_t number = 0; number < count; ++number) {
        const FrameBatch::Frame frame = Batch().At(number);
        vectors[number] = {const_cast<std::uint8_t*>(frame.data), frame.length}; // only read by the kernel
        messages[number] = {};
        messages[number].msg_hdr.msg_iov = &vectors[number];
        messages[number].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(mSocket.Descriptor(), messages.data(), count, MSG_DONTWAIT);
    if (sent <= 0) {
        return errno;
    }
    const auto sentFrames = static_cast<std::uint32_t>(sent);
    // Without a carrier the kernel takes frames and drops them.
    mLostFrames.fetch_add(progress.isLinkUp ? 0 : sentFrames, std::memory_order_relaxed);
    Batch().RemoveFirst(sentFrames);
    mIsLosing = !progress.isLinkUp;
    progress.refusedSince = cNever;
    return 0;
}

// Decides about the frames that the kernel does not take now: sleeps for a moment, or loses what has had its
// time. False when sending ends here and the rest stays in the batch.
bool NetifTxDevice::AwaitRoom(Lock& lock, const SendTerms& terms, int error, Progress& progress) {
    const std::int64_t now = SteadyNow();
    const bool isOver = IsOver(terms, now);
    const bool keepRest = terms.atDeadline == AtDeadline::Keep;
    if (IsRefusal(error)) {
        progress.refusedSince = std::min(progress.refusedSince, now);
        const bool isHopeless = !progress.isLinkUp || mIsLosing || now - progress.refusedSince >= cRetryLimit;
        if (isHopeless || (isOver && !keepRest)) {
            mIsLosing = true;
            LoseFirst(1);
            return true;
        }
    }
    if (isOver && !keepRest) {
        LoseFirst(Batch().FrameCount());
        return true;
    }
    if (isOver || Batch().FreeFrames() >= terms.enoughPlaces) {
        return false;
    }
    SleepForRoom(lock, error, terms.deadline - now);
    return true;
}

// Sleeps without the lock until there may be room, or another try makes sense.
void NetifTxDevice::SleepForRoom(Lock& lock, int error, std::int64_t nanoseconds) {
    pollfd waitedFor = {mSocket.Descriptor(), POLLOUT, 0};
    const bool isFull = error == EAGAIN;
    const timespec limit = {0, static_cast<long>(std::min(isFull ? cRoomSlice : cRetryPause, nanoseconds))};
    lock.unlock();
    // Room, or an error that the next sending reports, ends the sleep at once. A refusal says nothing of
    // room.
    ppoll(&waitedFor, isFull ? 1 : 0, &limit, nullptr);
    lock.lock();
}

// The first frame can never be sent as it is.
KESTATUS NetifTxDevice::LoseUnsendable(int error) {
    switch (error) {
    case EINTR:
        return KESTATUS_SUCCESS;
    case EMSGSIZE: // the MTU has become smaller since the frame was submitted
        LoseFirst(1);
        return UpdateMaxFrame();
    case ENXIO:
    case ENODEV:
        LoseFirst(Batch().FrameCount());
        return KESTATUS_DEVICE_REMOVED;
    default:
        LoseFirst(1);
        return KEStatusFromErrno(error);
    }
}

void NetifTxDevice::LoseFirst(std::uint32_t count) noexcept {
    Batch().RemoveFirst(count);
    mLostFrames.fetch_add(count, std::memory_order_relaxed);
}

} // namespace quayside2::netif
