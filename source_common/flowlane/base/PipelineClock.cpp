#include "base/PipelineClock.h"

#include "KEPosixTime.h"

namespace flowlane {

namespace {

class SystemClock final : public PipelineClock {
public:
    TimePoint Now() noexcept override {
        return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
    }
    // An interrupted sleep ends early; who sleeps here looks at the clock again anyway.
    void Sleep(unsigned milliseconds) noexcept override { kestrelon::KEPosixSleep(milliseconds); }
};

} // namespace

PipelineClock& PipelineClock::System() noexcept {
    static SystemClock sClock;
    return sClock;
}

} // namespace flowlane
