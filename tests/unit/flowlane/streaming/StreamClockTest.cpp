// The clock of a stream: where it goes on, where it breaks, and by how much.

#include "streaming/StreamClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

#include "streaming/TSStream.h"

using namespace flowlane;
using namespace testsupport;
using namespace std::chrono_literals;
using Event = StreamClock::Event;

namespace {

constexpr std::uint64_t cEnd = std::uint64_t{1} << 33;

class StreamClockTest : public testing::Test {
protected:
    Event Take(std::uint64_t ticks) { return TakeOther(0x100, ticks); }
    Event TakeDiscontinuous(std::uint64_t ticks) {
        return TakePacket(0x100, {.pcr = ticks, .isDiscontinuous = true});
    }
    Event TakeOther(std::uint16_t pid, std::uint64_t ticks) { return TakePacket(pid, {.pcr = ticks}); }

    StreamClock mClock;

private:
    Event TakePacket(std::uint16_t pid, const StreamPacket& content) {
        const std::vector<std::uint8_t> bytes = TSStream::PacketBytes(content, 0);
        TSPacket packet;
        std::memcpy(packet.mData, bytes.data(), bytes.size());
        packet.mData[1] = static_cast<std::uint8_t>(pid >> 8);
        packet.mData[2] = static_cast<std::uint8_t>(pid & 0xFF);
        return mClock.Take(packet);
    }
};

} // namespace

TEST_F(StreamClockTest, CountsFromTheFirstReference) {
    EXPECT_EQ(mClock.Take(TSPacket()), Event::Nothing);
    EXPECT_EQ(Take(90000), Event::First);
    EXPECT_EQ(mClock.Elapsed(), 0ns);
    EXPECT_EQ(mClock.Take(TSPacket()), Event::Nothing);
    EXPECT_EQ(Take(135000), Event::Reference);
    EXPECT_EQ(Take(180000), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 1s);
    EXPECT_EQ(Take(180000), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 1s);
}

// Each reference is truncated to nanoseconds, not their difference: 1 tick is 11111.1 ns, 2 are 22222.2 ns.
TEST_F(StreamClockTest, ElapsedTimeIsTheDifferenceOfTheTimes) {
    EXPECT_EQ(Take(8), Event::First);
    EXPECT_EQ(Take(9), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 100000ns - 88888ns);
    EXPECT_EQ(Take(10), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 111111ns - 88888ns);
}

TEST_F(StreamClockTest, AWrapIsNoBreak) {
    EXPECT_EQ(Take(cEnd - 45000), Event::First);
    EXPECT_EQ(Take(0), Event::Reference);
    EXPECT_EQ(Take(45000), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 1s);
}

TEST_F(StreamClockTest, CountsOnOverSeveralWraps) {
    constexpr std::uint64_t cStep = 89000;
    EXPECT_EQ(Take(0), Event::First);
    std::uint64_t ticks = 0;
    while (ticks < 3 * cEnd) {
        ticks += cStep;
        ASSERT_EQ(Take(ticks % cEnd), Event::Reference);
    }
    EXPECT_EQ(mClock.Elapsed().count(),
              static_cast<std::int64_t>(ticks / 9 * 100000 + ticks % 9 * 100000 / 9));
}

TEST_F(StreamClockTest, ASecondIsABreak) {
    EXPECT_EQ(Take(1000), Event::First);
    EXPECT_EQ(Take(90999), Event::Reference);
    EXPECT_EQ(Take(180999), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), 90000);
    EXPECT_EQ(mClock.Elapsed(), 0ns);
    EXPECT_EQ(Take(270998), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 999988888ns); // 89999 ticks
}

TEST_F(StreamClockTest, AnyStepBackwardsIsABreak) {
    EXPECT_EQ(Take(5000), Event::First);
    EXPECT_EQ(Take(4999), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), -1);
    EXPECT_EQ(Take(5000), Event::Reference);
    EXPECT_EQ(Take(cEnd - 10), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), -5010);
}

// Behind a wrap the clock counts on beyond 33 bits.
TEST_F(StreamClockTest, TheJumpBehindAWrapIsTheShorterWay) {
    EXPECT_EQ(Take(cEnd - 100), Event::First);
    EXPECT_EQ(Take(100), Event::Reference);
    EXPECT_EQ(Take(90100), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), 90000);
    EXPECT_EQ(Take(cEnd - 900), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), -91000);
}

