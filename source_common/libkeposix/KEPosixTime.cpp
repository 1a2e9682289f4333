#include "KEPosixTime.h"

#include <cerrno>

#include "log/KELogging.h"

namespace kestrelon {

namespace {

constexpr long cNanosecondsPerMillisecond = 1000000;
constexpr long cNanosecondsPerSecond = 1000000000;

} // namespace

KESTATUS KEPosixSleep(unsigned int ms) noexcept {
    const timespec duration = {static_cast<time_t>(ms / 1000),
                               static_cast<long>(ms % 1000) * cNanosecondsPerMillisecond};
    if (nanosleep(&duration, nullptr) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "nanosleep failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixSleepUntil(const timespec& time) noexcept {
    const int ret = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
    if (ret != 0 && ret != EINTR) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "clock_nanosleep failed, ret={}", ret);
    }
    return KESTATUS_SUCCESS;
}

std::uint32_t KEPosixGetTickCount() noexcept {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "clock_gettime failed, err={}", errno);
        return 0;
    }
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(now.tv_nsec / cNanosecondsPerMillisecond));
}

KESTATUS KEPosixGetAbsoluteTimeForTimeout(int ms, timespec& ts) noexcept {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "clock_gettime failed, err={}", errno);
    }
    ts.tv_sec = now.tv_sec + ms / 1000;
    ts.tv_nsec = now.tv_nsec + (ms % 1000) * cNanosecondsPerMillisecond;
    if (ts.tv_nsec >= cNanosecondsPerSecond) {
        ++ts.tv_sec;
        ts.tv_nsec -= cNanosecondsPerSecond;
    }
    return KESTATUS_SUCCESS;
}

bool SubtractTimespec(timespec a, timespec b, timespec& result) noexcept {
    const long nanoseconds = a.tv_nsec - b.tv_nsec;
    result.tv_sec = a.tv_sec - b.tv_sec + nanoseconds / cNanosecondsPerSecond;
    result.tv_nsec = nanoseconds % cNanosecondsPerSecond;
    if (result.tv_nsec < 0) {
        --result.tv_sec;
        result.tv_nsec += cNanosecondsPerSecond;
    }
    return result.tv_sec < 0;
}

} // namespace kestrelon
