// A lock that locks nothing, for containers whose user already serialises access.
#ifndef KESTRELON_KEEMPTYLOCK_H
#define KESTRELON_KEEMPTYLOCK_H

namespace kestrelon {

class KEEmptyLock {
public:
    void AcquireMutex() noexcept {}
    void ReleaseMutex() noexcept {}
    bool TryEnterMutex() noexcept { return true; }

    // The names that std::lock_guard uses.
    void lock() noexcept {}
    void unlock() noexcept {}
    bool try_lock() noexcept { return true; }
};

} // namespace kestrelon

#endif
