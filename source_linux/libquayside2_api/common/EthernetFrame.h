// Measures of an Ethernet frame as the device interface carries it: from the destination address on, without
// frame check sequence.
#ifndef QUAYSIDE2_ETHERNETFRAME_H
#define QUAYSIDE2_ETHERNETFRAME_H

#include <cstdint>

namespace quayside2 {

inline constexpr std::uint32_t cAddressBytes = 12;  // destination and source
inline constexpr std::uint32_t cMinFrameBytes = 14; // addresses and EtherType: the header without a VLAN tag
inline constexpr std::uint32_t cVlanTagBytes = 4;

// Whether a VLAN tag of type 0x8100 (IEEE 802.1Q) follows the addresses. Requires cMinFrameBytes.
inline bool IsVlanTagged(const std::uint8_t* frame) noexcept {
    return frame[cAddressBytes] == 0x81 && frame[cAddressBytes + 1] == 0x00;
}

} // namespace quayside2

#endif