TEST_F(StreamClockTest, TheIndicatorIsABreak) {
    EXPECT_EQ(TakeDiscontinuous(1000), Event::First);
    EXPECT_EQ(Take(2800), Event::Reference);
    EXPECT_EQ(TakeDiscontinuous(4600), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), 1800);
    EXPECT_EQ(Take(6400), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 20ms);
}

TEST_F(StreamClockTest, BreaksOnDemandOnce) {
    EXPECT_EQ(Take(1000), Event::First);
    mClock.Break();
    EXPECT_EQ(mClock.Take(TSPacket()), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 7), Event::Nothing);
    EXPECT_EQ(Take(1900), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), 900);
    EXPECT_EQ(Take(2800), Event::Reference);
}

TEST_F(StreamClockTest, ForgetsEverything) {
    EXPECT_EQ(Take(1000), Event::First);
    mClock.Break();
    mClock.Reset();
    EXPECT_EQ(TakeOther(0x200, 500000), Event::First);
    EXPECT_EQ(TakeOther(0x200, 500900), Event::Reference);
}

// As long as the followed one shows up within a second.
TEST_F(StreamClockTest, OtherClocksAreNotLookedAt) {
    EXPECT_EQ(Take(0), Event::First);
    for (std::uint64_t i = 1; i < 100; ++i) {
        EXPECT_EQ(TakeOther(0x200, 1000000 + i * 80000 - 40000), Event::Nothing);
        EXPECT_EQ(TakeOther(0x200, 1000000 + i * 80000), Event::Nothing);
        EXPECT_EQ(Take(i * 80000), Event::Reference);
    }
}

TEST_F(StreamClockTest, AnotherClockTakesOverAfterASecond) {
    EXPECT_EQ(Take(1000000), Event::First);
    EXPECT_EQ(TakeOther(0x200, cEnd - 45000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 44999), Event::Nothing); // over its wrap
    EXPECT_EQ(TakeOther(0x200, 45000), Event::Break);
    EXPECT_EQ(mClock.JumpTicks(), 45000 - 1000000);
    EXPECT_EQ(TakeOther(0x200, 45900), Event::Reference);
    EXPECT_EQ(mClock.Elapsed(), 10ms);
    // Now the first one is the other.
    EXPECT_EQ(Take(1090000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 46800), Event::Reference);
}

// The breaks of the other clock are no time.
TEST_F(StreamClockTest, ABreakOfAnotherClockDoesNotLetItTakeOver) {
    EXPECT_EQ(Take(0), Event::First);
    EXPECT_EQ(TakeOther(0x200, 1000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 45000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 9000000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 10), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 46009), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 46010), Event::Break);
}

// What another clock shows before a reference of the followed one does not count, nor what a third one does.
TEST_F(StreamClockTest, EachOtherClockIsFollowedByItself) {
    EXPECT_EQ(Take(0), Event::First);
    EXPECT_EQ(TakeOther(0x200, 0), Event::Nothing);
    EXPECT_EQ(TakeOther(0x200, 80000), Event::Nothing);
    EXPECT_EQ(Take(80000), Event::Reference);
    for (std::uint16_t pid = 0x201; pid < 0x205; ++pid) {
        EXPECT_EQ(TakeOther(pid, pid * 1000u), Event::Nothing);
    }
    for (std::uint16_t pid = 0x201; pid < 0x205; ++pid) {
        EXPECT_EQ(TakeOther(pid, pid * 1000u + 89999u), Event::Nothing);
    }
    EXPECT_EQ(TakeOther(0x200, 160000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x203, 0x203u * 1000u + 90000u), Event::Break);
}

// More than eight other clocks are not told apart; one of the eight takes over.
TEST_F(StreamClockTest, ManyOtherClocks) {
    EXPECT_EQ(Take(0), Event::First);
    for (std::uint64_t ticks = 0; ticks <= 89000; ticks += 8900) {
        for (std::uint16_t pid = 0x200; pid < 0x220; ++pid) {
            EXPECT_EQ(TakeOther(pid, ticks), Event::Nothing);
        }
    }
    EXPECT_EQ(TakeOther(0x21F, 90000), Event::Nothing);
    EXPECT_EQ(TakeOther(0x207, 90000), Event::Break);
}
