#include "streaming/TSPacket.h"

#include "base/KEByteOrder.h"

namespace flowlane {

std::uint64_t TSPacket::PCR() const noexcept {
    constexpr std::size_t cPCRBaseOffset = 6; // bits 32..1 of the base, big-endian; bit 0 leads the next byte
    return std::uint64_t{kestrelon::KELoadBE32(mData + cPCRBaseOffset)} << 1 | mData[cPCRBaseOffset + 4] >> 7;
}

} // namespace flowlane
