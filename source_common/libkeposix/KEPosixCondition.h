// A POSIX condition variable. Create it once, before other threads use it. A waiter has taken the mutex
// exactly once when it calls, and has it again when the wait returns, whatever the status. Waits may end
// without a signal, so test in a loop.
//
// Operations return KESTATUS_NOT_INITIALIZED when the condition or the mutex was not created. Other failures
// are logged.
#ifndef KESTRELON_KEPOSIXCONDITION_H
#define KESTRELON_KEPOSIXCONDITION_H

#include <pthread.h>
#include <time.h>

#include "KEPosixMutex.h"
#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

class KEPosixCondition {
public:
    KEPosixCondition() = default;
    ~KEPosixCondition() { DestroyCondition(); }
    KEPosixCondition(const KEPosixCondition&) = delete;
    KEPosixCondition& operator=(const KEPosixCondition&) = delete;

    // KESTATUS_ALREADY_DONE when already created.
    [[nodiscard]] KESTATUS CreateCondition() noexcept;
    // While nobody waits. Success when there is nothing to destroy. The status may be ignored: a
    // failure is logged, and the condition is gone either way.
    KESTATUS DestroyCondition() noexcept;

    [[nodiscard]] KESTATUS SignalCondition() noexcept;    // wakes one waiter
    [[nodiscard]] KESTATUS BroadcastCondition() noexcept; // wakes all

    [[nodiscard]] KESTATUS WaitForConditionInfinite(KEPosixMutex& mutex) noexcept;
    // Waits until deadline, a time of the real-time clock (KEPosixGetAbsoluteTimeForTimeout).
    // KESTATUS_TIMEOUT when it has passed.
    [[nodiscard]] KESTATUS WaitForConditionTimed(KEPosixMutex& mutex, const timespec& deadline) noexcept;
    // Waits for at most timeout ms, without limit for a negative timeout. KESTATUS_TIMEOUT when the time has
    // passed.
    [[nodiscard]] KESTATUS WaitForCondition(KEPosixMutex& mutex, KETimeoutInterval timeout) noexcept;

    bool IsCreated() const noexcept { return mIsCreated; }
    pthread_cond_t* NativeCondition() noexcept { return &mCond; }

private:
    pthread_cond_t mCond{};
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
