// What was wrong with a transport stream that was read from a file: why there was nothing to send, or what
// was left out, with one line for each fault, after the stream has been sent. And where its clock jumps,
// while it is sent. On the main thread.
#ifndef FLOWLANE_TRANSPORTSTREAMEXPLANATION_H
#define FLOWLANE_TRANSPORTSTREAMEXPLANATION_H

#include <cstdint>
#include <string>

#include "kestatus.h"
#include "streaming/TSPacket.h"

namespace flowlane {

// What reading the file has found.
struct TransportStreamFacts {
    struct Fault {
        std::uint64_t count = 0;
        std::uint64_t firstPacket = 0; // its number in the file, from 1
    };

    std::uint64_t packetsRead = 0;
    std::uint64_t packetsTimed = 0; // those that have a time at which they are sent
    std::uint64_t clockReferences = 0;
    bool isEndSeen = false;            // the whole file was read, at least once
    bool isClockRunning = false;       // time passes between two clock references
    bool hasClockJumped = false;       // while the clock was rebased
    bool hasMoreClocks = false;        // clock references are on more than one PID
    std::uint64_t bufferedPackets = 0; // how far apart two clock references may be
    Fault invalidPackets{};            // packets without a sync byte
    Fault forwardPackets{};            // packets left out because the clock steps forward
    Fault unfinishedPackets{};         // packets left out because no clock reference follows
    Fault backwardSteps{};
};

// Prints the lines, and returns what is the status of the file:
//   KESTATUS_SUCCESS       nothing is wrong, nothing was printed
//   KESTATUS_INVALID_DATA  parts were left out or sent at a wrong time
//   KESTATUS_INVALID_FILE  nothing can be sent, because it is no such file
// Looks at the head of the file once more. Throws std::bad_alloc.
KESTATUS ExplainTransportStream(const std::string& path, const TransportStreamFacts& facts);

// Tells where the clock jumps when it is rebased.
class ClockJumpWatch {
public:
    // Prints a line when there are more jumps than at the last call. Throws std::bad_alloc.
    // jumps: all so far.
    void Look(const std::string& path, std::uint64_t jumps, const TSClockBreak& last);

private:
    std::uint64_t mTold = 0;
};

// reason: the status with which reading failed while the stream was sent.
void ExplainReadFailure(const std::string& path, KESTATUS reason);

} // namespace flowlane

#endif
