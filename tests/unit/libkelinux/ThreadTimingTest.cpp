// How exactly the kernel wakes a thread that has asked for precise timing.

#include "KELinuxThreadTiming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <cerrno>
#include <thread>

#include "LogCapture.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::IsEmpty;

namespace {

struct Timing {
    int slack = 0;
    int policy = 0;
    int priority = 0;
};

Timing TimingOfThisThread() {
    Timing timing;
    sched_param priority{};
    EXPECT_EQ(pthread_getschedparam(pthread_self(), &timing.policy, &priority), 0);
    timing.priority = priority.sched_priority;
    timing.slack = prctl(PR_GET_TIMERSLACK);
    return timing;
}

// On a thread of its own, which keeps the setting to itself.
Timing PreciseTiming() {
    Timing timing;
    std::thread([&timing] {
        KELinuxUsePreciseTiming();
        timing = TimingOfThisThread();
    }).join();
    return timing;
}

bool MayUseRealTime() {
    bool may = false;
    std::thread([&may] {
        const sched_param priority{1};
        may = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority) == 0;
    }).join();
    return may;
}

} // namespace

// Newer kernels give a real-time thread no slack at all.
TEST(ThreadTimingTest, SlackIsAtMostOneNanosecond) {
    const int before = prctl(PR_GET_TIMERSLACK);
    EXPECT_GT(before, 1);
    EXPECT_LE(PreciseTiming().slack, 1);
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK), before); // other threads keep theirs
}

TEST(ThreadTimingTest, PriorityIsTheLowestOfRealTimeIfThereIsARight) {
    const LogCapture log;
    const Timing timing = PreciseTiming();
    EXPECT_EQ(timing.policy, MayUseRealTime() ? SCHED_FIFO : SCHED_OTHER);
    EXPECT_EQ(timing.priority, MayUseRealTime() ? 1 : 0);
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(ThreadTimingTest, NoRightToRealTimeIsSilent) {
    const LogCapture log;
    Timing timing;
    std::thread([&timing] {
        const SystemCallFault fault("pthread_setschedparam", EPERM);
        KELinuxUsePreciseTiming();
        EXPECT_TRUE(fault.IsDelivered());
        timing = TimingOfThisThread();
    }).join();
    EXPECT_EQ(timing.policy, SCHED_OTHER);
    EXPECT_EQ(timing.slack, 1);
    EXPECT_THAT(log.Messages(), IsEmpty());
}

// The kernel would end the process when the thread works for longer than the limit.
TEST(ThreadTimingTest, ALimitOnRealTimeKeepsTheUsualPriority) {
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_RTTIME, &old), 0);
    const rlimit limit{10'000'000, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_RTTIME, &limit), 0);
    const Timing timing = PreciseTiming();
    ASSERT_EQ(setrlimit(RLIMIT_RTTIME, &old), 0);
    EXPECT_EQ(timing.policy, SCHED_OTHER);
    EXPECT_EQ(timing.slack, 1);
}
