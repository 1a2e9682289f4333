// Sleeping, ticks, deadlines and differences of times.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <vector>

#include "KEPosixTime.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct SleepCase {
    unsigned ms;
    time_t seconds;
    long nanoseconds;
};

class SleepTest : public testing::TestWithParam<SleepCase> {};

TEST_P(SleepTest, AsksForOneSleep) {
    const LogCapture log;
    const VirtualTime time({}, {});
    EXPECT_EQ(KEPosixSleep(GetParam().ms), KESTATUS_SUCCESS);
    const std::vector<timespec> sleeps = time.Sleeps();
    ASSERT_EQ(sleeps.size(), 1u);
    EXPECT_EQ(sleeps[0].tv_sec, GetParam().seconds);
    EXPECT_EQ(sleeps[0].tv_nsec, GetParam().nanoseconds);
    EXPECT_THAT(log.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Lengths, SleepTest,
                         testing::Values(SleepCase{0, 0, 0}, SleepCase{1, 0, 1000000},
                                         SleepCase{999, 0, 999000000}, SleepCase{1000, 1, 0},
                                         SleepCase{1500, 1, 500000000},
                                         SleepCase{UINT_MAX, 4294967, 295000000}));

TEST(SleepTest, ReallySleeps) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KEPosixSleep(30), KESTATUS_SUCCESS);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

timespec MonotonicTime() {
    timespec now{};
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    return now;
}

TEST(SleepUntilTest, EndsAtTheTime) {
    timespec end = MonotonicTime();
    end.tv_nsec += 30'000'000;
    end.tv_sec += end.tv_nsec / 1'000'000'000;
    end.tv_nsec %= 1'000'000'000;
    EXPECT_EQ(KEPosixSleepUntil(end), KESTATUS_SUCCESS);
    timespec late{};
    EXPECT_FALSE(SubtractTimespec(MonotonicTime(), end, late)) << late.tv_sec << " " << late.tv_nsec;
}

