// What the first bytes of a file say about it that is to be a plain transport stream, and is not. No I/O;
// safe from any thread.
#ifndef FLOWLANE_TRANSPORTSTREAMLAYOUT_H
#define FLOWLANE_TRANSPORTSTREAMLAYOUT_H

#include <cstddef>
#include <optional>

#include "explanations/FileHead.h"

namespace flowlane {

constexpr std::size_t cPlainPacketSize = 188;  // bytes
constexpr std::size_t cTimedPacketSize = 192;  // with a time code of 4 bytes in front (M2TS)
constexpr std::size_t cCodedPacketSize = 204;  // with 16 bytes of error correction behind
constexpr std::size_t cLayoutHeadSize = 65536; // enough of a file to find its layout

// Where the packets of a transport stream are.
struct TransportStreamLayout {
    std::size_t packetSize; // one of the three
    std::size_t offset;     // of the first sync byte

    friend bool operator==(const TransportStreamLayout&, const TransportStreamLayout&) = default;
};

// Looks for five packets in a row that begin with the sync byte; all packets of a shorter head, three at
// least. Plain packets are looked for first, and near the start first.
std::optional<TransportStreamLayout> FindTransportStreamLayout(const FileHead& head);

enum class OtherFileKind { None, Mp4, Matroska, Avi, ProgramStream, PcapNg, Pcap };

OtherFileKind FindOtherFileKind(const FileHead& head);

} // namespace flowlane

#endif
