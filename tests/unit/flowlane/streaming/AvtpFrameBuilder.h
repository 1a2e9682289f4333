// Frames of an AVTP stream as a talker sends them, built byte by byte from the standards. A test can then
// spoil one place of a frame.
#ifndef FLOWLANE_TESTS_AVTPFRAMEBUILDER_H
#define FLOWLANE_TESTS_AVTPFRAMEBUILDER_H

#include <cstdint>
#include <vector>

namespace testsupport {

using FrameBytes = std::vector<std::uint8_t>;

// The data blocks of a frame: they begin with block firstBlock of packet firstPacket.
struct AvtpFrameSpec {
    std::uint8_t sequenceNumber = 0;
    std::uint8_t dataBlockCount = 0;
    unsigned firstPacket = 0;
    unsigned firstBlock = 0; // 0 to 7
    unsigned blocks = 8;
    bool isTagged = false;
    std::uint16_t uniqueId = 0x1234;
};

constexpr unsigned cPacketBytes = 188;

// The byte at a place of a packet; it follows from the ordinal of the packet and the place.
constexpr std::uint8_t PacketByte(unsigned packet, unsigned place) {
    return static_cast<std::uint8_t>(place == 0 ? 0x47 : packet * 7 + place);
}

inline FrameBytes PacketBytes(unsigned packet) {
    FrameBytes bytes;
    for (unsigned place = 0; place < cPacketBytes; ++place) {
        bytes.push_back(PacketByte(packet, place));
    }
    return bytes;
}

inline FrameBytes AvtpFrame(const AvtpFrameSpec& spec) {
    FrameBytes frame;
    frame.reserve(1600);
    frame.insert(frame.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE});
    if (spec.isTagged) {
        frame.insert(frame.end(), {0x81, 0x00, 0x60, 0x02});
    }
    const unsigned streamDataLength = 8 + 24 * spec.blocks;
    frame.insert(frame.end(), {0x22, 0xF0});
    frame.insert(frame.end(), {0x00, 0x80, spec.sequenceNumber, 0x00});
    frame.insert(frame.end(), {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE});
    frame.push_back(static_cast<std::uint8_t>(spec.uniqueId >> 8));
    frame.push_back(static_cast<std::uint8_t>(spec.uniqueId));
    frame.insert(frame.end(), 8, 0x00);
    frame.push_back(static_cast<std::uint8_t>(streamDataLength >> 8));
    frame.push_back(static_cast<std::uint8_t>(streamDataLength));
    frame.insert(frame.end(), {0x5F, 0xA0});
    frame.insert(frame.end(), {0x3F, 0x06, 0xC4, spec.dataBlockCount, 0xA0, 0x00, 0x00, 0x00});
    for (unsigned i = 0; i < spec.blocks; ++i) {
        const unsigned block = spec.firstBlock + i;
        const unsigned packet = spec.firstPacket + block / 8;
        for (unsigned byte = 0; byte < 24; ++byte) {
            const unsigned place = block % 8 * 24 + byte; // within the source packet of 192 bytes
            frame.push_back(place < 4 ? static_cast<std::uint8_t>(0xD0 + place)
                                      : PacketByte(packet, place - 4));
        }
    }
    return frame;
}

} // namespace testsupport

#endif
