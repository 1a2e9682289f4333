// pcap-ng blocks for the tests of the replay, made by hand.
#ifndef FLOWLANE_TESTS_REPLAYBLOCKS_H
#define FLOWLANE_TESTS_REPLAYBLOCKS_H

#include <cstddef>
#include <cstdint>

#include "ByteList.h"

namespace testsupport {

inline ByteList Section(unsigned major = 1, unsigned minor = 0, std::uint64_t magic = 0x1A2B3C4D) {
    return Block(0x0A0D0D0A, Concat({LE32(magic), LE16(major), LE16(minor), LE64(~std::uint64_t{0})}));
}

inline ByteList Interface(const ByteList& options = {}, unsigned linkType = 1) {
    return Block(1, Concat({LE16(linkType), LE16(0), LE32(0), options}));
}

// The option of the timestamp resolution.
inline ByteList Resolution(unsigned char value) {
    return {9, 0, 1, 0, value, 0, 0, 0};
}

// With any lengths; the data are padded.
inline ByteList PacketOf(const ByteList& data, std::uint64_t timestamp, std::size_t originalLength,
                         std::uint64_t claimedLength) {
    return Block(6, Concat({LE32(0), LE32(timestamp >> 32), LE32(timestamp), LE32(claimedLength),
                            LE32(originalLength), data, ByteList((4 - data.size() % 4) % 4, 0)}));
}

inline ByteList FrameBytes(unsigned id, std::size_t length = 60) {
    return ByteList(length, static_cast<unsigned char>(id));
}

// A packet of 60 bytes that are its number.
inline ByteList Packet(unsigned id, std::uint64_t timestamp = 0) {
    return PacketOf(FrameBytes(id), timestamp, 60, 60);
}

// The dummy frame of an external trigger, with this length field.
inline ByteList TriggerPacket(unsigned length) {
    return PacketOf(
        Concat({ByteList(6, 0), ByteList(6, 0xFF), {0, static_cast<unsigned char>(length)}, ByteList(46, 0)}),
        0, 60, 60);
}

// A file of one section and one interface with times in microseconds.
inline ByteList FileOf(const ByteList& packets) {
    return Concat({Section(), Interface(), packets});
}

} // namespace testsupport

#endif
