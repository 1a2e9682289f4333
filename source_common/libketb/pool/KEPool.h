// A pool of objects of one type.
//
// Threads: Lock guards the free list. With a real lock any thread may take and give back items; with
// KEEmptyLock the whole pool is for one thread at a time. AllocatePool and FreePool are for the owner alone,
// before and after the others use the pool.
#ifndef KESTRELON_KEPOOL_H
#define KESTRELON_KEPOOL_H

#include <mutex>
#include <new>
#include <type_traits>

#include "kestatus.h"
#include "log/KELogging.h"
#include "pool/KEPoolBase.h"

namespace kestrelon {

// TItem derives from KEPoolItemBase and has a default constructor. Lock works with std::lock_guard. Allocator
// is built like KEHeapMemAllocator.
template <typename TItem, typename Lock, typename Allocator>
class KEPoolT : public KEPoolBase {
public:
    KEPoolT() = default;
    ~KEPoolT() override { FreePool(); }

    // Creates count items. 0 is a success without effect. Throws what the allocator throws; the items created
    // until then stay in the pool.
    //   KESTATUS_INTERNAL_ERROR  the pool has items already
    [[nodiscard]] KESTATUS AllocatePool(unsigned count) {
        if (mTotalCount != 0) {
            KEOutputLogMessage(logger::Global, KEFATAL, "already allocated");
            return KESTATUS_INTERNAL_ERROR;
        }
        for (unsigned i = 0; i < count; ++i) {
            AddItem(CreateItem());
        }
        return KESTATUS_SUCCESS;
    }

    // Destroys the free items and empties the pool. Outstanding items are logged and leaked, since their user
    // may still hold them.
    void FreePool() noexcept {
        if (mTotalCount == 0) {
            return;
        }
        if (mCurrentCount != mTotalCount) {
            KEOutputLogMessage(logger::Global, KEFATAL,
                               "There are outstanding objects, current/total count: {}/{}", mCurrentCount,
                               mTotalCount);
        }
        while (KEPoolItemBase* item = mItemList.RemoveHead()) {
            DestroyItem(static_cast<TItem*>(item));
        }
        mTotalCount = 0;
        mCurrentCount = 0;
    }

    TItem* GetItem() override {
        static_assert(std::is_base_of_v<KEPoolItemBase, TItem>);
        const std::lock_guard<Lock> guard(mLock);
        KEPoolItemBase* item = mItemList.RemoveHead();
        if (item) {
            --mCurrentCount;
        }
        return static_cast<TItem*>(item);
    }

    void PutItem(KEPoolItemBase* item) override {
        const std::lock_guard<Lock> guard(mLock);
        mItemList.AppendTail(*item);
        ++mCurrentCount;
    }

private:
    static TItem* CreateItem() {
        void* memory = Allocator::Allocate(sizeof(TItem));
        try {
            return new (memory) TItem;
        } catch (...) {
            Allocator::Free(memory);
            throw;
        }
    }

    static void DestroyItem(TItem* item) noexcept {
        item->~TItem();
        Allocator::Free(item);
    }

    Lock mLock;
};

} // namespace kestrelon

#endif
