// The waitable queue: its order, its event, stopping its consumer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <thread>
#include <vector>

#include "KEOsThreadMutex.h"
#include "KEOsWaitableQueue.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"
#include "base/KEEmptyLock.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Item {
    int mNumber = 0;
    KEDListEntry mLink;
};

using Queue = KEOsWaitableQueue<Item, KEEmptyLock>;
using LockedQueue = KEOsWaitableQueue<Item, KEOsThreadMutexAutoCreate>;

class QueueTest : public testing::Test {
protected:
    LogCapture mLog;
    Queue mQueue{&Item::mLink};
    Item mFirst{1, {}};
    Item mSecond{2, {}};
    Item mThird{3, {}};
};

TEST_F(QueueTest, IsUsableOnlyOnceInitialised) {
    EXPECT_FALSE(mQueue.IsInitialized());
    EXPECT_FALSE(mQueue.IsWaitEnabled());
    EXPECT_TRUE(mQueue.IsQueueEmpty());
    EXPECT_EQ(mQueue.PutItem(mFirst), KESTATUS{0xE0000036});
    EXPECT_TRUE(mQueue.IsQueueEmpty());
    EXPECT_EQ(mFirst.mLink.mList, nullptr);
    EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(mQueue.QueueEvent(), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(mQueue.GetItem(), nullptr);

    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mQueue.IsInitialized());
    EXPECT_TRUE(mQueue.IsWaitEnabled());
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS{0xE0000003});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(QueueTest, IsFirstInFirstOut) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    for (Item* item : {&mFirst, &mSecond, &mThird}) {
        EXPECT_EQ(mQueue.PutItem(*item), KESTATUS_SUCCESS);
        EXPECT_FALSE(mQueue.IsQueueEmpty());
    }
    EXPECT_EQ(mQueue.GetItem(), &mFirst);
    EXPECT_EQ(mQueue.GetItem(), &mSecond);
    EXPECT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.GetItem(), &mThird);
    EXPECT_EQ(mQueue.GetItem(), &mFirst);
    EXPECT_EQ(mQueue.GetItem(), nullptr);
    EXPECT_TRUE(mQueue.IsQueueEmpty());
}

TEST_F(QueueTest, LinksItemsAtTheTail) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.PutItem(mSecond), KESTATUS_SUCCESS);
    EXPECT_EQ(mFirst.mLink.mPrev, nullptr);
    EXPECT_EQ(mSecond.mLink.mPrev, &mFirst.mLink);
    EXPECT_EQ(mFirst.mLink.mNext, &mSecond.mLink);
    EXPECT_NE(mSecond.mLink.mList, nullptr);
    EXPECT_EQ(mSecond.mLink.mList, mFirst.mLink.mList);
    ASSERT_EQ(mQueue.GetItem(), &mFirst);
    EXPECT_EQ(mFirst.mLink.mList, nullptr);
    EXPECT_EQ(mFirst.mLink.mNext, nullptr);
}

TEST_F(QueueTest, TakesAllItemsOfAList) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    KEDList<Item> items(&Item::mLink);
    ASSERT_EQ(mQueue.PutItems(items), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT); // there was none
    Item first;
    Item second;
    items.AppendTail(first);
    items.AppendTail(second);
    ASSERT_EQ(mQueue.PutItems(items), KESTATUS_SUCCESS);
    EXPECT_TRUE(items.IsEmpty());
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.GetItem(), &first);
    EXPECT_EQ(mQueue.GetItem(), &second);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT);
}

TEST_F(QueueTest, SetsItsEventOnlyWhenItWasEmpty) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    const CallLog calls;
    ASSERT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    EXPECT_EQ(calls.Count("pthread_cond_broadcast"), 1u);
    EXPECT_EQ(calls.Count("pthread_mutex_lock"), 1u);
    ASSERT_EQ(mQueue.PutItem(mSecond), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.PutItem(mThird), KESTATUS_SUCCESS);
    EXPECT_EQ(calls.Count("pthread_cond_broadcast"), 1u);
    EXPECT_EQ(calls.Count("pthread_mutex_lock"), 1u);
}

TEST_F(QueueTest, TheEventStaysSetUntilTheQueueIsEmpty) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.PutItem(mSecond), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.GetItem(), &mFirst);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_SUCCESS);
    ASSERT_EQ(mQueue.GetItem(), &mSecond);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT);
    ASSERT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_SUCCESS);
}

TEST_F(QueueTest, IsWokenWithoutAnItem) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.QueueEvent(), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.GetItem(), nullptr); // finds it empty, which resets the event
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT);
}

TEST_F(QueueTest, DoesNotWaitWhileWaitingIsDisabled) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    mQueue.DisableWait();
    EXPECT_FALSE(mQueue.IsWaitEnabled());
    EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_SUCCESS);
    mQueue.EnableWait();
    EXPECT_TRUE(mQueue.IsWaitEnabled());
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT);
}

