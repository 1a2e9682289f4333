#include "KELinuxThreadTiming.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace kestrelon {

namespace {

// With such a limit the kernel ends a process whose real-time thread works for long without a pause.
bool IsRealTimeLimited() noexcept {
    rlimit limit{};
    return getrlimit(RLIMIT_RTTIME, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

} // namespace

void KELinuxUsePreciseTiming() noexcept {
    constexpr unsigned long cSlack = 1; // ns
    prctl(PR_SET_TIMERSLACK, cSlack);
    if (!IsRealTimeLimited()) {
        sched_param priority{};
        priority.sched_priority = sched_get_priority_min(SCHED_FIFO);
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
    }
}

} // namespace kestrelon
