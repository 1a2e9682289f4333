// The loop that prints the statistics of a running command: how often it prints, and what ends it.

#include "commands/StatisticsLoop.h"

#include <gtest/gtest.h>

#include <csignal>

#include "VirtualClock.h"

using namespace flowlane;
using namespace testsupport;

namespace {

class StatisticsLoopTest : public testing::Test {
protected:
    StopRequest mStopRequest;
    VirtualClock mClock;
    unsigned mPrinted = 0;
};

} // namespace

TEST_F(StatisticsLoopTest, PrintsAtOnceAndOncePerSecondUntilTheWorkHasEnded) {
    PrintStatisticsUntilEnd(
        mStopRequest,
        [&] {
            EXPECT_EQ(mClock.Now() - VirtualClock::cStart, std::chrono::seconds(mPrinted));
            return ++mPrinted == 4;
        },
        mClock);
    EXPECT_EQ(mPrinted, 4u);
    EXPECT_EQ(mClock.Sleeps(), 3u); // none after the end
}

TEST_F(StatisticsLoopTest, PrintsNoMoreOnceTheUserAskedForTheEnd) {
    PrintStatisticsUntilEnd(
        mStopRequest,
        [&] {
            if (++mPrinted == 2) {
                std::raise(SIGTERM);
            }
            return false;
        },
        mClock);
    EXPECT_EQ(mPrinted, 2u);
    EXPECT_EQ(mClock.Sleeps(), 2u);
}

TEST_F(StatisticsLoopTest, PrintsNothingWhenTheRequestCameBefore) {
    std::raise(SIGTERM);
    PrintStatisticsUntilEnd(
        mStopRequest,
        [&] {
            ++mPrinted;
            return true;
        },
        mClock);
    EXPECT_EQ(mPrinted, 0u);
    EXPECT_EQ(mClock.Sleeps(), 0u);
}
