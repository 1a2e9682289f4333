// The mutex types of the OS layer; recursive, see KEPosixMutex.h.
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

    // For std::lock_guard and its kin.
    void lock() noexcept { AcquireMutex(); }
    void unlock() noexcept { ReleaseMutex(); }
    bool try_lock() noexcept { return TryEnterMutex(); }

private:
    NativeMutexT mMutex;
};

using KEOsThreadMutex = KEOsThreadMutexT<KEPosixMutex>;

// A mutex that is there from its construction on. Should that fail it is logged, and the mutex guards
// nothing: IsCreated() tells.
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
