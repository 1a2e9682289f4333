#include "streaming/StreamClock.h"

#include <algorithm>

namespace flowlane {

namespace {

// From one reference to a later one.
std::uint64_t Difference(std::uint64_t from, std::uint64_t to) noexcept {
    return (to - from) % cTSPCRRange;
}

} // namespace

StreamClock::Event StreamClock::Take(const TSPacket& packet) noexcept {
    if (!packet.HasPCR()) {
        return Event::Nothing;
    }
    if (!mIsFollowing) {
        mIsFollowing = true;
        return Begin(Event::First, packet);
    }
    if (packet.PID() != mPID) {
        return HasOtherTakenOver(packet) ? Begin(Event::Break, packet) : Event::Nothing;
    }
    const std::uint64_t difference = Difference(mLast, packet.PCR());
    if (mIsBroken || packet.HasDiscontinuity() || difference >= cBreak) {
        return Begin(Event::Break, packet);
    }
    mLast += difference;
    mOthers = {};
    return Event::Reference;
}

TSPacketDuration StreamClock::Elapsed() const noexcept {
    return TSPacketDurationFromPCR(mLast) - TSPacketDurationFromPCR(mFirst);
}

StreamClock::Event StreamClock::Begin(Event event, const TSPacket& packet) noexcept {
    mJump = TSPacketTicksBetweenPCRs(mLast, packet.PCR());
    mIsBroken = false;
    mPID = packet.PID();
    mFirst = packet.PCR();
    mLast = mFirst;
    mOthers = {};
    return event;
}

// A break of the other clock does not count as time.
bool StreamClock::HasOtherTakenOver(const TSPacket& packet) noexcept {
    const auto other = std::find_if(mOthers.begin(), mOthers.end(), [&](const OtherClock& clock) {
        return !clock.isUsed || clock.pid == packet.PID();
    });
    if (other == mOthers.end()) {
        return false;
    }
    if (!other->isUsed) {
        *other = {.isUsed = true, .pid = packet.PID(), .ticks = packet.PCR(), .elapsed = 0};
        return false;
    }
    const std::uint64_t difference = Difference(other->ticks, packet.PCR());
    other->elapsed += difference < cBreak ? difference : 0;
    other->ticks = packet.PCR();
    return other->elapsed >= cBreak;
}

} // namespace flowlane
