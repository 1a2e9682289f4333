#include "KELinuxThreadTiming.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <cstddef>

namespace kestrelon {

namespace {

// With such a limit the kernel ends a process whose real-time thread works for long without a pause.
bool IsRealTimeLimited() noexcept {
    rlimit limit{};
    return getrlimit(RLIMIT_RTTIME, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

// So that the first use of the stack's pages later on does not wait for the kernel to make them.
void TouchStack() noexcept {
    constexpr std::size_t cSize = 64 * 1024;
    unsigned char bytes[cSize];
    volatile unsigned char* const stack = bytes;
    for (std::size_t i = 0; i < cSize; i += 1024) {
        stack[i] = 0;
    }
}

} // namespace

void KELinuxUsePreciseTiming() noexcept {
    constexpr unsigned long cSlack = 1; // ns
    TouchStack();
    prctl(PR_SET_TIMERSLACK, cSlack);
    if (!IsRealTimeLimited()) {
        sched_param priority{};
        priority.sched_priority = sched_get_priority_min(SCHED_FIFO);
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
    }
}

} // namespace kestrelon
