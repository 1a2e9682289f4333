// Builds transport streams for tests, packet by packet, and writes them to temporary files. Every packet
// carries its ordinal, by which the sink can tell it from the others.
#ifndef FLOWLANE_TESTS_TSSTREAM_H
#define FLOWLANE_TESTS_TSSTREAM_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TemporaryFolder.h"
#include "streaming/TSPacket.h"

namespace testsupport {

struct StreamPacket {
    std::optional<std::uint64_t> pcr; // ticks of 90 kHz
    bool hasSyncByte = true;
    bool isDiscontinuous = false; // has the discontinuity indicator
    std::uint8_t pid = 0;         // the low byte; 0 is the stream's choice
};

class TSStream {
public:
    TSStream& PCR(std::uint64_t ticks) { return Add({ticks, true}); }
    // With the discontinuity indicator, or on another PID than the others.
    TSStream& DiscontinuousPCR(std::uint64_t ticks) { return Add({ticks, true, true}); }
    TSStream& OtherPCR(std::uint8_t pid, std::uint64_t ticks) { return Add({ticks, true, false, pid}); }
    TSStream& Plain(unsigned count = 1) { return Add({}, count); }
    // Packets whose first byte is wrong, without and with a PCR.
    TSStream& Bad(unsigned count = 1) { return Add({std::nullopt, false}, count); }
    TSStream& BadPCR(std::uint64_t ticks) { return Add({ticks, false}); }
    // Bytes after the last packet, fewer than a packet has.
    TSStream& PartialPacket(std::size_t size) {
        mPartialSize = size;
        return *this;
    }

    // All packets have the same PID, except those of OtherPCR. Otherwise PCRs are on several.
    TSStream& OnePID() {
        mHasOnePID = true;
        return *this;
    }

    const std::vector<StreamPacket>& Packets() const { return mPackets; }
    std::vector<std::uint8_t> Bytes() const;
    // Continues this stream with another.
    TSStream& Append(const TSStream& stream) {
        mPackets.insert(mPackets.end(), stream.mPackets.begin(), stream.mPackets.end());
        return *this;
    }

    // The ordinal that Bytes() wrote into a packet.
    static std::uint32_t OrdinalOf(const flowlane::TSPacket& packet);
    // The 188 bytes of one packet.
    static std::vector<std::uint8_t> PacketBytes(const StreamPacket& packet, std::uint32_t ordinal);

private:
    TSStream& Add(StreamPacket packet, unsigned count = 1) {
        mPackets.insert(mPackets.end(), count, packet);
        return *this;
    }

    std::vector<StreamPacket> mPackets;
    std::size_t mPartialSize = 0;
    bool mHasOnePID = false;
};

// A stream as a file, which is removed when the object goes away.
class StreamFile {
public:
    explicit StreamFile(const TSStream& stream);

    const char* Path() const { return mPath.c_str(); }

private:
    const TemporaryFolder mFolder;
    const std::string mPath = mFolder / "stream.ts";
};

} // namespace testsupport

#endif
