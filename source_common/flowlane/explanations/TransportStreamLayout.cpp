#include "explanations/TransportStreamLayout.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace flowlane {

using namespace std::string_view_literals;

namespace {

constexpr std::uint8_t cSyncByte = 0x47;
constexpr std::size_t cMinPackets = 3;
constexpr std::size_t cSurePackets = 5;

bool ArePacketsAt(const FileHead& head, std::size_t offset, std::size_t packetSize) {
    const std::size_t present = (head.size() - offset) / packetSize;
    const std::size_t count = std::min(present, cSurePackets);
    if (count < cMinPackets) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (head[offset + i * packetSize] != cSyncByte) {
            return false;
        }
    }
    return true;
}

struct Mark {
    OtherFileKind kind;
    std::size_t offset;
    std::string_view bytes;
};

constexpr Mark cMarks[] = {
    {OtherFileKind::Mp4, 4, "ftyp"sv}, {OtherFileKind::Mp4, 4, "moov"sv},
    {OtherFileKind::Mp4, 4, "mdat"sv}, {OtherFileKind::Matroska, 0, "\x1A\x45\xDF\xA3"sv},
    {OtherFileKind::Avi, 8, "AVI "sv}, {OtherFileKind::ProgramStream, 0, "\x00\x00\x01\xBA"sv},
};

} // namespace

std::optional<TransportStreamLayout> FindTransportStreamLayout(const FileHead& head) {
    for (const std::size_t packetSize : {cPlainPacketSize, cTimedPacketSize, cCodedPacketSize}) {
        for (std::size_t offset = 0; offset < head.size(); ++offset) {
            if (ArePacketsAt(head, offset, packetSize)) {
                return TransportStreamLayout{packetSize, offset};
            }
        }
    }
    return std::nullopt;
}

OtherFileKind FindOtherFileKind(const FileHead& head) {
    if (IsPcapNg(head)) {
        return OtherFileKind::PcapNg;
    }
    if (IsClassicPcap(head)) {
        return OtherFileKind::Pcap;
    }
    for (const Mark& mark : cMarks) {
        if (HasBytes(head, mark.offset, mark.bytes)) {
            return mark.kind;
        }
    }
    return OtherFileKind::None;
}

} // namespace flowlane
