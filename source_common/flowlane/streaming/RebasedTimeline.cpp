#include "streaming/RebasedTimeline.h"

namespace flowlane {

void RebasedTimeline::Reset() noexcept {
    mClock.Reset();
    mStep.reset();
    mPacketsBeforeClock = 0;
    mIsSegmentGivenUp = false;
    mHasTimed = false;
}

void RebasedTimeline::BeginPass(TSPacketTimePoint time) noexcept {
    mClock.Reset();
    mTimeBase = time;
    mNextTime = time;
    mPacketsBeforeClock = mReadPackets.Count();
    mIsSegmentGivenUp = false;
}

bool RebasedTimeline::Take(TSPacket& packet, std::uint64_t number) noexcept {
    packet.mClockBreak = {};
    const StreamClock::Event event = mClock.Take(packet);
    if (event == StreamClock::Event::Break) {
        TimeAllPackets();
        mTimeBase = mNextTime;
        mIsSegmentGivenUp = false;
        packet.mClockBreak = {number, mClock.JumpTicks()};
    }
    mReadPackets.Append(packet);
    return event == StreamClock::Event::Reference && EndSegment();
}

// The packet that was appended last ends it, and begins the next one. The time is divided by the number of
// all packets, both references included, so the last gap is two steps long.
bool RebasedTimeline::EndSegment() noexcept {
    TimePacketsBeforeClock();
    const TSPacketTimePoint end = mTimeBase + mClock.Elapsed();
    const TSPacketDuration time = end - mNextTime;
    const std::uint32_t count = mReadPackets.Count();
    const TSPacketDuration step = time / std::int64_t{count};
    if (count > 1 && !mIsSegmentGivenUp) {
        mStep = step;
    }
    TimePackets(count - 1, step);
    mNextTime = end;
    mIsSegmentGivenUp = false;
    return count > 1 && time > TSPacketDuration::zero();
}

void RebasedTimeline::EndPass() noexcept {
    if (mHasTimed) {
        TimeWithoutReference();
    }
    mPacketsBeforeClock = 0;
}

void RebasedTimeline::TimeWithoutReference() noexcept {
    TimeAllPackets();
    mClock.Break();
}

void RebasedTimeline::GiveUpSegment() {
    mIsSegmentGivenUp = true;
    mReadPackets.ReleaseToPoolUntil(mReadPackets.Count() - mPacketsBeforeClock);
    mPacketsBeforeClock = 0;
}

void RebasedTimeline::TimePacketsBeforeClock() noexcept {
    TimePackets(mPacketsBeforeClock, TSPacketDuration::zero());
    mPacketsBeforeClock = 0;
}

// While no segment has ended, they leave together.
void RebasedTimeline::TimeAllPackets() noexcept {
    TimePacketsBeforeClock();
    TimePackets(mReadPackets.Count(), mStep.value_or(TSPacketDuration::zero()));
}

void RebasedTimeline::TimePackets(std::uint32_t count, TSPacketDuration step) noexcept {
    for (std::uint32_t i = 0; i < count; ++i) {
        TSPacket& packet = *mReadPackets.RemoveHead();
        packet.mDeliverTime = mNextTime;
        mNextTime += step;
        mPacketsToDeliver.Append(packet);
        mHasTimed = true;
    }
}

} // namespace flowlane
