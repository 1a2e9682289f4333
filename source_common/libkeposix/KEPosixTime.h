// Sleeping, ticks and deadlines. From any thread. Failures are logged.
#ifndef KESTRELON_KEPOSIXTIME_H
#define KESTRELON_KEPOSIXTIME_H

#include <time.h>

#include <cstdint>

#include "kestatus.h"

namespace kestrelon {

// Sleeps once. A sleep that a signal cuts short is not resumed: it is logged and gives the status of EINTR.
// The status may be ignored: most callers look at the time or at a flag again anyway.
KESTATUS KEPosixSleep(unsigned int ms) noexcept;

// Sleeps until the monotonic clock has reached this time (0 to 999,999,999 nanoseconds). A signal that comes
// meanwhile ends the sleep and is no failure: look at the clock again.
KESTATUS KEPosixSleepUntil(const timespec& time) noexcept;

// Milliseconds of the monotonic clock. They wrap after about 49.7 days, so take differences in unsigned
// 32-bit arithmetic. 0 when the clock cannot be read.
std::uint32_t KEPosixGetTickCount() noexcept;

// The real-time clock's time in ms milliseconds from now, a deadline for KEPosixCondition. ms is at least 0.
// ts is unchanged on failure.
[[nodiscard]] KESTATUS KEPosixGetAbsoluteTimeForTimeout(int ms, timespec& ts) noexcept;

// result = a - b with 0 to 999,999,999 nanoseconds; returns true when the result is negative (-0.3 s is
// -1 second and 700,000,000 nanoseconds).
bool SubtractTimespec(timespec a, timespec b, timespec& result) noexcept;

} // namespace kestrelon

#endif
