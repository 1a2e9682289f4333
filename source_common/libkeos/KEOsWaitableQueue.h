// A first-in-first-out queue of objects linked through a member, with an event to wait for. It allocates
// nothing and never owns its items.
//
// Lock guards the list. With KEEmptyLock the user serialises PutItem, GetItem and IsQueueEmpty. Any thread
// may call WaitOnQueue, QueueEvent, EnableWait and DisableWait at any time. Initialise and destroy the queue
// while nobody else uses it.
//
// Until its stop flag is set, the consumer calls WaitOnQueue, then GetItem until it returns null. With the
// flag set it takes what is left and ends. Whoever stops it sets the flag, then calls DisableWait and
// QueueEvent. WaitOnQueue may return though there is no item.
#ifndef KESTRELON_KEOSWAITABLEQUEUE_H
#define KESTRELON_KEOSWAITABLEQUEUE_H

#include <atomic>

#include "KEOsEvent.h"
#include "base/KEDList.h"
#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

template <typename T, typename Lock>
class KEOsWaitableQueue {
public:
    // link is the member of T that links its objects on this queue.
    explicit KEOsWaitableQueue(KEDListEntry T::*link) noexcept : mQueuedItems(link) {}
    ~KEOsWaitableQueue() { DestroyQueue(); }
    KEOsWaitableQueue(const KEOsWaitableQueue&) = delete;
    KEOsWaitableQueue& operator=(const KEOsWaitableQueue&) = delete;

    // Creates the event and enables waiting. On a queue that is initialised already it enables waiting again
    // and sets or resets the event as the list needs it.
    [[nodiscard]] KESTATUS InitQueue() noexcept;
    // Items still queued stay linked.
    void DestroyQueue() noexcept;
    bool IsInitialized() const noexcept { return mIsInitialized; }

    bool IsQueueEmpty() const noexcept;

    // Appends the item, which must be on no list, and wakes the consumer if the queue was empty. An event
    // that cannot be set is logged; the item is queued all the same. KESTATUS_NOT_INITIALIZED when it is not
    // queued.
    [[nodiscard]] KESTATUS PutItem(T& item) noexcept;
    // The same for all items of a list, which is empty then.
    [[nodiscard]] KESTATUS PutItems(KEDList<T>& items) noexcept;

    // Takes the oldest item; null when there is none. Resets the event when the queue is then empty.
    T* GetItem() noexcept;

    // Waits for an item or for QueueEvent, without limit for a negative timeout. Success at once while
    // waiting is disabled; KESTATUS_TIMEOUT when the time has passed. The status may be ignored: GetItem says
    // whether there is an item.
    KESTATUS WaitOnQueue(KETimeoutInterval timeout) noexcept;
    // Wakes the consumer without an item. The status may be ignored: a failure is logged.
    KESTATUS QueueEvent() noexcept { return mEvent.SetEvent(); }

    void EnableWait() noexcept { mIsWaitEnabled.store(true, std::memory_order_relaxed); }
    void DisableWait() noexcept { mIsWaitEnabled.store(false, std::memory_order_relaxed); }
    bool IsWaitEnabled() const noexcept { return mIsWaitEnabled.load(std::memory_order_relaxed); }

private:
    class LockGuard {
    public:
        explicit LockGuard(Lock& lock) noexcept : mLock(lock) { mLock.AcquireMutex(); }
        ~LockGuard() { mLock.ReleaseMutex(); }
        LockGuard(const LockGuard&) = delete;
        LockGuard& operator=(const LockGuard&) = delete;

    private:
        Lock& mLock;
    };

    KEOsManualResetEvent mEvent;
    KEDList<T> mQueuedItems;
    mutable Lock mLock;
    bool mIsInitialized = false;
    std::atomic<bool> mIsWaitEnabled{false};
};

template <typename T, typename Lock>
KESTATUS KEOsWaitableQueue<T, Lock>::InitQueue() noexcept {
    const LockGuard guard(mLock);
    if (!mIsInitialized) {
        const KESTATUS st = mEvent.CreateEvent();
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        mIsInitialized = true;
    }
    EnableWait();
    return mQueuedItems.IsEmpty() ? mEvent.ResetEvent() : mEvent.SetEvent();
}

template <typename T, typename Lock>
void KEOsWaitableQueue<T, Lock>::DestroyQueue() noexcept {
    if (mIsInitialized) {
        mEvent.DestroyEvent();
        mIsInitialized = false;
    }
}

template <typename T, typename Lock>
bool KEOsWaitableQueue<T, Lock>::IsQueueEmpty() const noexcept {
    const LockGuard guard(mLock);
    return mQueuedItems.IsEmpty();
}

template <typename T, typename Lock>
KESTATUS KEOsWaitableQueue<T, Lock>::PutItem(T& item) noexcept {
    if (!mIsInitialized) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const LockGuard guard(mLock);
    const bool wasEmpty = mQueuedItems.IsEmpty();
    mQueuedItems.AppendTail(item);
    if (wasEmpty) {
        static_cast<void>(mEvent.SetEvent()); // a failure is logged; the item is queued
    }
    return KESTATUS_SUCCESS;
}

template <typename T, typename Lock>
KESTATUS KEOsWaitableQueue<T, Lock>::PutItems(KEDList<T>& items) noexcept {
    if (!mIsInitialized) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const LockGuard guard(mLock);
    const bool wasEmpty = mQueuedItems.IsEmpty();
    while (T* const item = items.RemoveHead()) {
        mQueuedItems.AppendTail(*item);
    }
    if (wasEmpty && !mQueuedItems.IsEmpty()) {
        static_cast<void>(mEvent.SetEvent()); // a failure is logged; the items are queued
    }
    return KESTATUS_SUCCESS;
}

template <typename T, typename Lock>
T* KEOsWaitableQueue<T, Lock>::GetItem() noexcept {
    const LockGuard guard(mLock);
    T* const item = mQueuedItems.RemoveHead();
    if (mQueuedItems.IsEmpty()) {
        static_cast<void>(mEvent.ResetEvent()); // fails only on a queue that was not initialised
    }
    return item;
}

template <typename T, typename Lock>
KESTATUS KEOsWaitableQueue<T, Lock>::WaitOnQueue(KETimeoutInterval timeout) noexcept {
    if (!mIsInitialized) {
        return KESTATUS_NOT_INITIALIZED;
    }
    // Whoever stops the consumer disables waiting before it sets the event. If GetItem has reset that event
    // since, the disabling is seen here.
    if (!IsWaitEnabled()) {
        return KESTATUS_SUCCESS;
    }
    return mEvent.WaitForEvent(timeout);
}

} // namespace kestrelon

#endif
