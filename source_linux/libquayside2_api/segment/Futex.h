// Sleeping on a 32-bit word in memory that processes share.
#ifndef QUAYSIDE2_SEGMENT_FUTEX_H
#define QUAYSIDE2_SEGMENT_FUTEX_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "common/Clock.h"

namespace quayside2::segment {

// The system call reads a time as two longs.
static_assert(sizeof(timespec) == 2 * sizeof(long));

// Sleeps while the word holds expected, at most the given time. May return earlier without a reason.
inline void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                      std::int64_t nanoseconds) noexcept {
    if (nanoseconds <= 0) {
        return;
    }
    timespec time = {};
    time.tv_sec = static_cast<time_t>(nanoseconds / cNanosecondsPerSecond);
    time.tv_nsec = static_cast<long>(nanoseconds % cNanosecondsPerSecond);
    const long result = syscall(SYS_futex, &word, FUTEX_WAIT, expected, &time, nullptr, 0);
    if (result != 0 && errno != EAGAIN && errno != EINTR && errno != ETIMEDOUT) {
        nanosleep(&time, nullptr); // never turn a wait into a spin
    }
}

// Changes the word and wakes everybody who sleeps on it.
inline void FutexWake(std::atomic<std::uint32_t>& word) noexcept {
    word.fetch_add(1, std::memory_order_release);
    syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace quayside2::segment

#endif
