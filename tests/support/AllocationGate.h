// Holds a thread back until a test begins to count allocations: a sanitizer allocates memory when a thread
// begins, on that thread.
#ifndef FLOWLANE_TESTS_ALLOCATIONGATE_H
#define FLOWLANE_TESTS_ALLOCATIONGATE_H

#include <atomic>
#include <thread>

#include "VirtualClock.h"
#include "WaitUntil.h"

namespace testsupport {

class AllocationGate {
public:
    // Waits until it is open; the test's own thread passes at once.
    void Pass() noexcept {
        if (mIsClosed.load() && std::this_thread::get_id() != mOwner) {
            mIsReached.store(true);
            EXPECT_TRUE(WaitUntil([this] { return !mIsClosed.load(); }));
        }
    }
    bool IsReached() const noexcept { return mIsReached.load(); }
    void Open() noexcept { mIsClosed.store(false); }

private:
    std::atomic<bool> mIsClosed{true};
    std::atomic<bool> mIsReached{false};
    const std::thread::id mOwner = std::this_thread::get_id();
};

// A virtual clock that nobody can read before the gate is open.
class GatedClock final : public flowlane::PipelineClock {
public:
    explicit GatedClock(unsigned maxSleeps) : mClock(maxSleeps) {}

    TimePoint Now() noexcept override {
        mGate.Pass();
        return mClock.Now();
    }
    void Sleep(unsigned milliseconds) noexcept override { mClock.Sleep(milliseconds); }
    void SleepUntil(TimePoint time) noexcept override { mClock.SleepUntil(time); }

    VirtualClock mClock;
    AllocationGate mGate;
};

} // namespace testsupport

#endif
