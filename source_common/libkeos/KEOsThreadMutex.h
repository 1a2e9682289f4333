// The mutex types of the OS layer. They are recursive; KEPosixMutex.h describes them.
#ifndef KESTRELON_KEOSTHREADMUTEX_H
#define KESTRELON_KEOSTHREADMUTEX_H

#include "KEPosixMutex.h"
#include "log/KELogging.h"

namespace kestrelon {

template <typename NativeMutexT>
class KEOsThreadMutexT {
public:
    [[nodiscard]] KESTATUS CreateMutexObj(bool recursive = true) noexcept {
        return mMutex.CreateMutexObj(recursive);
    }
    void DestroyMutex() noexcept { mMutex.DestroyMutex(); }
    bool IsCreated() const noexcept { return mMutex.IsCreated(); }

    void AcquireMutex() noexcept { mMutex.AcquireMutex(); }
    void ReleaseMutex() noexcept { mMutex.ReleaseMutex(); }
    bool TryEnterMutex() noexcept { return mMutex.TryEnterMutex(); }

    NativeMutexT& NativeMutex() noexcept { return mMutex; }

    // The names that std::lock_guard uses.
    void lock() noexcept { AcquireMutex(); }
    void unlock() noexcept { ReleaseMutex(); }
    bool try_lock() noexcept { return TryEnterMutex(); }

private:
    NativeMutexT mMutex;
};

using KEOsThreadMutex = KEOsThreadMutexT<KEPosixMutex>;

// A mutex that its constructor creates. A failure is logged; the mutex then guards nothing, and IsCreated()
// is false.
class KEOsThreadMutexAutoCreate : public KEOsThreadMutex {
public:
    KEOsThreadMutexAutoCreate() noexcept {
        const KESTATUS st = CreateMutexObj();
        if (st != KESTATUS_SUCCESS) {
            KEOutputLogMessage(logger::Global, KEFATAL, KE_FUNCTION_TAG, "CreateMutexObj() failed, err={}",
                               KEFormatArgKEStatus(st));
        }
    }
};

} // namespace kestrelon

#endif
