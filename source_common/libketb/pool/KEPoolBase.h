// A pool of objects that are created once and reused: GetItem and PutItem allocate nothing. KEPoolT
// (KEPool.h) is the concrete pool. Through these bases an item finds its way back to its pool.
//
// The pool owns its items, also while they are outstanding. They are reused first in, first out, and are not
// reset in between. Threads: see KEPool.h.
#ifndef KESTRELON_KEPOOLBASE_H
#define KESTRELON_KEPOOLBASE_H

#include <cstdint>

#include "base/KEDList.h"

namespace kestrelon {

class KEPoolBase;

// Base of anything that lives in a pool.
class KEPoolItemBase {
public:
    KEPoolItemBase() = default;
    virtual ~KEPoolItemBase() = default;
    KEPoolItemBase(const KEPoolItemBase&) = delete;
    KEPoolItemBase& operator=(const KEPoolItemBase&) = delete;

    // Gives the item back to its pool. It must be on no list.
    void ReleaseToPool();

    // The one list the item is on: the pool's free list or a queue of its user.
    KEDListEntry mListEntry;
    // Ordinal in the pool, 0 for the first item.
    std::uint32_t mIndex = 0;
    // Set when the item is added to its pool, never changed.
    KEPoolBase* mOwnerPool = nullptr;
};

class KEPoolBase {
public:
    KEPoolBase() noexcept : mItemList(&KEPoolItemBase::mListEntry) {}
    virtual ~KEPoolBase() = default;
    KEPoolBase(const KEPoolBase&) = delete;
    KEPoolBase& operator=(const KEPoolBase&) = delete;

    // Takes the item that was free longest, null when none is free. Never waits, never grows the pool.
    virtual KEPoolItemBase* GetItem() = 0;
    // Gives back an item of this pool that is on no list.
    virtual void PutItem(KEPoolItemBase* item) = 0;

    // Items created by the pool, and how many of them are free.
    std::uint32_t TotalCount() const noexcept { return mTotalCount; }
    std::uint32_t CurrentCount() const noexcept { return mCurrentCount; }

protected:
    // Gives a new item its number, makes it this pool's and adds it to the free ones.
    void AddItem(KEPoolItemBase* item) noexcept;

    char mDbgId[16] = {}; // for the debugger
    KEDList<KEPoolItemBase> mItemList;
    std::uint32_t mTotalCount = 0;
    std::uint32_t mCurrentCount = 0;
};

} // namespace kestrelon

#endif
