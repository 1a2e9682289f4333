// A packet socket with its receive ring, for one enabling: it is made, started, read and destroyed.
//
// Wait and WakeWaiters are for any thread. For everything else the caller holds a lock.
#ifndef QUAYSIDE2_NETIF_PACKETRECEIVER_H
#define QUAYSIDE2_NETIF_PACKETRECEIVER_H

#include <cstddef>

#include "common/ProcessFile.h"
#include "common/ReceivedFrames.h"
#include "kestatus.h"
#include "netif/PacketRing.h"

namespace quayside2::netif {

class PacketReceiver : public ReceivedFrames {
public:
    // How the kernel hands frames over. A reader that stalls loses nothing for blockCount x blockTimeout
    // milliseconds at low rates, and until blockCount x blockBytes are full at high ones.
    struct RingSize {
        std::uint32_t blockBytes;
        std::uint32_t blockCount;
        std::uint32_t blockTimeout; // milliseconds after which a block with frames is handed over; below 400
    };

    PacketReceiver() = default;
    ~PacketReceiver() override;

    // Takes the memory for the ring, or for a smaller one when there is not enough. Nothing is received yet.
    //   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  CAP_NET_RAW is missing
    [[nodiscard]] KESTATUS Create(const RingSize& size);
    // KESTATUS_DEVICE_REMOVED when there is no such interface.
    [[nodiscard]] KESTATUS CheckInterface(unsigned interfaceIndex) const noexcept;
    // Starts reception from an interface, whatever the frames' destination. Once.
    [[nodiscard]] KESTATUS Start(unsigned interfaceIndex);

    // Whether Peek would show a frame.
    bool HasFrame() noexcept { return mRing.HasFrame(); }
    [[nodiscard]] bool Peek(Frame& frame) noexcept override;
    [[nodiscard]] std::uint32_t TakeLoss() noexcept override;
    [[nodiscard]] bool Take(std::uint8_t* to) noexcept override;
    // Frames that the kernel has dropped since the last call because the ring was full.
    std::uint32_t TakeDropCount() noexcept;

    // Sleeps until there may be frames, until WakeWaiters, until the time in nanoseconds is up, or for a
    // quarter of a second. KESTATUS_DEVICE_REMOVED when the interface is gone; the last frames are in the
    // ring then.
    [[nodiscard]] KESTATUS Wait(std::int64_t nanoseconds) noexcept;
    // Every waiting thread returns soon. Later waits do not sleep at all.
    void WakeWaiters() noexcept;

private:
    [[nodiscard]] KESTATUS CreateRing(RingSize size);
    [[nodiscard]] KESTATUS CheckState() noexcept;

    ProcessFile mSocket;
    ProcessFile mWakeEvent;
    std::uint8_t* mMemory = nullptr;
    std::size_t mMemoryBytes = 0;
    std::int64_t mLastBlockDelay = 0; // nanoseconds
    PacketRing mRing;
    PacketRing::Frame mFrame; // as Peek has shown it
    bool mHasFrame = false;   // Peek has shown one
};

} // namespace quayside2::netif

#endif
