#include "streaming/TSStream.h"

namespace testsupport {

namespace {
constexpr std::size_t cPacketSize = 188;
constexpr std::size_t cOrdinalOffset = 180;
} // namespace

std::vector<std::uint8_t> TSStream::PacketBytes(const StreamPacket& packet, std::uint32_t ordinal) {
    std::vector<std::uint8_t> bytes(cPacketSize);
    for (std::size_t i = 4; i < cPacketSize; ++i) {
        bytes[i] = static_cast<std::uint8_t>(ordinal * 7 + i);
    }
    bytes[0] = packet.hasSyncByte ? 0x47 : 0x46;
    bytes[1] = 0x01; // PID 0x100 to 0x10F, so that PCRs are on several
    bytes[2] = static_cast<std::uint8_t>(ordinal % 16);
    bytes[3] = 0x10;
    if (packet.pcr) {
        bytes[3] = 0x30;
        bytes[4] = 7;
        bytes[5] = packet.isDiscontinuous ? 0x90 : 0x10;
        for (unsigned i = 0; i < 4; ++i) {
            bytes[6 + i] = static_cast<std::uint8_t>(*packet.pcr >> (25 - 8 * i));
        }
        // The lowest bit of the base, six reserved bits, and an extension that has no effect.
        bytes[10] = static_cast<std::uint8_t>((*packet.pcr & 1) << 7 | 0x7F);
        bytes[11] = 0x2B;
    }
    for (unsigned i = 0; i < 4; ++i) {
        bytes[cOrdinalOffset + i] = static_cast<std::uint8_t>(ordinal >> (24 - 8 * i));
    }
    return bytes;
}

std::uint32_t TSStream::OrdinalOf(const flowlane::TSPacket& packet) {
    std::uint32_t ordinal = 0;
    for (unsigned i = 0; i < 4; ++i) {
        ordinal = ordinal << 8 | packet.mData[cOrdinalOffset + i];
    }
    return ordinal;
}

std::vector<std::uint8_t> TSStream::Bytes() const {
    std::vector<std::uint8_t> bytes;
    bytes.reserve((mPackets.size() + 1) * cPacketSize);
    for (std::size_t i = 0; i < mPackets.size(); ++i) {
        std::vector<std::uint8_t> packet = PacketBytes(mPackets[i], static_cast<std::uint32_t>(i));
        if (mHasOnePID || mPackets[i].pid != 0) {
            packet[2] = mPackets[i].pid;
        }
        bytes.insert(bytes.end(), packet.begin(), packet.end());
    }
    if (mPartialSize != 0) {
        std::vector<std::uint8_t> packet = PacketBytes({}, static_cast<std::uint32_t>(mPackets.size()));
        bytes.insert(bytes.end(), packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(mPartialSize));
    }
    return bytes;
}

StreamFile::StreamFile(const TSStream& stream) {
    const std::vector<std::uint8_t> bytes = stream.Bytes();
    mFolder.Write("stream.ts", {bytes.begin(), bytes.end()});
}

} // namespace testsupport
