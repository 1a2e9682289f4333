// One MPEG-2 transport stream packet (ISO/IEC 13818-1) and the moment at which it is to be delivered.
// Packets live in a pool (KEPool.h); whoever takes one from it passes it on or releases it. No locking.
#ifndef FLOWLANE_TSPACKET_H
#define FLOWLANE_TSPACKET_H

#include <cstddef>
#include <cstdint>

#include "base/KEBuffer.h"
#include "base/KEEmptyLock.h"
#include "base/PipelineClock.h"
#include "pool/KEPool.h"

namespace flowlane {

using TSPacketTimePoint = PipelineClock::TimePoint;
using TSPacketDuration = PipelineClock::Duration;

// The time of a program clock reference in ticks of 90 kHz, truncated to whole nanoseconds.
constexpr TSPacketDuration TSPacketDurationFromPCR(std::uint64_t ticks) noexcept {
    return TSPacketDuration(static_cast<std::int64_t>(ticks * 100000u / 9u));
}

// Program clock references have 33 bits and start again at 0, every 26.5 hours.
constexpr std::uint64_t cTSPCRRange = std::uint64_t{1} << 33;

// The ticks from one program clock reference to another one. The shorter way round counts, so the number is
// negative when the second is earlier.
constexpr std::int64_t TSPacketTicksBetweenPCRs(std::uint64_t from, std::uint64_t to) noexcept {
    const std::uint64_t ticks = (to - from) % cTSPCRRange;
    return ticks < cTSPCRRange / 2 ? static_cast<std::int64_t>(ticks)
                                   : -static_cast<std::int64_t>(cTSPCRRange - ticks);
}

// The same as a time.
constexpr TSPacketDuration TSPacketDurationBetweenPCRs(std::uint64_t from, std::uint64_t to) noexcept {
    const std::int64_t ticks = TSPacketTicksBetweenPCRs(from, to);
    return ticks < 0 ? -TSPacketDurationFromPCR(static_cast<std::uint64_t>(-ticks))
                     : TSPacketDurationFromPCR(static_cast<std::uint64_t>(ticks));
}

// Where the clock of a stream breaks; see StreamClock.h.
struct TSClockBreak {
    std::uint64_t packetNumber = 0; // in the file, from 1: the packet behind the break; 0: there is no break
    std::int64_t jumpTicks = 0;     // by how much the clock jumps, in ticks of 90 kHz
};

class TSPacket : public kestrelon::KEPoolItemBase {
public:
    static constexpr std::size_t cSize = 188;
    static constexpr std::uint8_t cSyncByte = 0x47;

    bool HasSyncByte() const noexcept { return mData[0] == cSyncByte; }

    // The packet identifier, 13 bits.
    std::uint16_t PID() const noexcept {
        return static_cast<std::uint16_t>((mData[1] & cPIDMask) << 8 | mData[2]);
    }
    // Whether the packet has an adaptation field with a program clock reference (PCR), on whatever PID.
    bool HasPCR() const noexcept {
        return (mData[3] & cAdaptationFieldPresent) != 0 && mData[4] != 0 && (mData[5] & cPCRFlag) != 0;
    }
    // Whether the packet has an adaptation field with the discontinuity indicator.
    bool HasDiscontinuity() const noexcept {
        return (mData[3] & cAdaptationFieldPresent) != 0 && mData[4] != 0 &&
               (mData[5] & cDiscontinuityIndicator) != 0;
    }
    // The 33-bit PCR base in ticks of 90 kHz, without the extension. Only with HasPCR.
    std::uint64_t PCR() const noexcept;
    TSPacketDuration PCRTime() const noexcept { return TSPacketDurationFromPCR(PCR()); }

    std::uint8_t mData[cSize] = {}; // from the sync byte on
    TSPacketTimePoint mDeliverTime;
    TSClockBreak mClockBreak; // the break that the packet follows

private:
    static constexpr std::uint8_t cPIDMask = 0x1F;                // in byte 1
    static constexpr std::uint8_t cAdaptationFieldPresent = 0x20; // in byte 3
    static constexpr std::uint8_t cPCRFlag = 0x10;                // in byte 5
    static constexpr std::uint8_t cDiscontinuityIndicator = 0x80; // in byte 5
};

// For one thread at a time: it takes no lock.
using TSPacketPool = kestrelon::KEPoolT<TSPacket, kestrelon::KEEmptyLock, kestrelon::KEHeapMemAllocator>;

} // namespace flowlane

#endif
