#include "KEPosixEvent.h"

#include <mutex>

#include "KEPosixTime.h"
#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KEPosixEvent::CreateEvent(bool isManualReset) noexcept {
    if (mIsCreated) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    KESTATUS st = mMutex.CreateMutexObj();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "CreateMutexObj failed, st={}", st);
    }
    st = mCondition.CreateCondition();
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "CreateCondition failed, st={}", st);
        mMutex.DestroyMutex();
        return st;
    }
    mIsManualResetType = isManualReset;
    mIsSignaled = false;
    mIsCreated = true;
    return KESTATUS_SUCCESS;
}

void KEPosixEvent::DestroyEvent() noexcept {
    if (!mIsCreated) {
        return;
    }
    mIsCreated = false;
    mCondition.DestroyCondition();
    mMutex.DestroyMutex();
}

KESTATUS KEPosixEvent::SetEvent() noexcept {
    if (!mIsCreated) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const std::lock_guard guard(mMutex);
    mIsSignaled = true;
    const KESTATUS st = mIsManualResetType ? mCondition.BroadcastCondition() : mCondition.SignalCondition();
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(
            logger::Global, KE_FUNCTION_TAG,
            mIsManualResetType ? "BroadcastCondition failed, st={}" : "SignalCondition failed, st={}", st);
    }
    return st;
}

KESTATUS KEPosixEvent::ResetEvent() noexcept {
    if (!mIsCreated) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const std::lock_guard guard(mMutex);
    mIsSignaled = false;
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixEvent::WaitForEvent(KETimeoutInterval timeout) noexcept {
    if (!mIsCreated) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const std::lock_guard guard(mMutex);
    // One deadline for the whole wait, however often the condition wakes up before the event is set.
    timespec deadline{};
    if (!mIsSignaled && timeout >= 0) {
        const KESTATUS st = KEPosixGetAbsoluteTimeForTimeout(timeout, deadline);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    while (!mIsSignaled) {
        const KESTATUS st = timeout < 0 ? mCondition.WaitForConditionInfinite(mMutex)
                                        : mCondition.WaitForConditionTimed(mMutex, deadline);
        // The time may be up just when the event is set: the event counts.
        if (st != KESTATUS_SUCCESS && !(st == KESTATUS_TIMEOUT && mIsSignaled)) {
            return st;
        }
    }
    if (!mIsManualResetType) {
        mIsSignaled = false;
    }
    return KESTATUS_SUCCESS;
}

bool KEPosixEvent::IsSignaled() const noexcept {
    const std::lock_guard guard(mMutex);
    return mIsSignaled;
}

} // namespace kestrelon
