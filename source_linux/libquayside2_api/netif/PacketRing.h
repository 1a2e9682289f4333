// Reads the blocks of a memory-mapped receive ring of a packet socket (TPACKET_V3, packet(7) and
// Documentation/networking/packet_mmap.rst of the Linux kernel).
//
// The kernel fills blocks in turn and hands each over when it is full or its time is up. A block goes back to
// the kernel when its last frame has been popped. Does not own the memory. Not for several threads at once.
#ifndef QUAYSIDE2_NETIF_PACKETRING_H
#define QUAYSIDE2_NETIF_PACKETRING_H

#include <cstdint>

#include "common/EthernetFrame.h"

namespace quayside2::netif {

class PacketRing {
public:
    // A frame in the ring; valid until it is popped.
    struct Frame {
        const std::uint8_t* data = nullptr; // as the kernel keeps it: without the outer VLAN tag
        std::uint32_t dataBytes = 0;
        bool isCut = false;           // the kernel kept only its beginning
        bool hasTag = false;          // the kernel took a VLAN tag out, from behind the addresses
        std::uint16_t tagType = 0;    // 0x8100 (IEEE 802.1Q) or 0x88A8 (IEEE 802.1ad)
        std::uint16_t tagControl = 0; // priority and VLAN ID
        std::uint64_t seconds = 0;    // since 1970-01-01 UTC
        std::uint32_t nanoseconds = 0;

        // Bytes of the frame as it was on the wire.
        std::uint32_t WireBytes() const noexcept { return dataBytes + (hasTag ? cVlanTagBytes : 0); }
        // Stores the frame as it was on the wire, WireBytes long.
        void CopyTo(std::uint8_t* to) const noexcept;
    };

    PacketRing() = default;
    // blockCount blocks of blockBytes each, one after the other.
    PacketRing(std::uint8_t* memory, std::uint32_t blockBytes, std::uint32_t blockCount) noexcept
        : mMemory(memory), mBlockBytes(blockBytes), mBlockCount(blockCount) {}

    // Whether a frame is ready.
    bool HasFrame() noexcept { return EnterBlock(); }
    // The next frame. False when none is ready.
    bool Peek(Frame& frame) noexcept;
    // Takes the frame that Peek showed.
    void Pop() noexcept;

    // True once for each block with which the kernel has reported dropped frames.
    bool TakeLossMark() noexcept;

private:
    bool EnterBlock() noexcept;
    void LeaveBlock() noexcept;
    std::uint8_t* Block() const noexcept { return mMemory + std::uint64_t{mBlock} * mBlockBytes; }

    std::uint8_t* mMemory = nullptr;
    std::uint32_t mBlockBytes = 0;
    std::uint32_t mBlockCount = 0;
    std::uint32_t mBlock = 0;          // the block being read, or the next one
    std::uint32_t mFramesLeft = 0;     // in the block being read; 0: none is being read
    std::uint8_t* mPosition = nullptr; // of the next frame
    bool mLossMark = false;
};

} // namespace quayside2::netif

#endif
