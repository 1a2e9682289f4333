// What a transport stream file source has to do with a stream, worked out from the stream as a whole.
#ifndef FLOWLANE_TESTS_PACINGORACLE_H
#define FLOWLANE_TESTS_PACINGORACLE_H

#include <vector>

#include "LogCapture.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSStream.h"

namespace testsupport {

struct ExpectedPlayback {
    std::vector<Delivery> deliveries;
    std::vector<CapturedMessage> messages; // of reading the stream
};

// Passes through the stream from the start time (ns) on, with packets to read all of them ahead.
ExpectedPlayback ExpectPlayback(const TSStream& stream, std::int64_t startTime, unsigned passes);

// The number of wake-ups at which packets are handed over.
std::size_t CountBatches(const std::vector<Delivery>& deliveries);

} // namespace testsupport

#endif
