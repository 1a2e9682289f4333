// A POSIX thread. The object belongs to the thread that creates and joins it; it is no handle to be
// passed around. Destroying the object does nothing to the thread: the owner stops and joins it before.
#ifndef KESTRELON_KEPOSIXTHREAD_H
#define KESTRELON_KEPOSIXTHREAD_H

#include <pthread.h>

#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

class KEPosixThread {
public:
    KEPosixThread() = default;
    KEPosixThread(const KEPosixThread&) = delete;
    KEPosixThread& operator=(const KEPosixThread&) = delete;

    // Starts routine(arg) on a new thread. KESTATUS_ALREADY_DONE until the thread of an earlier call has
    // been joined, also when it has ended by itself. attr may be null.
    [[nodiscard]] KESTATUS CreateThread(void* (*routine)(void*), void* arg,
                                        const pthread_attr_t* attr) noexcept;

    // Waits for the end of the thread and stores the routine's result in *result unless result is null.
    // The wait has no time limit: a waitTimeout of 0 or more is warned about and then ignored. Success at
    // once when there is no thread. When joining fails the thread still counts as created.
    [[nodiscard]] KESTATUS JoinAndDestroy(KETimeoutInterval waitTimeout, void** result) noexcept;

    bool IsCreated() const noexcept { return mIsCreated; }

private:
    pthread_t mThread{};
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
