// Parts of the lines about a replay, made of values alone. From any thread; all throw std::bad_alloc.
#ifndef FLOWLANE_REPLAYTEXTS_H
#define FLOWLANE_REPLAYTEXTS_H

#include <cstdint>
#include <string>

#include "capture/PcapNgReaderStatistics.h"
#include "capture/ReplayedPackets.h"

namespace flowlane {

// The packets that could not be sent.
struct LeftOutPackets {
    ReplayedPackets packets;
    PcapNgReaderStatistics statistics;
    std::uint32_t frameSize = 0; // bytes of the longest frame that can be sent

    std::uint64_t Count() const noexcept;
    // There is more to say than the counters of the summary do.
    bool IsWorthALine() const noexcept;
    // "10 longer than 1522 bytes, 2 damaged"
    std::string Reasons() const;
};

// "2023-11-14 22:13:20.150000000", in UTC. nanoseconds: since 1970.
std::string TimeText(std::uint64_t nanoseconds);

// "; 12 frames that were read ahead were not sent", or nothing for none.
std::string UnsentText(std::uint64_t frames);

} // namespace flowlane

#endif
