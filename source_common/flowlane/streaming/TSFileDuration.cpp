#include "streaming/TSFileDuration.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "files/KEStdFileStream.h"

namespace flowlane {

using namespace kestrelon;

namespace {

// How much of the head and of the tail is looked at: as many packets as the source reads ahead.
constexpr std::size_t cMaxPackets = 10000;

struct Reference {
    std::uint16_t pid;
    std::uint64_t ticks; // of 90 kHz
};

bool ReadPacket(KEStdFileStream& file, TSPacket& packet) {
    return file.ReadFromFile(packet.mData, sizeof packet.mData) == sizeof packet.mData;
}

std::optional<Reference> FindFirstReference(KEStdFileStream& file) {
    TSPacket packet;
    for (std::size_t i = 0; i < cMaxPackets && ReadPacket(file, packet); ++i) {
        if (packet.HasSyncByte() && packet.HasPCR()) {
            return Reference{packet.PID(), packet.PCR()};
        }
    }
    return std::nullopt;
}

// count: the packets of the whole file.
std::optional<std::uint64_t> FindLastReference(KEStdFileStream& file, std::size_t count, std::uint16_t pid) {
    const std::size_t start = count - std::min(count, cMaxPackets);
    if (file.Seek(static_cast<long>(start * TSPacket::cSize), SEEK_SET) != KESTATUS_SUCCESS) {
        return std::nullopt;
    }
    std::optional<std::uint64_t> ticks;
    TSPacket packet;
    for (std::size_t i = start; i < count && ReadPacket(file, packet); ++i) {
        if (packet.HasSyncByte() && packet.HasPCR() && packet.PID() == pid) {
            ticks = packet.PCR();
        }
    }
    return ticks;
}

} // namespace

std::optional<TSPacketDuration> FindTSFileDuration(const std::string& path) {
    struct stat status {};
    KEStdFileStream file;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        file.OpenFile(path.c_str(), "rb") != KESTATUS_SUCCESS) {
        return std::nullopt;
    }
    const std::optional<Reference> first = FindFirstReference(file);
    if (!first) {
        return std::nullopt;
    }
    const std::size_t count = static_cast<std::size_t>(status.st_size) / TSPacket::cSize;
    const std::optional<std::uint64_t> last = FindLastReference(file, count, first->pid);
    if (!last) {
        return std::nullopt;
    }
    const TSPacketDuration duration = TSPacketDurationBetweenPCRs(first->ticks, *last);
    return duration > TSPacketDuration::zero() ? std::optional(duration) : std::nullopt;
}

} // namespace flowlane
