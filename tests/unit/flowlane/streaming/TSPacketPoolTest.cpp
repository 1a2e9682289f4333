// The pool of packets: how it is filled, used and freed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "LogCapture.h"
#include "base/KEEmptyLock.h"
#include "pool/KEPool.h"
#include "streaming/TSPacket.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

namespace {

// Has memory for a limited number of items.
struct ScarceAllocator {
    static inline unsigned sItemsLeft = 0;
    static inline unsigned sInUse = 0;

    static void* Allocate(std::size_t size) {
        if (sItemsLeft == 0) {
            throw std::bad_alloc();
        }
        --sItemsLeft;
        ++sInUse;
        return ::operator new(size);
    }
    static void Free(void* memory) noexcept {
        --sInUse;
        ::operator delete(memory);
    }
};

struct DestructionCounter : KEPoolItemBase {
    static inline unsigned sDestroyed = 0;
    ~DestructionCounter() override { ++sDestroyed; }
};

struct CountingLock {
    static inline int sDepth = 0;
    static inline unsigned sTimes = 0;
    void lock() {
        ++sDepth;
        ++sTimes;
    }
    void unlock() { --sDepth; }
};

} // namespace

TEST(TSPacketPoolTest, IsEmptyAfterConstruction) {
    TSPacketPool pool;
    EXPECT_EQ(pool.TotalCount(), 0u);
    EXPECT_EQ(pool.CurrentCount(), 0u);
    EXPECT_EQ(pool.GetItem(), nullptr);
    EXPECT_EQ(pool.CurrentCount(), 0u);
}

TEST(TSPacketPoolTest, NumbersItsItemsAndGivesThemOutInOrder) {
    TSPacketPool pool;
    ASSERT_EQ(pool.AllocatePool(3), KESTATUS_SUCCESS);
    EXPECT_EQ(pool.TotalCount(), 3u);
    TSPacket* packets[3];
    for (std::uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(pool.CurrentCount(), 3 - i);
        packets[i] = pool.GetItem();
        ASSERT_NE(packets[i], nullptr);
        EXPECT_EQ(packets[i]->mIndex, i);
        EXPECT_EQ(packets[i]->mOwnerPool, &pool);
        EXPECT_EQ(packets[i]->mListEntry.mNext, nullptr);
        EXPECT_EQ(packets[i]->mListEntry.mPrev, nullptr);
        EXPECT_EQ(packets[i]->mListEntry.mList, nullptr);
    }
    EXPECT_EQ(pool.GetItem(), nullptr);
    EXPECT_EQ(pool.TotalCount(), 3u);

    // They are reused first in, first out, and are not changed.
    packets[2]->mData[5] = 99;
    packets[2]->ReleaseToPool();
    packets[0]->ReleaseToPool();
    EXPECT_NE(packets[0]->mListEntry.mList, nullptr);
    EXPECT_EQ(pool.CurrentCount(), 2u);
    EXPECT_EQ(pool.GetItem(), packets[2]);
    EXPECT_EQ(packets[2]->mData[5], 99);
    EXPECT_EQ(packets[2]->mIndex, 2u);
    packets[1]->ReleaseToPool();
    EXPECT_EQ(pool.GetItem(), packets[0]);
    EXPECT_EQ(pool.GetItem(), packets[1]);
    for (TSPacket* packet : packets) {
        packet->ReleaseToPool();
    }
}

TEST(TSPacketPoolTest, ReleasesThroughTheOwningPool) {
    struct Owner final : KEPoolBase {
        KEPoolItemBase* GetItem() override { return nullptr; }
        void PutItem(KEPoolItemBase* item) override { mPut = item; }
        void Add(KEPoolItemBase* item) { AddItem(item); }
        KEPoolItemBase* mPut = nullptr;
    };
    TSPacket packet;
    Owner owner;
    owner.Add(&packet);
    EXPECT_EQ(owner.TotalCount(), 1u);
    EXPECT_EQ(owner.CurrentCount(), 1u);
    packet.ReleaseToPool();
    EXPECT_EQ(owner.mPut, &packet);
}

