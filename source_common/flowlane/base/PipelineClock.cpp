#include "base/PipelineClock.h"

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
};

} // namespace

PipelineClock& PipelineClock::System() noexcept {
    static SystemClock sClock;
    return sClock;
}

} // namespace flowlane
