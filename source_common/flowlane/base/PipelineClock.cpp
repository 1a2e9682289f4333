#include "base/PipelineClock.h"

#include <algorithm>

#include "KEPosixTime.h"

namespace flowlane {

namespace {

class SystemClock final : public PipelineClock {
public:
    TimePoint Now() noexcept override {
        return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
    }
    // The status is of no use: a sleep that a signal cuts short is logged, and callers look at the clock
    // again.
    void Sleep(unsigned milliseconds) noexcept override {
        static_cast<void>(kestrelon::KEPosixSleep(milliseconds));
    }
    void SleepUntil(TimePoint time) noexcept override {
        constexpr std::int64_t cNanosecondsPerSecond = 1'000'000'000;
        const std::int64_t nanoseconds = std::max<std::int64_t>(time.time_since_epoch().count(), 0);
        static_cast<void>(
            kestrelon::KEPosixSleepUntil({static_cast<time_t>(nanoseconds / cNanosecondsPerSecond),
                                          static_cast<long>(nanoseconds % cNanosecondsPerSecond)}));
    }
};

} // namespace

PipelineClock& PipelineClock::System() noexcept {
    static SystemClock sClock;
    return sClock;
}

} // namespace flowlane