TEST(TSPacketPoolTest, AllocatesOnce) {
    LogCapture log;
    TSPacketPool pool;
    EXPECT_EQ(pool.AllocatePool(0), KESTATUS_SUCCESS);
    EXPECT_EQ(pool.TotalCount(), 0u);
    EXPECT_EQ(pool.AllocatePool(2), KESTATUS_SUCCESS); // nothing was allocated before
    EXPECT_THAT(log.Messages(), ElementsAre());
    EXPECT_EQ(pool.AllocatePool(2), KESTATUS_INTERNAL_ERROR);
    EXPECT_EQ(pool.TotalCount(), 2u);
    EXPECT_THAT(log.Messages(), ElementsAre(CapturedMessage{KEFATAL, "already allocated"}));
    pool.FreePool();
    EXPECT_EQ(pool.TotalCount(), 0u);
    EXPECT_EQ(pool.CurrentCount(), 0u);
    EXPECT_EQ(pool.AllocatePool(1), KESTATUS_SUCCESS);
    TSPacket* packet = pool.GetItem();
    EXPECT_EQ(packet->mIndex, 0u);
    packet->ReleaseToPool();
}

TEST(TSPacketPoolTest, FreeingReportsOutstandingItemsAndLeavesThemAlone) {
    LogCapture log;
    DestructionCounter::sDestroyed = 0;
    auto pool = std::make_unique<KEPoolT<DestructionCounter, KEEmptyLock, KEHeapMemAllocator>>();
    ASSERT_EQ(pool->AllocatePool(10000), KESTATUS_SUCCESS);
    DestructionCounter* first = pool->GetItem();
    DestructionCounter* second = pool->GetItem();
    pool->FreePool();
    EXPECT_EQ(DestructionCounter::sDestroyed, 9998u);
    EXPECT_EQ(pool->TotalCount(), 0u);
    EXPECT_EQ(pool->CurrentCount(), 0u);
    pool->FreePool(); // nothing is left to report
    pool.reset();
    EXPECT_THAT(log.Messages(),
                ElementsAre(CapturedMessage{
                    KEFATAL, "There are outstanding objects, current/total count: 9998/10000"}));
    EXPECT_EQ(DestructionCounter::sDestroyed, 9998u);
    EXPECT_EQ(first->mIndex, 0u); // still alive
    first->~DestructionCounter();
    second->~DestructionCounter();
    KEHeapMemAllocator::Free(first);
    KEHeapMemAllocator::Free(second);
}

TEST(TSPacketPoolTest, TheDestructorFreesItsItems) {
    LogCapture log;
    DestructionCounter::sDestroyed = 0;
    {
        KEPoolT<DestructionCounter, KEEmptyLock, KEHeapMemAllocator> pool;
        ASSERT_EQ(pool.AllocatePool(5), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(DestructionCounter::sDestroyed, 5u);
    EXPECT_THAT(log.Messages(), ElementsAre());
}

TEST(TSPacketPoolTest, LetsTheAllocatorsExceptionOutAndKeepsWhatItGot) {
    ScarceAllocator::sItemsLeft = 3;
    ScarceAllocator::sInUse = 0;
    {
        KEPoolT<TSPacket, KEEmptyLock, ScarceAllocator> pool;
        EXPECT_THROW(static_cast<void>(pool.AllocatePool(4)), std::bad_alloc);
        EXPECT_EQ(pool.TotalCount(), 3u);
        EXPECT_EQ(ScarceAllocator::sInUse, 3u);
    }
    EXPECT_EQ(ScarceAllocator::sInUse, 0u);
}

TEST(TSPacketPoolTest, HoldsItsLockWhileItTouchesTheList) {
    KEPoolT<TSPacket, CountingLock, KEHeapMemAllocator> pool;
    ASSERT_EQ(pool.AllocatePool(1), KESTATUS_SUCCESS);
    CountingLock::sTimes = 0;
    TSPacket* packet = pool.GetItem();
    EXPECT_EQ(pool.GetItem(), nullptr);
    packet->ReleaseToPool();
    EXPECT_EQ(CountingLock::sTimes, 3u);
    EXPECT_EQ(CountingLock::sDepth, 0);
}
