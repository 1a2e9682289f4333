// A clock that stands still but for the sleeps of who uses it: a sleep returns at once and moves the time
// on. After a number of sleeps the time stands still for good, and sleeping takes a little real time.
#ifndef FLOWLANE_TESTS_VIRTUALCLOCK_H
#define FLOWLANE_TESTS_VIRTUALCLOCK_H

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "base/PipelineClock.h"

namespace testsupport {

class VirtualClock final : public flowlane::PipelineClock {
public:
    static constexpr TimePoint cStart{std::chrono::seconds(1000)};

    explicit VirtualClock(unsigned maxSleeps = std::numeric_limits<unsigned>::max())
        : mSleepsLeft(maxSleeps) {}

    TimePoint Now() noexcept override { return TimePoint(Duration(mNow.load())); }

    void Sleep(unsigned milliseconds) noexcept override {
        if (mSleepsLeft.load() == 0) {
            mStoodStill.store(mStoodStill.load() + 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return;
        }
        mSleepsLeft.fetch_sub(1);
        mSleeps.fetch_add(1);
        mLastSleep.store(milliseconds);
        mNow.fetch_add(std::int64_t{milliseconds} * 1000000);
    }

    void AllowSleeps(unsigned count) { mSleepsLeft.store(count); }
    unsigned Sleeps() const { return mSleeps.load(); }
    unsigned LastSleep() const { return mLastSleep.load(); }
    // How often a sleep found the time standing still: from 1 on, all work up to then is done.
    unsigned StoodStill() const { return mStoodStill.load(); }

private:
    std::atomic<std::int64_t> mNow{cStart.time_since_epoch().count()};
    std::atomic<unsigned> mSleepsLeft;
    std::atomic<unsigned> mSleeps{0};
    std::atomic<unsigned> mLastSleep{0};
    std::atomic<unsigned> mStoodStill{0};
};

// Waits until the condition holds; false when it does not within a minute of real time.
template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace testsupport

#endif
