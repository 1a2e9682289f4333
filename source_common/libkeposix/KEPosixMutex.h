// A recursive POSIX mutex: the thread that holds it may take it again and must release it as often. Create it
// once, before other threads use it; then any thread may take it. Until it is created the operations do
// nothing.
#ifndef KESTRELON_KEPOSIXMUTEX_H
#define KESTRELON_KEPOSIXMUTEX_H

#include <pthread.h>

#include "kestatus.h"

namespace kestrelon {

class KEPosixMutex {
public:
    KEPosixMutex() = default;
    ~KEPosixMutex() { DestroyMutex(); }
    KEPosixMutex(const KEPosixMutex&) = delete;
    KEPosixMutex& operator=(const KEPosixMutex&) = delete;

    // The argument has no effect: every mutex is recursive. KESTATUS_ALREADY_DONE when already created.
    [[nodiscard]] KESTATUS CreateMutexObj(bool recursive = true) noexcept;
    // Nobody may hold the mutex any more.
    void DestroyMutex() noexcept;

    // Waits without time limit. A failure is only logged.
    void AcquireMutex() noexcept;
    void ReleaseMutex() noexcept;
    // Takes the mutex if that needs no waiting; returns whether it did.
    bool TryEnterMutex() noexcept;

    bool IsCreated() const noexcept { return mIsCreated; }
    pthread_mutex_t* NativeMutex() noexcept { return &mMutex; }

    // The same under the names that std::lock_guard uses.
    void lock() noexcept { AcquireMutex(); }
    void unlock() noexcept { ReleaseMutex(); }
    bool try_lock() noexcept { return TryEnterMutex(); }

private:
    pthread_mutex_t mMutex{};
    bool mIsCreated = false;
};

} // namespace kestrelon

#endif
