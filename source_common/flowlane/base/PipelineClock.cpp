#include "base/PipelineClock.h"

#include "KEPosixTime.h"

namespace flowlane {

namespace {

class SystemClock final : public PipelineClock {
public:
    TimePoint Now() noexcept override {
        return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
    }
    // A sleep that a signal cuts short is logged there, and needs nothing else.
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
