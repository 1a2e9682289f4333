// A POSIX condition variable. Created once, before other threads use it. A waiter holds the mutex
// exactly once when it calls and holds it again when the wait returns, whatever the status. Waits may
// wake without a reason: test in a loop.
//
// Operations on a condition, or with a mutex, that was not created return KESTATUS_NOT_INITIALIZED.
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
    // Nobody may wait any more. Success when there is nothing to destroy. The status may be ignored: a
    // failure is logged, and the condition is gone either way.
    KESTATUS DestroyCondition() noexcept;

    [[nodiscard]] KESTATUS SignalCondition() noexcept;    // wakes one waiter
    [[nodiscard]] KESTATUS BroadcastCondition() noexcept; // wakes all

    [[nodiscard]] KESTATUS WaitForConditionInfinite(KEPosixMutex& mutex) noexcept;
    // Until deadline, a time of the real-time clock (KEPosixGetAbsoluteTimeForTimeout); KESTATUS_TIMEOUT
    // when it has passed.
    [[nodiscard]] KESTATUS WaitForConditionTimed(KEPosixMutex& mutex, const timespec& deadline) noexcept;
    // Without limit for a negative timeout, else at most so long from now.
    [[nodiscard]] KESTATUS WaitForCondition(KEPosixMutex& mutex, KETimeoutInterval timeout) noexcept;

    bool IsCreated() const noexcept { return mIsCreated; }
    pthread_cond_t* NativeCondition() noexcept { return &mCond; }

private:
    pthread_cond_t mCond{};
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