TEST_F(QueueTest, InitialisingItAgainEnablesWaitingAndSettlesTheEvent) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    mQueue.DisableWait();
    ASSERT_EQ(mQueue.QueueEvent(), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mQueue.IsWaitEnabled());
    EXPECT_EQ(mQueue.WaitOnQueue(0), KESTATUS_TIMEOUT);

    ASSERT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_SUCCESS); // the item is still there
    EXPECT_EQ(mQueue.GetItem(), &mFirst);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(QueueTest, IsDestroyedOnceTheConditionFirst) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    const CallLog calls;
    mQueue.DestroyQueue();
    EXPECT_FALSE(mQueue.IsInitialized());
    EXPECT_THAT(calls.Calls(),
                ElementsAre(testing::StrEq("pthread_cond_destroy"), testing::StrEq("pthread_mutex_destroy")));
    mQueue.DestroyQueue();
    EXPECT_EQ(calls.Calls().size(), 2u);
    EXPECT_EQ(mQueue.PutItem(mFirst), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
}

TEST_F(QueueTest, TheDestructorDestroysTheEvent) {
    const CallLog calls;
    {
        Queue queue(&Item::mLink);
        ASSERT_EQ(queue.InitQueue(), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(calls.Count("pthread_cond_destroy"), 1u);
    EXPECT_EQ(calls.Count("pthread_mutex_destroy"), 1u);
}

TEST_F(QueueTest, AFailingEventEndsTheInitialisation) {
    const SystemCallFault fault("pthread_cond_init", EAGAIN);
    EXPECT_EQ(mQueue.InitQueue(), KESTATUS{0xE001000B});
    EXPECT_FALSE(mQueue.IsInitialized());
    EXPECT_FALSE(mQueue.IsWaitEnabled());
}

TEST_F(QueueTest, AnItemIsQueuedThoughItsEventFails) {
    ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
    const SystemCallFault fault("pthread_cond_broadcast", EINVAL);
    EXPECT_EQ(mQueue.PutItem(mFirst), KESTATUS_SUCCESS);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "BroadcastCondition failed, st=0xe0010016"), 1u);
    EXPECT_EQ(mQueue.GetItem(), &mFirst);
}

// A consumer like the capture's writer thread: items wake it, and it is stopped while it waits.
TEST_F(QueueTest, CarriesItemsToAConsumerThatIsStoppedWhileItWaits) {
    constexpr int cItems = 2000;
    for (int round = 0; round < 5; ++round) {
        std::vector<Item> items(cItems);
        KEOsThreadMutexAutoCreate mutex;
        ASSERT_EQ(mQueue.InitQueue(), KESTATUS_SUCCESS);
        std::atomic<bool> isStopRequested{false};
        std::vector<int> received;
        const auto takeAll = [&] {
            for (;;) {
                const std::lock_guard guard(mutex);
                const Item* item = mQueue.GetItem();
                if (!item) {
                    return;
                }
                received.push_back(item->mNumber);
            }
        };
        std::thread consumer([&] {
            while (!isStopRequested) {
                EXPECT_EQ(mQueue.WaitOnQueue(-1), KESTATUS_SUCCESS);
                takeAll();
            }
            takeAll();
        });
        for (int i = 0; i < cItems; ++i) {
            items[static_cast<std::size_t>(i)].mNumber = i;
            const std::lock_guard guard(mutex);
            EXPECT_EQ(mQueue.PutItem(items[static_cast<std::size_t>(i)]), KESTATUS_SUCCESS);
        }
        isStopRequested = true;
        mQueue.DisableWait();
        EXPECT_EQ(mQueue.QueueEvent(), KESTATUS_SUCCESS);
        consumer.join();
        ASSERT_EQ(received.size(), static_cast<std::size_t>(cItems));
        for (int i = 0; i < cItems; ++i) {
            EXPECT_EQ(received[static_cast<std::size_t>(i)], i);
        }
    }
}

TEST_F(QueueTest, ARealLockGuardsTheListAgainstSeveralProducers) {
    constexpr int cProducers = 3;
    constexpr int cItemsEach = 1000;
    LockedQueue queue(&Item::mLink);
    ASSERT_EQ(queue.InitQueue(), KESTATUS_SUCCESS);
    std::vector<std::vector<Item>> items(cProducers, std::vector<Item>(cItemsEach));
    std::vector<std::thread> producers;
    producers.reserve(cProducers);
    for (std::vector<Item>& own : items) {
        producers.emplace_back([&] {
            for (Item& item : own) {
                EXPECT_EQ(queue.PutItem(item), KESTATUS_SUCCESS);
            }
        });
    }
    int received = 0;
    while (received < cProducers * cItemsEach) {
        EXPECT_EQ(queue.WaitOnQueue(-1), KESTATUS_SUCCESS);
        while (queue.GetItem()) {
            ++received;
        }
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    EXPECT_TRUE(queue.IsQueueEmpty());
}

} // namespace
