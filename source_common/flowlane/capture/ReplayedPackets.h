// The packets that a replay finds in its files, and those that it leaves out without looking into them.
// PcapNgReaderStatistics counts the others that are left out.
#ifndef FLOWLANE_REPLAYEDPACKETS_H
#define FLOWLANE_REPLAYEDPACKETS_H

#include <cstdint>

#include "base/StatisticsCounters.h"

namespace flowlane {

struct ReplayedPackets {
    std::uint64_t read = 0;             // all packets; the packets of a file are numbered by it
    std::uint64_t otherLinkType = 0;    // of an interface that is not Ethernet
    std::uint64_t otherTimeUnit = 0;    // of an interface with times in neither micro- nor nanoseconds
    std::uint64_t withoutInterface = 0; // not behind the valid description of an interface, or in a section
                                        // that cannot be read
    std::uint64_t withoutTime = 0;      // simple packet blocks
    std::uint64_t obsolete = 0;         // blocks of the type that enhanced packet blocks have replaced
    std::uint64_t triggers = 0;         // dummy frames of external triggers
};

// Counted by the thread that runs the reader.
using ReplayedPacketCounters = StatisticsCounters<ReplayedPackets>;

} // namespace flowlane

#endif
