// An event: a flag that threads can wait for. A manual-reset event stays signalled and releases every waiter
// until it is reset. An auto-reset event releases one waiter each time it is set.
//
// Create it once, before other threads use it, and destroy it when nobody waits any more. Any thread may call
// the rest. Operations on an event that was not created return KESTATUS_NOT_INITIALIZED. Other failures are
// logged.
#ifndef KESTRELON_KEPOSIXEVENT_H
#define KESTRELON_KEPOSIXEVENT_H

#include "KEPosixCondition.h"
#include "KEPosixMutex.h"
#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

class KEPosixEvent {
public:
    KEPosixEvent() = default;
    ~KEPosixEvent() { DestroyEvent(); }
    KEPosixEvent(const KEPosixEvent&) = delete;
    KEPosixEvent& operator=(const KEPosixEvent&) = delete;

    // The new event is not signalled. KESTATUS_ALREADY_DONE when already created.
    [[nodiscard]] KESTATUS CreateEvent(bool isManualReset) noexcept;
    void DestroyEvent() noexcept;

    [[nodiscard]] KESTATUS SetEvent() noexcept;
    [[nodiscard]] KESTATUS ResetEvent() noexcept;
    // Waits until the event is signalled, for at most timeout ms, without limit for a negative timeout.
    // KESTATUS_TIMEOUT when the time has passed. A timeout of 0 does not wait.
    [[nodiscard]] KESTATUS WaitForEvent(KETimeoutInterval timeout) noexcept;

    bool IsValid() const noexcept { return mIsCreated; }
    bool IsSignaled() const noexcept;
    bool IsManualResetType() const noexcept { return mIsManualResetType; }
    bool IsAutoResetType() const noexcept { return !mIsManualResetType; }
    pthread_cond_t* NativeEvent() noexcept { return mCondition.NativeCondition(); }

private:
    mutable KEPosixMutex mMutex;
    KEPosixCondition mCondition;
    bool mIsManualResetType = false;
    bool mIsSignaled = false; // under mMutex
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
