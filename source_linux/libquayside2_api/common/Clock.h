// The clocks: a steady one for waiting, the time of day for stamps. Nanoseconds.
#ifndef QUAYSIDE2_CLOCK_H
#define QUAYSIDE2_CLOCK_H

#include <time.h>

#include <cstdint>
#include <limits>

namespace quayside2 {

inline constexpr std::int64_t cNanosecondsPerSecond = 1'000'000'000;
inline constexpr std::int64_t cNanosecondsPerMillisecond = 1'000'000;
inline constexpr std::int64_t cNever = std::numeric_limits<std::int64_t>::max();

inline std::int64_t ReadClock(clockid_t clock) noexcept {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<std::int64_t>(time.tv_sec) * cNanosecondsPerSecond + time.tv_nsec;
}

inline std::int64_t SteadyNow() noexcept {
    return ReadClock(CLOCK_MONOTONIC);
}

// Since 1970-01-01 00:00:00 UTC.
inline std::uint64_t TimeOfDay() noexcept {
    return static_cast<std::uint64_t>(ReadClock(CLOCK_REALTIME));
}

// The steady time at which a wait of this many milliseconds ends. cNever for a negative number.
inline std::int64_t DeadlineAfter(std::int32_t milliseconds) noexcept {
    return milliseconds < 0 ? cNever : SteadyNow() + milliseconds * cNanosecondsPerMillisecond;
}

} // namespace quayside2

#endif
