// A worker thread with a state, a final status and a request to end.
//
// Use it as a base or as a member of a class with a public void ThreadRoutine(), which CreateThread runs on
// the new thread:
//     mThread.CreateThread(this);
// The routine calls SetState(Running, KESTATUS_SUCCESS) once it works, returns soon after
// IsTerminationRequested() turns true, and as its last step calls SetState(Stopping, finalStatus).
//
// CreateThread, WaitUntilRunning and WaitForTerminationAndDestroy belong to one owner thread; any thread may
// read and set the state, the status and the request. The owner stops and joins the thread before the object
// is destroyed: RequestTermination(), wake the routine, WaitForTerminationAndDestroy(-1). A worker that has
// ended by itself is joined too.
#ifndef KESTRELON_KEOSWORKERTHREAD_H
#define KESTRELON_KEOSWORKERTHREAD_H

#include <atomic>

#include "KEOsThread.h"
#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

enum class KEOsWorkerThreadState {
    NotCreated = 0,
    Creating = 1,
    Running = 2,
    Stopping = 3,   // the routine is at its end; its status is stored
    Terminated = 4, // joined
};

class KEOsWorkerThread {
public:
    KEOsWorkerThread() = default;
    KEOsWorkerThread(const KEOsWorkerThread&) = delete;
    KEOsWorkerThread& operator=(const KEOsWorkerThread&) = delete;

    // Runs object->ThreadRoutine() on a new thread. KESTATUS_ALREADY_DONE while an earlier thread has not
    // been joined; on any other failure the state is NotCreated.
    template <typename T>
    [[nodiscard]] KESTATUS CreateThread(T* object) noexcept {
        return CreateThreadImpl(&KEOsThread::ThreadEntryPointForMember_static<T, &T::ThreadRoutine>, object,
                                __PRETTY_FUNCTION__);
    }

    // Waits until the state is not Creating any more, and looks every 10 ms. KESTATUS_TIMEOUT after timeout
    // ms, never for a negative timeout; KESTATUS_FAILED when the routine has given up with a failure.
    [[nodiscard]] KESTATUS WaitUntilRunning(KETimeoutInterval timeout) noexcept;

    // Joins the thread and waits without limit: a timeout of 0 or more is only warned about. The state is
    // Terminated then, also when there was no thread. The status may be ignored: a failure is
    // logged, and only a call from the thread itself can cause one.
    KESTATUS WaitForTerminationAndDestroy(KETimeoutInterval timeout) noexcept;

    // For the routine. A thread that sees the state also sees the status stored with it.
    void SetState(KEOsWorkerThreadState state, KESTATUS status) noexcept;
    KEOsWorkerThreadState State() const noexcept { return mThreadState.load(std::memory_order_acquire); }
    [[nodiscard]] KESTATUS StatusCode() const noexcept {
        return mThreadStatusCode.load(std::memory_order_relaxed);
    }
    // The routine is at its end or has been joined.
    bool HasEnded() const noexcept { return State() >= KEOsWorkerThreadState::Stopping; }

    void RequestTermination() noexcept { mIsTerminationRequested.store(true, std::memory_order_relaxed); }
    bool IsTerminationRequested() const noexcept {
        return mIsTerminationRequested.load(std::memory_order_relaxed);
    }

    // Set by RequestTermination(), cleared only by CreateThread.
    std::atomic<bool> mIsTerminationRequested{false};

protected:
    KEOsThread mThread;
    std::atomic<KEOsWorkerThreadState> mThreadState{KEOsWorkerThreadState::NotCreated};
    std::atomic<KESTATUS> mThreadStatusCode{KESTATUS_SUCCESS}; // of the routine

private:
    [[nodiscard]] KESTATUS CreateThreadImpl(void* (*entryPoint)(void*), void* object,
                                            const char* callerSignature) noexcept;
};

} // namespace kestrelon

#endif
