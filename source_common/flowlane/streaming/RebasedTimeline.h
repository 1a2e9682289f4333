// Gives the packets of a stream their deliver times, also over breaks of its clock (StreamClock.h). Between
// two references without a break the packets are spread as TSFileSource does it. Where the clock breaks, the
// packets before the break go on with the step of the segment before, the packet behind it follows one step
// after the last of them, and its time is where the clock goes on from. Times never go back, and no packet is
// lost.
//
// Works on two queues of its owner: packets are read into one, and move to the other with their times. It
// does not own them. For one thread at a time.
#ifndef FLOWLANE_REBASEDTIMELINE_H
#define FLOWLANE_REBASEDTIMELINE_H

#include <cstdint>
#include <optional>

#include "streaming/StreamClock.h"
#include "streaming/TSPacketQueue.h"

namespace flowlane {

class RebasedTimeline {
public:
    RebasedTimeline(TSPacketQueue& readPackets, TSPacketQueue& packetsToDeliver) noexcept
        : mReadPackets(readPackets), mPacketsToDeliver(packetsToDeliver) {}

    // Forgets everything.
    void Reset() noexcept;
    // The next packet to be taken has the first reference of a pass through the stream, and this is its time.
    // All packets that were read before it leave together with it.
    void BeginPass(TSPacketTimePoint time) noexcept;
    // Takes the next packet. number: its number in the file, from 1. Returns whether a segment has ended that
    // takes time.
    bool Take(TSPacket& packet, std::uint64_t number) noexcept;
    // The stream ends, or begins anew. Gives the packets that were read their times, unless nothing has had a
    // time since the reset.
    void EndPass() noexcept;

    // Whether a whole segment has ended since the reset, so that it is known how fast packets leave.
    bool HasStep() const noexcept { return mStep.has_value(); }
    // Gives all packets that were read their times. The clock breaks at its next reference.
    void TimeWithoutReference() noexcept;
    // For want of room the owner is about to release all packets of a segment except its first reference.
    // Releases those before it, which have no time either.
    void GiveUpSegment();

private:
    bool EndSegment() noexcept;
    void TimePacketsBeforeClock() noexcept;
    void TimeAllPackets() noexcept;
    void TimePackets(std::uint32_t count, TSPacketDuration step) noexcept;

    TSPacketQueue& mReadPackets;
    TSPacketQueue& mPacketsToDeliver;
    StreamClock mClock;
    TSPacketTimePoint mTimeBase;           // of the reference at which the clock began to count
    TSPacketTimePoint mNextTime;           // of the first read packet
    std::optional<TSPacketDuration> mStep; // of the segment that ended last
    std::uint32_t mPacketsBeforeClock = 0; // at the head of the read ones
    bool mIsSegmentGivenUp = false;        // the present one has lost packets and says nothing of the rate
    bool mHasTimed = false;                // a packet has got a time since the reset
};

} // namespace flowlane

#endif
