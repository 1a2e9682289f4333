// The clock of the pipeline. All stages read the time and sleep through it, so that tests can run them in
// virtual time. Implementations are safe from any thread.
#ifndef FLOWLANE_PIPELINECLOCK_H
#define FLOWLANE_PIPELINECLOCK_H

#include <chrono>
#include <cstdint>

namespace flowlane {

class PipelineClock {
public:
    // Signed 64-bit nanoseconds; points are those of the monotonic clock.
    using Duration = std::chrono::duration<std::int64_t, std::nano>;
    using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

    virtual ~PipelineClock() = default;

    virtual TimePoint Now() noexcept = 0;
    // May return early: look at the clock again.
    virtual void Sleep(unsigned milliseconds) noexcept = 0;
    // Sleeps as exactly as the system allows. Returns at once when the time has passed. May return early:
    // look at the clock again.
    virtual void SleepUntil(TimePoint time) noexcept = 0;

    // Real time.
    static PipelineClock& System() noexcept;

protected:
    PipelineClock() = default;
    PipelineClock(const PipelineClock&) = default;
    PipelineClock& operator=(const PipelineClock&) = default;
};

} // namespace flowlane

#endif
