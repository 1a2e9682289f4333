// Waiting in a test for what another thread or process does. Every wait ends: after a minute of real time it
// fails, which is far longer than a loaded machine needs.
#ifndef FLOWLANE_TESTS_WAITUNTIL_H
#define FLOWLANE_TESTS_WAITUNTIL_H

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace testsupport {

// Waits until condition() is true, and looks every millisecond. For ASSERT_TRUE and EXPECT_TRUE; a failure
// prints what seen() returned last.
template <typename Condition, typename Seen>
testing::AssertionResult WaitUntil(Condition condition, Seen seen) {
    constexpr std::chrono::minutes cLimit(1);
    const auto deadline = std::chrono::steady_clock::now() + cLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return testing::AssertionFailure() << "not within " << cLimit.count()
                                               << " min, last seen: " << testing::PrintToString(seen());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return testing::AssertionSuccess();
}

// The same where the condition says all there is to see.
template <typename Condition>
testing::AssertionResult WaitUntil(Condition condition) {
    return WaitUntil(condition, [] { return "the condition is false"; });
}

} // namespace testsupport

#endif
