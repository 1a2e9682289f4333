#include "KEPosixCondition.h"

#include <cerrno>

#include "KEPosixTime.h"
#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KEPosixCondition::CreateCondition() noexcept {
    if (mIsCreated) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    const int err = pthread_cond_init(&mCond, nullptr);
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_init failed, err={}", err);
    }
    mIsCreated = true;
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::DestroyCondition() noexcept {
    if (!mIsCreated) {
        return KESTATUS_SUCCESS;
    }
    mIsCreated = false;
    const int err = pthread_cond_destroy(&mCond);
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_destroy failed, err={}", err);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::SignalCondition() noexcept {
    if (!mIsCreated) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const int err = pthread_cond_signal(&mCond);
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_signal failed, err={}", err);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::BroadcastCondition() noexcept {
    if (!mIsCreated) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const int err = pthread_cond_broadcast(&mCond);
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_broadcast failed, err={}", err);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::WaitForConditionInfinite(KEPosixMutex& mutex) noexcept {
    if (!mIsCreated || !mutex.IsCreated()) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const int err = pthread_cond_wait(&mCond, mutex.NativeMutex());
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_wait failed, err={}", err);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::WaitForConditionTimed(KEPosixMutex& mutex, const timespec& deadline) noexcept {
    if (!mIsCreated || !mutex.IsCreated()) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const int err = pthread_cond_timedwait(&mCond, mutex.NativeMutex(), &deadline);
    if (err == ETIMEDOUT) {
        return KESTATUS_TIMEOUT;
    }
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_cond_timedwait failed, err={}", err);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixCondition::WaitForCondition(KEPosixMutex& mutex, KETimeoutInterval timeout) noexcept {
    if (timeout < 0) {
        return WaitForConditionInfinite(mutex);
    }
    timespec deadline{};
    const KESTATUS st = KEPosixGetAbsoluteTimeForTimeout(timeout, deadline);
    return st == KESTATUS_SUCCESS ? WaitForConditionTimed(mutex, deadline) : st;
}

} // namespace kestrelon
