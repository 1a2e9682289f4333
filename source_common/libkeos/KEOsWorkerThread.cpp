#include "KEOsWorkerThread.h"

#include <cstdint>

#include "KEPosixTime.h"
#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KEOsWorkerThread::CreateThreadImpl(void* (*entryPoint)(void*), void* object,
                                            const char* callerSignature) noexcept {
    if (mThread.IsCreated()) {
        KEOutputLogMessage(logger::Global, KEERROR, KELogMsgHeaderTag{callerSignature}, "already created");
        return KESTATUS_ALREADY_DONE;
    }
    SetState(KEOsWorkerThreadState::Creating, KESTATUS_SUCCESS);
    mIsTerminationRequested.store(false, std::memory_order_relaxed);
    const KESTATUS st = mThread.CreateThread(entryPoint, object, nullptr);
    if (st != KESTATUS_SUCCESS) {
        mThreadState.store(KEOsWorkerThreadState::NotCreated, std::memory_order_release);
    }
    return st;
}

KESTATUS KEOsWorkerThread::WaitUntilRunning(KETimeoutInterval timeout) noexcept {
    constexpr unsigned cLookIntervalMs = 10;
    const std::uint32_t start = KEPosixGetTickCount();
    while (State() == KEOsWorkerThreadState::Creating) {
        KEPosixSleep(cLookIntervalMs);
        if (State() != KEOsWorkerThreadState::Creating) {
            break;
        }
        if (timeout >= 0 && KEPosixGetTickCount() - start >= static_cast<std::uint32_t>(timeout)) {
            return KESTATUS_TIMEOUT;
        }
    }
    return StatusCode() == KESTATUS_SUCCESS ? KESTATUS_SUCCESS : KESTATUS_FAILED;
}

KESTATUS KEOsWorkerThread::WaitForTerminationAndDestroy(KETimeoutInterval timeout) noexcept {
    const KESTATUS st = mThread.JoinAndDestroy(timeout, nullptr);
    if (st == KESTATUS_SUCCESS) {
        mThreadState.store(KEOsWorkerThreadState::Terminated, std::memory_order_release);
    }
    return st;
}

void KEOsWorkerThread::SetState(KEOsWorkerThreadState state, KESTATUS status) noexcept {
    mThreadStatusCode.store(status, std::memory_order_relaxed);
    mThreadState.store(state, std::memory_order_release);
}

} // namespace kestrelon
