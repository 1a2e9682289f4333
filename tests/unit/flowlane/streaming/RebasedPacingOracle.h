// What a transport stream file source must do with a stream whose clock it rebases. It follows from the whole
// stream at once, in another way than the source works.
#ifndef FLOWLANE_TESTS_REBASEDPACINGORACLE_H
#define FLOWLANE_TESTS_REBASEDPACINGORACLE_H

#include <cstdint>
#include <vector>

#include "streaming/RecordingSink.h"
#include "streaming/TSStream.h"

namespace testsupport {

struct ExpectedBreak {
    std::uint64_t packetNumber; // in the file, from 1
    std::int64_t jumpTicks;
};

struct ExpectedRebasedPlayback {
    std::vector<Delivery> deliveries;
    std::vector<ExpectedBreak> breaks;
};

// Of this number of passes through a stream with OnePID, whose first packet with a PCR is due at firstTime
// (ns). The source starts at startTime (ns) and has enough packets for the longest segment.
ExpectedRebasedPlayback ExpectRebasedPlayback(const TSStream& stream, std::int64_t startTime,
                                              std::int64_t firstTime, unsigned passes);

} // namespace testsupport

#endif
