// A clock whose time moves only when somebody sleeps: a sleep returns at once and moves the time forward.
// After a given number of sleeps the time stops for good, and each sleep takes a millisecond of real time.
#ifndef FLOWLANE_TESTS_VIRTUALCLOCK_H
#define FLOWLANE_TESTS_VIRTUALCLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "WaitUntil.h" // IWYU pragma: export: who moves this clock waits for what follows
#include "base/PipelineClock.h"

namespace testsupport {

class VirtualClock final : public flowlane::PipelineClock {
public:
    static constexpr TimePoint cStart{std::chrono::seconds(1000)};

    explicit VirtualClock(unsigned maxSleeps = std::numeric_limits<unsigned>::max())
        : mSleepsLeft(maxSleeps) {}

    TimePoint Now() noexcept override { return TimePoint(Duration(mNow.load())); }

    void Sleep(unsigned milliseconds) noexcept override {
        if (HasStopped()) {
            return;
        }
        TakeSleep();
        mLastSleep.store(milliseconds);
        mNow.fetch_add(std::int64_t{milliseconds} * 1000000);
    }

    void SleepUntil(TimePoint time) noexcept override {
        if (HasStopped()) {
            return;
        }
        TakeSleep();
        mNow.store(std::max(mNow.load(), time.time_since_epoch().count()));
    }

    // Time passes without a sleep.
    void Advance(Duration duration) { mNow.fetch_add(duration.count()); }
    void AllowSleeps(unsigned count) { mSleepsLeft.store(count); }
    unsigned Sleeps() const { return mSleeps.load(); }
    unsigned LastSleep() const { return mLastSleep.load(); }
    // How many sleeps found the time stopped. From 1 on, all work up to that time is done.
    unsigned StoodStill() const { return mStoodStill.load(); }

private:
    bool HasStopped() noexcept {
        if (mSleepsLeft.load() != 0) {
            return false;
        }
        mStoodStill.store(mStoodStill.load() + 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return true;
    }
    void TakeSleep() noexcept {
        mSleepsLeft.fetch_sub(1);
        mSleeps.fetch_add(1);
    }

    std::atomic<std::int64_t> mNow{cStart.time_since_epoch().count()};
    std::atomic<unsigned> mSleepsLeft;
    std::atomic<unsigned> mSleeps{0};
    std::atomic<unsigned> mLastSleep{0};
    std::atomic<unsigned> mStoodStill{0};
};

} // namespace testsupport

#endif
