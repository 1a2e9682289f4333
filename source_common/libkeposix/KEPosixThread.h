// A POSIX thread. Only one thread, the owner, uses the object. Destroying the object does nothing to the
// thread: the owner stops and joins it before. Failures are logged.
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

    // Starts routine(arg) on a new thread. KESTATUS_ALREADY_DONE until the thread of an earlier call has been
    // joined, even if it has ended by itself. attr may be null.
    [[nodiscard]] KESTATUS CreateThread(void* (*routine)(void*), void* arg,
                                        const pthread_attr_t* attr) noexcept;

    // Waits for the end of the thread and stores the routine's result in *result unless result is null. The
    // wait has no limit: a waitTimeout of 0 or more is only warned about. Success at once when there is no
    // thread. When the join fails, the thread still counts as created.
    [[nodiscard]] KESTATUS JoinAndDestroy(KETimeoutInterval waitTimeout, void** result) noexcept;

    bool IsCreated() const noexcept { return mIsCreated; }

private:
    pthread_t mThread{};
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
