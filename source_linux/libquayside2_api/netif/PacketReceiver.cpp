#include "netif/PacketReceiver.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/Clock.h"
#include "netif/NetifQuery.h"

namespace quayside2::netif {

namespace {

// A smaller ring is no longer worth having.
constexpr std::uint32_t cMinRingBytes = 4u << 20;
// The kernel asks for a size of frames to check that of the ring. Blocks hold frames of any length all the
// same.
constexpr std::uint32_t cNominalFrameBytes = 2048;
// A waiting thread looks this often whether the interface is still there. The kernel reports that it goes
// down, but not that it is removed after that.
constexpr std::int64_t cWaitSlice = 250 * cNanosecondsPerMillisecond;
// The kernel's timer hands over a block that is not full after two block timeouts, or so much later.
constexpr std::int64_t cTimerSlack = 20 * cNanosecondsPerMillisecond;

timespec LessThanASecond(std::int64_t nanoseconds) noexcept {
    return {0, static_cast<long>(nanoseconds)};
}

int SetOption(int socket, int level, int name, int value) noexcept {
    return setsockopt(socket, level, name, &value, sizeof value) == 0 ? 0 : errno;
}

} // namespace

PacketReceiver::~PacketReceiver() {
    if (mMemory) {
        munmap(mMemory, mMemoryBytes);
    }
}

KESTATUS PacketReceiver::Create(const RingSize& size) {
    // Protocol 0: nothing is received before Start.
    int error = mSocket.OpenSocket(AF_PACKET, SOCK_RAW, 0);
    if (error == 0) {
        error = mWakeEvent.OpenEvent();
    }
    if (error == 0) {
        error = SetOption(mSocket.Descriptor(), SOL_PACKET, PACKET_VERSION, TPACKET_V3);
    }
    if (error == 0) { // stamped on entry into the network stack, not when it is copied into the ring
        error = SetOption(mSocket.Descriptor(), SOL_SOCKET, SO_TIMESTAMPNS, 1);
    }
    if (error == 0) {
        error = SetOption(mSocket.Descriptor(), SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);
    }
    return error == 0 ? CreateRing(size) : StatusForError(error);
}

KESTATUS PacketReceiver::CreateRing(RingSize size) {
    mLastBlockDelay = 2 * size.blockTimeout * cNanosecondsPerMillisecond + cTimerSlack;
    int error = 0;
    for (;;) {
        tpacket_req3 request = {};
        request.tp_block_size = size.blockBytes;
        request.tp_block_nr = size.blockCount;
        request.tp_frame_size = cNominalFrameBytes;
        request.tp_frame_nr = size.blockBytes / cNominalFrameBytes * size.blockCount;
        request.tp_retire_blk_tov = size.blockTimeout;
        error = setsockopt(mSocket.Descriptor(), SOL_PACKET, PACKET_RX_RING, &request, sizeof request) == 0
                    ? 0
                    : errno;
        if (error != ENOMEM || size.blockBytes * (size.blockCount / 2) < cMinRingBytes) {
            break;
        }
        size.blockCount /= 2;
    }
    if (error != 0) {
        return StatusForError(error);
    }
    mMemoryBytes = std::size_t{size.blockBytes} * size.blockCount;
    void* const memory = mmap(nullptr, mMemoryBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                              mSocket.Descriptor(), 0);
    if (memory == MAP_FAILED) {
        return StatusForError(errno);
    }
    mMemory = static_cast<std::uint8_t*>(memory);
    // A child would keep the socket alive through the mapping, and with it the interface promiscuous.
    if (madvise(mMemory, mMemoryBytes, MADV_DONTFORK) != 0) {
        return StatusForError(errno);
    }
    mRing = PacketRing(mMemory, size.blockBytes, size.blockCount);
    return KESTATUS_SUCCESS;
}

KESTATUS PacketReceiver::CheckInterface(unsigned interfaceIndex) const noexcept {
    bool isLinkUp = false;
    return QueryIsLinkUp(mSocket.Descriptor(), interfaceIndex, isLinkUp);
}

KESTATUS PacketReceiver::Start(unsigned interfaceIndex) {
    // The kernel counts memberships. It removes this one when the socket is closed.
    packet_mreq membership = {};
    membership.mr_ifindex = static_cast<int>(interfaceIndex);
    membership.mr_type = PACKET_MR_PROMISC;
    if (setsockopt(mSocket.Descriptor(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership) !=
        0) {
        return StatusForError(errno);
    }
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(interfaceIndex);
    const int result =
        bind(mSocket.Descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return result == 0 ? KESTATUS_SUCCESS : StatusForError(errno);
}

bool PacketReceiver::Peek(Frame& frame) noexcept {
    mHasFrame = mRing.Peek(mFrame);
    if (mHasFrame) {
        frame = {mFrame.seconds * cNanosecondsPerSecond + mFrame.nanoseconds, mFrame.WireBytes(),
                 mFrame.isCut};
    }
    return mHasFrame;
}

// Asks the kernel only when it has reported a loss, or when no frame is waiting.
std::uint32_t PacketReceiver::TakeLoss() noexcept {
    return !mHasFrame || mRing.TakeLossMark() ? TakeDropCount() : 0;
}

bool PacketReceiver::Take(std::uint8_t* to) noexcept {
    if (to) {
        mFrame.CopyTo(to);
    }
    mRing.Pop();
    return true;
}

std::uint32_t PacketReceiver::TakeDropCount() noexcept {
    tpacket_stats_v3 statistics = {};
    socklen_t size = sizeof statistics;
    if (getsockopt(mSocket.Descriptor(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0) {
        return 0;
    }
    return statistics.tp_drops; // reading it sets it to 0
}

KESTATUS PacketReceiver::Wait(std::int64_t nanoseconds) noexcept {
    nanoseconds = std::clamp<std::int64_t>(nanoseconds, 0, cWaitSlice);
    pollfd waitedFor[2] = {{mSocket.Descriptor(), POLLIN, 0}, {mWakeEvent.Descriptor(), POLLIN, 0}};
    const timespec limit = LessThanASecond(nanoseconds);
    const int ready = ppoll(waitedFor, 2, &limit, nullptr);
    if (ready < 0) {
        return errno == EINTR ? KESTATUS_SUCCESS : StatusForError(errno);
    }
    if (ready != 0 && (waitedFor[0].revents & POLLERR) == 0) {
        return KESTATUS_SUCCESS;
    }
    const KESTATUS st = CheckState();
    if (st == KESTATUS_DEVICE_REMOVED) {
        const timespec rest = LessThanASecond(mLastBlockDelay);
        ppoll(&waitedFor[1], 1, &rest, nullptr);
    }
    return st;
}

// A link that goes down reports it once. Reception goes on by itself when the link is up again.
KESTATUS PacketReceiver::CheckState() noexcept {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(mSocket.Descriptor(), SOL_SOCKET, SO_ERROR, &error, &size);
    sockaddr_ll address = {};
    size = sizeof address;
    if (getsockname(mSocket.Descriptor(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return StatusForError(errno);
    }
    if (address.sll_ifindex <= 0) { // the kernel has taken the socket off its interface
        return KESTATUS_DEVICE_REMOVED;
    }
    return error == 0 || error == ENETDOWN ? KESTATUS_SUCCESS : StatusForError(error);
}

void PacketReceiver::WakeWaiters() noexcept {
    const std::uint64_t one = 1;
    // Can only fail when the event is set already.
    static_cast<void>(!write(mWakeEvent.Descriptor(), &one, sizeof one));
}

} // namespace quayside2::netif
