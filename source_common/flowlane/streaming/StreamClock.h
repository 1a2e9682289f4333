// The clock of a transport stream that has breaks: recordings that were joined, or an encoder that was
// started again. It follows the program clock references (PCR, ISO/IEC 13818-1) of one packet identifier
// (PID), the first that carries one, and says of each packet whether the clock goes on there or breaks.
// Differences are taken modulo 2^33 ticks, so a wrap is no break.
//
// The clock breaks at a reference with the discontinuity indicator, and at one that differs from the one
// before by a second or more; a step backwards does so modulo 2^33. It also breaks where another PID takes
// over, because its references have advanced by a second and none of the followed PID was among them.
//
// For one thread at a time.
#ifndef FLOWLANE_STREAMCLOCK_H
#define FLOWLANE_STREAMCLOCK_H

#include <array>
#include <cstdint>

#include "streaming/TSPacket.h"

namespace flowlane {

class StreamClock {
public:
    // The lowest difference between two references, in ticks of 90 kHz, that is a break.
    static constexpr std::uint64_t cBreak = 90000;

    enum class Event {
        Nothing,   // no reference of the followed clock
        First,     // the first reference, which begins to count
        Reference, // the clock goes on
        Break      // the clock begins to count anew
    };

    // Forgets all references.
    void Reset() noexcept { *this = StreamClock(); }
    // Makes the next reference of the followed clock a break.
    void Break() noexcept { mIsBroken = true; }
    // Takes the next packet of the stream.
    Event Take(const TSPacket& packet) noexcept;

    // From the reference at which the clock began to count to the last one: the difference of their times,
    // each truncated to nanoseconds.
    TSPacketDuration Elapsed() const noexcept;
    // By how much the reference of the last break differs from the one before, in ticks of 90 kHz: the
    // shorter way, so it is negative when the clock went back.
    std::int64_t JumpTicks() const noexcept { return mJump; }

private:
    struct OtherClock {
        bool isUsed = false;
        std::uint16_t pid = 0;
        std::uint64_t ticks = 0;   // of its last reference
        std::uint64_t elapsed = 0; // ticks
    };

    Event Begin(Event event, const TSPacket& packet) noexcept;
    bool HasOtherTakenOver(const TSPacket& packet) noexcept;

    bool mIsFollowing = false;
    bool mIsBroken = false;
    std::uint16_t mPID = 0;   // of the followed clock
    std::uint64_t mFirst = 0; // the reference at which it began to count
    std::uint64_t mLast = 0;  // the last one, counted on over wraps: may exceed 33 bits
    std::int64_t mJump = 0;
    // Those seen since the last reference of the followed clock. More are not looked at.
    std::array<OtherClock, 8> mOthers;
};

} // namespace flowlane

#endif
