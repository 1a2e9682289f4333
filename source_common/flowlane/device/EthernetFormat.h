// The layout of an Ethernet frame (IEEE 802.3) and of its VLAN tag (IEEE 802.1Q), from the destination
// address on. All fields of more than one byte are big-endian. The frame check sequence is the device's
// business and is not part of a frame here. Offsets are from the start of the frame.
#ifndef FLOWLANE_ETHERNETFORMAT_H
#define FLOWLANE_ETHERNETFORMAT_H

#include <cstdint>

namespace flowlane::ethernet {

constexpr unsigned cMacAddressSize = 6;
constexpr unsigned cEthDestinationOffset = 0;
constexpr unsigned cEthSourceOffset = 6;
constexpr unsigned cEthTypeOffset = 12; // of the EtherType, the IEEE 802.3 length or the VLAN tag
constexpr unsigned cEthHeaderSize = 14;
constexpr unsigned cEthVlanTCIOffset = 14;  // priority 3 bits, drop eligible 1 bit, VLAN ID 12 bits
constexpr unsigned cEthVlanTypeOffset = 16; // of the EtherType behind a VLAN tag
constexpr unsigned cEthVlanHeaderSize = 18;
constexpr unsigned cEthMaxPayloadSize = 1500;
constexpr unsigned cEthMaxFrameSize = cEthVlanHeaderSize + cEthMaxPayloadSize;

constexpr std::uint16_t cEtherTypeVlan = 0x8100; // the tag protocol identifier

} // namespace flowlane::ethernet

#endif
