// What a replay counts.
#ifndef FLOWLANE_PCAPNGREADERSTATISTICS_H
#define FLOWLANE_PCAPNGREADERSTATISTICS_H

#include <cstdint>

#include "base/StatisticsCounters.h"

namespace flowlane {

struct PcapNgReaderStatistics {
    std::uint64_t infFramesSent = 0;                     // frames submitted to the device
    std::uint64_t errInvalidFile = 0;                    // failures to go on with the next file or pass
    std::uint64_t errReadFileFailed = 0;                 // failures to read a block
    std::uint64_t errSendFramesFailed = 0;               // failures to send
    std::uint64_t errInvalidSectionHeader = 0;           // section header blocks that are not valid
    std::uint64_t errUnsupportedVersion = 0;             // sections of another version than 1.0
    std::uint64_t errInvalidInterfaceDesc = 0;           // interface description blocks that are not valid
    std::uint64_t errInvalidLinkType = 0;                // interfaces that are not Ethernet
    std::uint64_t errInvalidEnhPacket = 0;               // packet blocks that are not valid
    std::uint64_t errPacketTruncated = 0;                // packets that were not captured whole
    std::uint64_t errInvalidFrameLength = 0;             // packets shorter than an Ethernet header
    std::uint64_t errFrameBufferTooSmall = 0;            // packets longer than a frame of the pool
    std::uint64_t errInvalidOption = 0;                  // time resolutions that cannot be read
    std::uint64_t errUnsupportedTimestampResolution = 0; // neither microseconds nor nanoseconds
    std::uint64_t errInvalidTimestamp = 0;               // packets that are earlier than the one before

    // The sum of the error counters.
    std::uint64_t TotalErrorsOccurred() const noexcept { return SumOfFields(*this) - infFramesSent; }
};

// Counted by the thread that runs the reader.
using PcapNgReaderCounters = StatisticsCounters<PcapNgReaderStatistics>;

} // namespace flowlane

#endif
