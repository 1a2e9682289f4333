// The pcap-ng file format (draft-ietf-opsawg-pcapng) as this program writes and reads it: the byte order is
// the machine's own. Every block begins with its type and its total length, 32 bits each, and ends with the
// total length again. Options are before that. Offsets are from the start of the block.
#ifndef FLOWLANE_PCAPNGFORMAT_H
#define FLOWLANE_PCAPNGFORMAT_H

#include <cstddef>
#include <cstdint>

#include "base/KEByteOrder.h"

namespace flowlane::pcapng {

constexpr std::uint32_t cSectionHeaderBlockType = 0x0A0D0D0A;
constexpr std::uint32_t cInterfaceDescBlockType = 1;
constexpr std::uint32_t cObsoletePacketBlockType = 2;
constexpr std::uint32_t cSimplePacketBlockType = 3;
constexpr std::uint32_t cEnhPacketBlockType = 6;

constexpr std::size_t cBlockTypeOffset = 0;   // 32 bits
constexpr std::size_t cBlockLengthOffset = 4; // 32 bits: of the whole block
constexpr std::size_t cBlockHeaderSize = 8;
constexpr std::size_t cBlockTrailerSize = 4; // the length again
constexpr std::uint64_t cMaxBlockLength = 0xFFFFFFFF;

// Section header block
constexpr std::uint32_t cByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t cMajorVersion = 1;
constexpr std::uint16_t cMinorVersion = 0;
constexpr std::size_t cMagicOffset = 8;          // 32 bits
constexpr std::size_t cMajorVersionOffset = 12;  // 16 bits
constexpr std::size_t cMinorVersionOffset = 14;  // 16 bits
constexpr std::size_t cSectionLengthOffset = 16; // 64 bits
constexpr std::size_t cSectionHeaderFixedSize = 24;
constexpr std::uint64_t cUnknownSectionLength = 0xFFFFFFFFFFFFFFFF;

// Interface description block
constexpr std::uint16_t cLinkTypeEthernet = 1;
constexpr std::uint32_t cSnapLengthUnlimited = 0;
constexpr std::uint8_t cResolutionMicroseconds = 6; // 10 to the power of -6 seconds
constexpr std::uint8_t cResolutionNanoseconds = 9;
constexpr std::size_t cLinkTypeOffset = 8;          // 16 bits
constexpr std::size_t cLinkTypeReservedOffset = 10; // 16 bits
constexpr std::size_t cSnapLengthOffset = 12;       // 32 bits
constexpr std::size_t cInterfaceDescFixedSize = 16;

// Enhanced packet block
constexpr std::uint64_t cMaxPacketLength = 0xFFFFFFFF;
constexpr std::size_t cInterfaceIdOffset = 8;     // 32 bits
constexpr std::size_t cTimestampHighOffset = 12;  // 32 bits
constexpr std::size_t cTimestampLowOffset = 16;   // 32 bits
constexpr std::size_t cCapturedLengthOffset = 20; // 32 bits
constexpr std::size_t cOriginalLengthOffset = 24; // 32 bits
constexpr std::size_t cEnhPacketFixedSize = 28;

// Options: code and value length, 16 bits each, then the value, padded to a multiple of 4
constexpr std::size_t cOptionHeaderSize = 4;
constexpr std::size_t cOptionLengthOffset = 2;
constexpr std::size_t cEndOfOptionsSize = 4;
constexpr std::size_t cMaxOptionLength = 0xFFFF;

constexpr std::uint16_t cOptionEndOfOptions = 0;
constexpr std::uint16_t cOptionInterfaceName = 2;
constexpr std::uint16_t cOptionInterfaceDescription = 3;
constexpr std::uint16_t cOptionDropCount = 4;
constexpr std::uint16_t cOptionMacAddress = 6;
constexpr std::uint16_t cOptionTimestampResolution = 9;

// Rounded up to a multiple of 4.
constexpr std::uint64_t Padded(std::uint64_t length) noexcept {
    return (length + 3) & ~std::uint64_t{3};
}

inline std::size_t LengthOfBlock(const unsigned char* block) noexcept {
    return kestrelon::KELoadNative<std::uint32_t>(block + cBlockLengthOffset);
}

} // namespace flowlane::pcapng

#endif