TEST(SleepUntilTest, ReturnsAtOnceWhenTheTimeHasPassed) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KEPosixSleepUntil({}), KESTATUS_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(SleepUntilTest, AnInterruptionIsNoFailure) {
    const LogCapture log;
    const SystemCallFault fault("clock_nanosleep", EINTR);
    timespec end = MonotonicTime();
    end.tv_sec += 3600;
    EXPECT_EQ(KEPosixSleepUntil(end), KESTATUS_SUCCESS);
    EXPECT_TRUE(fault.IsDelivered());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(SleepUntilTest, ReportsATimeThatIsNotValid) {
    const LogCapture log;
    EXPECT_EQ(KEPosixSleepUntil({1, -1}), KESTATUS{0xE0010016});
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixSleepUntil", "clock_nanosleep failed, ret=22")));
}

TEST(SleepTest, IsNotResumedAfterAnInterruption) {
    const LogCapture log;
    const VirtualTime time({}, {});
    const SystemCallFault fault("nanosleep", EINTR);
    EXPECT_EQ(KEPosixSleep(1500), KESTATUS{0xE0010004});
    EXPECT_THAT(time.Sleeps(), IsEmpty());
    EXPECT_THAT(log.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixSleep", "nanosleep failed, err=4")));
}

struct TickCase {
    timespec clock;
    std::uint32_t ticks;
};

class TickCountTest : public testing::TestWithParam<TickCase> {};

TEST_P(TickCountTest, CountsMillisecondsOfTheMonotonicClock) {
    const VirtualTime time(GetParam().clock, {1700000000, 0});
    EXPECT_EQ(KEPosixGetTickCount(), GetParam().ticks);
}

INSTANTIATE_TEST_SUITE_P(Clocks, TickCountTest,
                         testing::Values(TickCase{{0, 0}, 0}, TickCase{{0, 999999}, 0},
                                         TickCase{{0, 1000000}, 1}, TickCase{{12, 345678901}, 12345},
                                         TickCase{{4294967, 295999999}, 4294967295u},
                                         TickCase{{4294967, 296000000}, 0}, TickCase{{4294968, 0}, 704},
                                         TickCase{{100000000, 0}, 1215752192u}));

TEST(TickCountTest, DifferencesSurviveTheWrap) {
    const VirtualTime time({4294967, 250000000}, {});
    const std::uint32_t start = KEPosixGetTickCount();
    EXPECT_EQ(KEPosixSleep(100), KESTATUS_SUCCESS);
    const std::uint32_t end = KEPosixGetTickCount();
    EXPECT_LT(end, start);
    EXPECT_EQ(end - start, 100u);
}

TEST(TickCountTest, AnUnreadableClockGivesZero) {
    const LogCapture log;
    const VirtualTime time({12, 0}, {});
    const SystemCallFault fault("clock_gettime", EPERM);
    EXPECT_EQ(KEPosixGetTickCount(), 0u);
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixGetTickCount", "clock_gettime failed, err=1")));
}

struct DeadlineCase {
    timespec now;
    int ms;
    timespec deadline;
};

class DeadlineTest : public testing::TestWithParam<DeadlineCase> {};

TEST_P(DeadlineTest, IsTheRealTimeClockPlusTheTimeout) {
    const VirtualTime time({77, 0}, GetParam().now);
    timespec deadline{};
    EXPECT_EQ(KEPosixGetAbsoluteTimeForTimeout(GetParam().ms, deadline), KESTATUS_SUCCESS);
    EXPECT_EQ(deadline.tv_sec, GetParam().deadline.tv_sec);
    EXPECT_EQ(deadline.tv_nsec, GetParam().deadline.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, DeadlineTest,
                         testing::Values(DeadlineCase{{1700000000, 5}, 0, {1700000000, 5}},
                                         DeadlineCase{{1700000000, 5}, 1, {1700000000, 1000005}},
                                         DeadlineCase{{1700000000, 5}, 1500, {1700000001, 500000005}},
                                         DeadlineCase{{1700000000, 500000000}, 499, {1700000000, 999000000}},
                                         DeadlineCase{{1700000000, 500000000}, 500, {1700000001, 0}},
                                         DeadlineCase{{1700000000, 999999999}, 999, {1700000001, 998999999}},
                                         DeadlineCase{
                                             {1700000000, 999999999}, INT_MAX, {1702147484, 646999999}}));

TEST(DeadlineTest, AnUnreadableClockIsLoggedAndMapped) {
    const LogCapture log;
    timespec deadline = {1, 2};
    const SystemCallFault fault("clock_gettime", EINVAL);
    EXPECT_EQ(KEPosixGetAbsoluteTimeForTimeout(5, deadline), KESTATUS{0xE0010016});
    EXPECT_EQ(deadline.tv_sec, 1);
    EXPECT_EQ(deadline.tv_nsec, 2);
    EXPECT_THAT(log.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixGetAbsoluteTimeForTimeout",
                                                        "clock_gettime failed, err=22")));
}

struct DifferenceCase {
    timespec a;
    timespec b;
    timespec difference;
    bool isNegative;
};

class SubtractTimespecTest : public testing::TestWithParam<DifferenceCase> {};

TEST_P(SubtractTimespecTest, NormalisesTheNanoseconds) {
    timespec result{};
    EXPECT_EQ(SubtractTimespec(GetParam().a, GetParam().b, result), GetParam().isNegative);
    EXPECT_EQ(result.tv_sec, GetParam().difference.tv_sec);
    EXPECT_EQ(result.tv_nsec, GetParam().difference.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(Pairs, SubtractTimespecTest,
                         testing::Values(DifferenceCase{{5, 7}, {5, 7}, {0, 0}, false},
                                         DifferenceCase{{5, 7}, {3, 2}, {2, 5}, false},
                                         DifferenceCase{{5, 2}, {3, 7}, {1, 999999995}, false},
                                         DifferenceCase{{5, 0}, {4, 999999999}, {0, 1}, false},
                                         DifferenceCase{{4, 999999999}, {5, 0}, {-1, 999999999}, true},
                                         DifferenceCase{{1, 0}, {1, 300000000}, {-1, 700000000}, true},
                                         DifferenceCase{{3, 2}, {5, 1}, {-2, 1}, true},
                                         DifferenceCase{{0, 0}, {1, 0}, {-1, 0}, true}));

} // namespace
