#include "KEPosixMutex.h"

#include <cerrno>

#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KEPosixMutex::CreateMutexObj(bool /*recursive*/) noexcept {
    if (mIsCreated) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    pthread_mutexattr_t attributes;
    int err = pthread_mutexattr_init(&attributes);
    if (err != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutexattr_init failed, err={}", err);
    }
    KESTATUS st = KESTATUS_SUCCESS;
    err = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    if (err != 0) {
        st = KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutexattr_settype failed, err={}", err);
    } else {
        err = pthread_mutex_init(&mMutex, &attributes);
        if (err != 0) {
            st = KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutex_init failed, err={}", err);
        }
    }
    pthread_mutexattr_destroy(&attributes);
    mIsCreated = st == KESTATUS_SUCCESS;
    return st;
}

void KEPosixMutex::DestroyMutex() noexcept {
    if (!mIsCreated) {
        return;
    }
    const int err = pthread_mutex_destroy(&mMutex);
    if (err != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutex_destroy failed, err={}", err);
    }
    mIsCreated = false;
}

void KEPosixMutex::AcquireMutex() noexcept {
    if (!mIsCreated) {
        return;
    }
    const int err = pthread_mutex_lock(&mMutex);
    if (err != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutex_lock failed, err={}", err);
    }
}

void KEPosixMutex::ReleaseMutex() noexcept {
    if (!mIsCreated) {
        return;
    }
    const int err = pthread_mutex_unlock(&mMutex);
    if (err != 0) {
        KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutex_unlock failed, err={}", err);
    }
}

bool KEPosixMutex::TryEnterMutex() noexcept {
    if (!mIsCreated) {
        return false;
    }
    const int err = pthread_mutex_trylock(&mMutex);
    if (err != 0 && err != EBUSY) {
        KEOutputSystemError(KE_FUNCTION_TAG, "pthread_mutex_trylock failed, err={}", err);
    }
    return err == 0;
}

} // namespace kestrelon
