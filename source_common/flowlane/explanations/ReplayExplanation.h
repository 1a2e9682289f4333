// Why a replay does not start, ends before its end, or leaves packets out. On the main thread. All throw
// std::bad_alloc.
#ifndef FLOWLANE_REPLAYEXPLANATION_H
#define FLOWLANE_REPLAYEXPLANATION_H

#include <cstdint>
#include <string>

#include "capture/PcapNgFileReader.h"
#include "device/QuaysideDevice.h"

namespace flowlane {

// What the user has asked for.
struct ReplaySettings {
    std::string fileName; // as it was given
    std::uint32_t startFileIndex = 1;
    bool isSet = false;
    std::uint32_t frameCount = 0;
    std::uint32_t frameSize = 0; // bytes
};

// Prints a line about the failure that PcapNgFileReader::Failure tells: after a failed start, or in the state
// Error. device: the replay's.
void ExplainReplayFailure(const PcapNgFileReader& reader, const ReplaySettings& settings,
                          const QuaysideDevice& device);

// Prints a line about the packets that were not sent because they cannot be, if the user can do something
// about them or is not told by the summary.
void ExplainLeftOutPackets(const PcapNgFileReader& reader, const ReplaySettings& settings);

} // namespace flowlane

#endif
