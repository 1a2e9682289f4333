#include "KEPosixThread.h"

#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KEPosixThread::CreateThread(void* (*routine)(void*), void* arg,
                                     const pthread_attr_t* attr) noexcept {
    if (mIsCreated) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    const int ret = pthread_create(&mThread, attr, routine, arg);
    if (ret != 0) {
        return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_create failed, ret={}", ret);
    }
    mIsCreated = true;
    return KESTATUS_SUCCESS;
}

KESTATUS KEPosixThread::JoinAndDestroy(KETimeoutInterval waitTimeout, void** result) noexcept {
    if (waitTimeout >= 0) {
        KEOutputLogMessage(logger::Global, KEWARN, KE_FUNCTION_TAG,
                           "waitTimeout={} is not supported on Posix", waitTimeout);
    }
    if (mIsCreated) {
        const int ret = pthread_join(mThread, result);
        if (ret != 0) {
            return KEOutputSystemError(KE_FUNCTION_TAG, "pthread_join failed, ret={}", ret);
        }
        mIsCreated = false;
    }
    return KESTATUS_SUCCESS;
}

} // namespace kestrelon
