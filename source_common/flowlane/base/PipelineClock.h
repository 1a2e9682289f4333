// The time of the pipeline: what its stages know of the clock and of sleeping goes through here, so that
// pacing can be run in another time than the real one. An implementation serves several threads at once.
#ifndef FLOWLANE_PIPELINECLOCK_H
#define FLOWLANE_PIPELINECLOCK_H

#include <chrono>
#include <cstdint>

namespace flowlane {

class PipelineClock {
public:
    // Signed 64-bit nanoseconds, of the monotonic clock when they are points.
    using Duration = std::chrono::duration<std::int64_t, std::nano>;
    using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

    virtual ~PipelineClock() = default;

    virtual TimePoint Now() noexcept = 0;
    virtual void Sleep(unsigned milliseconds) noexcept = 0;

    // The real time.
    static PipelineClock& System() noexcept;

protected:
    PipelineClock() = default;
    PipelineClock(const PipelineClock&) = default;
    PipelineClock& operator=(const PipelineClock&) = default;
};

} // namespace flowlane

#endif
