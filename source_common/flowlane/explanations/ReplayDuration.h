// How long a recording is, by its first and its last packet.
#ifndef FLOWLANE_REPLAYDURATION_H
#define FLOWLANE_REPLAYDURATION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/KEBuffer.h"

namespace flowlane {

// What the start of a pcap-ng file says about times.
struct RecordingStart {
    std::uint32_t nanosecondsPerUnit = 0; // of the interface before the first packet
    std::uint64_t firstTime = 0;          // nanoseconds since 1970
};

// head: the first bytes of the file. Nothing when there is no packet of an Ethernet interface with times in
// micro- or nanoseconds in it. Pure.
std::optional<RecordingStart> StartOfRecording(kestrelon::KEConstBufferReference head);

// The time of the last packet in units. tail: the last bytes of the file. Nothing when the blocks at the end
// are not whole, or no packet is among them. Pure.
std::optional<std::uint64_t> LastTimeOfRecording(kestrelon::KEConstBufferReference tail);

// The time from the first packet of a file to the last packet of the same or another file, which are looked
// at without waiting. Nothing when it is not known. From any thread; throws std::bad_alloc.
std::optional<std::chrono::nanoseconds> DurationOfRecording(const std::string& firstFile,
                                                            const std::string& lastFile);

} // namespace flowlane

#endif
