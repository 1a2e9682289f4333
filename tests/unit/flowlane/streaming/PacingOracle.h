// What a transport stream file source must do with a stream. It follows from the whole stream at once, in
// another way than the source works.
#ifndef FLOWLANE_TESTS_PACINGORACLE_H
#define FLOWLANE_TESTS_PACINGORACLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "LogCapture.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSStream.h"

namespace testsupport {

struct ExpectedPlayback {
    std::vector<Delivery> deliveries;
    std::vector<CapturedMessage> messages; // of reading the stream
};

// Of this number of passes through the stream from the start time (ns) on, with enough packets to read all of
// them ahead.
ExpectedPlayback ExpectPlayback(const TSStream& stream, std::int64_t startTime, unsigned passes);

// Changes the wake times to those with precise timing, for a stream whose end is read ahead: when a frame of
// so many packets is full, or 10 ms after its first packet was due. Returns how many packets have been handed
// over at the end of each frame.
std::vector<std::size_t> GatherInFrames(std::vector<Delivery>& deliveries, std::int64_t startTime,
                                        std::size_t packetsPerFrame);

// The number of wake-ups at which packets are handed over.
std::size_t CountBatches(const std::vector<Delivery>& deliveries);

} // namespace testsupport

#endif
