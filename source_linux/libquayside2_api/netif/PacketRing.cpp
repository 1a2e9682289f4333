#include "netif/PacketRing.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include <cstring>

namespace quayside2::netif {

namespace {

void StoreBE16(std::uint8_t* to, std::uint16_t value) noexcept {
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

tpacket_hdr_v1& HeaderOf(std::uint8_t* block) noexcept {
    return reinterpret_cast<tpacket_block_desc*>(block)->hdr.bh1;
}

} // namespace

void PacketRing::Frame::CopyTo(std::uint8_t* to) const noexcept {
    if (!hasTag) {
        std::memcpy(to, data, dataBytes);
        return;
    }
    std::memcpy(to, data, cAddressBytes);
    StoreBE16(to + cAddressBytes, tagType);
    StoreBE16(to + cAddressBytes + 2, tagControl);
    std::memcpy(to + cAddressBytes + cVlanTagBytes, data + cAddressBytes, dataBytes - cAddressBytes);
}

bool PacketRing::Peek(Frame& frame) noexcept {
    if (!EnterBlock()) {
        return false;
    }
    const auto& header = *reinterpret_cast<const tpacket3_hdr*>(mPosition);
    frame.data = mPosition + header.tp_mac;
    frame.dataBytes = header.tp_snaplen;
    frame.isCut = header.tp_snaplen < header.tp_len;
    frame.hasTag = (header.tp_status & TP_STATUS_VLAN_VALID) != 0 && header.tp_snaplen >= cAddressBytes;
    frame.tagType = (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0
                        ? static_cast<std::uint16_t>(header.hv1.tp_vlan_tpid)
                        : std::uint16_t{ETH_P_8021Q};
    frame.tagControl = static_cast<std::uint16_t>(header.hv1.tp_vlan_tci);
    frame.seconds = header.tp_sec;
    frame.nanoseconds = header.tp_nsec;
    return true;
}

void PacketRing::Pop() noexcept {
    if (mFramesLeft == 0) {
        return;
    }
    mPosition += reinterpret_cast<const tpacket3_hdr*>(mPosition)->tp_next_offset;
    if (--mFramesLeft == 0) {
        LeaveBlock();
    }
}

bool PacketRing::TakeLossMark() noexcept {
    const bool isMarked = mLossMark;
    mLossMark = false;
    return isMarked;
}

// Goes on to the next block when none is being read. False when the kernel has not handed it over.
bool PacketRing::EnterBlock() noexcept {
    while (mFramesLeft == 0) {
        tpacket_hdr_v1& header = HeaderOf(Block());
        const std::uint32_t status = __atomic_load_n(&header.block_status, __ATOMIC_ACQUIRE);
        if ((status & TP_STATUS_USER) == 0) {
            return false;
        }
        mLossMark = mLossMark || (status & TP_STATUS_LOSING) != 0;
        mFramesLeft = header.num_pkts;
        mPosition = Block() + header.offset_to_first_pkt;
        if (mFramesLeft == 0) {
            LeaveBlock();
        }
    }
    return true;
}

// Gives the block back to the kernel.
void PacketRing::LeaveBlock() noexcept {
    __atomic_store_n(&HeaderOf(Block()).block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    mBlock = (mBlock + 1) % mBlockCount;
}

} // namespace quayside2::netif
