// How the time that a command has reached is shown. That it is shown only on a terminal is a test of the
// program.

#include "commands/Progress.h"

#include <gtest/gtest.h>

#include <optional>

#include "LogCapture.h"

namespace flowlane {
namespace {

using namespace std::chrono_literals;

TEST(ProgressTest, ShowsTheTimeAndTheShareOfTheWhole) {
    EXPECT_EQ(ProgressText(90s, 0s), "0:00 of 1:30 (0 %)");
    EXPECT_EQ(ProgressText(90s, 12s), "0:12 of 1:30 (13 %)");
    EXPECT_EQ(ProgressText(90s, 89999ms), "1:29 of 1:30 (99 %)");
    EXPECT_EQ(ProgressText(90s, 90s), "1:30 of 1:30 (100 %)");
    EXPECT_EQ(ProgressText(26h + 3s, 1h), "1:00:00 of 26:00:03 (3 %)");
    EXPECT_EQ(ProgressText(100ms, 50ms), "0:00 of 0:00 (50 %)");
}

TEST(ProgressTest, ShowsOnlyTheTimeWhenTheWholeIsUnknown) {
    EXPECT_EQ(ProgressText(std::nullopt, 61s), "1:01");
    EXPECT_EQ(ProgressText(0s, 61s), "1:01");
    EXPECT_EQ(ProgressText(-5s, 3725s), "1:02:05");
}

TEST(ProgressTest, NeverLeavesTheFile) {
    EXPECT_EQ(ProgressText(90s, 91s), "1:30 of 1:30 (100 %)");
    EXPECT_EQ(ProgressText(90s, -1s), "0:00 of 1:30 (0 %)");
    EXPECT_EQ(ProgressText(std::nullopt, -1s), "0:00");
}

TEST(ProgressTest, PrintsNothingWithoutTheOption) {
    const testsupport::LogCapture log;
    Progress(90s).Print(1s);
    EXPECT_TRUE(log.Messages().empty());
}

} // namespace
} // namespace flowlane
