// What a capture counts.
#ifndef FLOWLANE_PCAPNGWRITERSTATISTICS_H
#define FLOWLANE_PCAPNGWRITERSTATISTICS_H

#include <cstdint>

#include "base/StatisticsCounters.h"

namespace flowlane {

struct PcapNgWriterStatistics {
    std::uint64_t infFramesWritten = 0;    // packets written to a file
    std::uint64_t infIgnoredFrames = 0;    // frames of a kind that is not recorded
    std::uint64_t errMissingFrames = 0;    // frames missing by their sequence numbers
    std::uint64_t errPoolUnderflow = 0;    // frames discarded because no frame of the pool was free
    std::uint64_t errWriteFileFailed = 0;  // packets that could not be written
    std::uint64_t errInvalidFrameSize = 0; // frames shorter than their receive header
    std::uint64_t errInitPacketBlock = 0;  // frames that could not be made a packet block
    std::uint64_t errInvalidTimestamp = 0; // frames without a valid time, written with time 0

    // Frames that are not in the files.
    std::uint64_t FramesDropped() const noexcept {
        return errMissingFrames + errPoolUnderflow + errWriteFileFailed + errInvalidFrameSize +
               errInitPacketBlock;
    }
};

using PcapNgWriterCounters = StatisticsCounters<PcapNgWriterStatistics>;

} // namespace flowlane

#endif
