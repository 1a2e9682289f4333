// The recursive mutex: exclusion, creation, failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <thread>
#include <vector>

#include "KEOsThreadMutex.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"
#include "base/KEEmptyLock.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Whether another thread can take the mutex.
template <typename Mutex>
bool CanOtherThreadEnter(Mutex& mutex) {
    bool entered = false;
    std::thread([&] {
        entered = mutex.TryEnterMutex();
        if (entered) {
            mutex.ReleaseMutex();
        }
    }).join();
    return entered;
}

class MutexTest : public testing::TestWithParam<bool> {
protected:
    LogCapture mLog;
};

TEST_P(MutexTest, IsRecursiveWhateverTheArgument) {
    KEOsThreadMutex mutex;
    EXPECT_FALSE(mutex.IsCreated());
    ASSERT_EQ(mutex.CreateMutexObj(GetParam()), KESTATUS_SUCCESS);
    EXPECT_TRUE(mutex.IsCreated());
    mutex.AcquireMutex();
    mutex.AcquireMutex();
    EXPECT_TRUE(mutex.TryEnterMutex());
    EXPECT_FALSE(CanOtherThreadEnter(mutex));
    mutex.ReleaseMutex();
    mutex.ReleaseMutex();
    EXPECT_FALSE(CanOtherThreadEnter(mutex));
    mutex.ReleaseMutex();
    EXPECT_TRUE(CanOtherThreadEnter(mutex));
    mutex.DestroyMutex();
    EXPECT_FALSE(mutex.IsCreated());
    EXPECT_THAT(mLog.Messages(), IsEmpty()); // a busy mutex is no failure
}

INSTANTIATE_TEST_SUITE_P(Arguments, MutexTest, testing::Bool());

TEST_F(MutexTest, ExcludesOtherThreads) {
    KEOsThreadMutexAutoCreate mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                const std::lock_guard guard(mutex);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 4000);
}

TEST_F(MutexTest, ASecondCreationIsRefused) {
    KEPosixMutex mutex;
    ASSERT_EQ(mutex.CreateMutexObj(), KESTATUS_SUCCESS);
    EXPECT_EQ(mutex.CreateMutexObj(), KESTATUS_ALREADY_DONE);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::CreateMutexObj", "already created")));
}

struct FailingCall {
    const char* call;
    const char* message;
    unsigned attributeDestructions;
};

class MutexCreationFailureTest : public testing::TestWithParam<FailingCall> {};

TEST_P(MutexCreationFailureTest, IsLoggedAndMapped) {
    LogCapture log;
    KEPosixMutex mutex;
    {
        const SystemCallFault fault(GetParam().call, ENOMEM);
        const CallLog calls;
        EXPECT_EQ(mutex.CreateMutexObj(), KESTATUS{0xE001000C});
        EXPECT_EQ(calls.Count("pthread_mutexattr_destroy"), GetParam().attributeDestructions);
    }
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::CreateMutexObj", GetParam().message)));
    EXPECT_FALSE(mutex.IsCreated());
    log.Clear();

    // A mutex that was not created does nothing and logs nothing.
    mutex.AcquireMutex();
    mutex.ReleaseMutex();
    EXPECT_FALSE(mutex.TryEnterMutex());
    mutex.DestroyMutex();
    EXPECT_THAT(log.Messages(), IsEmpty());
    EXPECT_EQ(mutex.CreateMutexObj(), KESTATUS_SUCCESS);
}

TEST_P(MutexCreationFailureTest, IsFatalForAMutexThatCreatesItself) {
    const LogCapture log;
    const SystemCallFault fault(GetParam().call, ENOMEM);
    KEOsThreadMutexAutoCreate mutex;
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::CreateMutexObj", GetParam().message),
                            IsMessageOf(KEFATAL, "KEOsThreadMutexAutoCreate",
                                        "CreateMutexObj() failed, err=0xe001000c(KESTATUS_LINUX_ENOMEM)")));
    EXPECT_FALSE(mutex.IsCreated());
    mutex.AcquireMutex();
    mutex.ReleaseMutex();
}

INSTANTIATE_TEST_SUITE_P(
    Calls, MutexCreationFailureTest,
    testing::Values(FailingCall{"pthread_mutexattr_init", "pthread_mutexattr_init failed, err=12", 0},
                    FailingCall{"pthread_mutexattr_settype", "pthread_mutexattr_settype failed, err=12", 1},
                    FailingCall{"pthread_mutex_init", "pthread_mutex_init failed, err=12", 1}));

TEST_F(MutexTest, SuccessfulCreationDestroysItsAttributes) {
    KEPosixMutex mutex;
    const CallLog calls;
    ASSERT_EQ(mutex.CreateMutexObj(), KESTATUS_SUCCESS);
    EXPECT_EQ(calls.Count("pthread_mutexattr_destroy"), 1u);
}

TEST_F(MutexTest, AFailingAcquireIsOnlyLogged) {
    KEOsThreadMutexAutoCreate mutex;
    {
        const SystemCallFault fault("pthread_mutex_lock", EDEADLK);
        mutex.AcquireMutex();
    }
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::AcquireMutex",
                                                         "pthread_mutex_lock failed, err=35")));
    mutex.ReleaseMutex();
}

TEST_F(MutexTest, AFailingReleaseIsOnlyLogged) {
    KEOsThreadMutexAutoCreate mutex;
    const SystemCallFault fault("pthread_mutex_unlock", EPERM);
    mutex.AcquireMutex();
    mutex.ReleaseMutex();
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::ReleaseMutex",
                                                         "pthread_mutex_unlock failed, err=1")));
}

TEST_F(MutexTest, AFailingTryIsLogged) {
    KEOsThreadMutexAutoCreate mutex;
    const SystemCallFault fault("pthread_mutex_trylock", EINVAL);
    EXPECT_FALSE(mutex.TryEnterMutex());
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::TryEnterMutex",
                                                         "pthread_mutex_trylock failed, err=22")));
}

TEST_F(MutexTest, AFailingDestructionIsLoggedOnce) {
    {
        KEPosixMutex mutex;
        ASSERT_EQ(mutex.CreateMutexObj(), KESTATUS_SUCCESS);
        const SystemCallFault fault("pthread_mutex_destroy", EBUSY);
        mutex.DestroyMutex();
        EXPECT_FALSE(mutex.IsCreated());
    }
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::DestroyMutex",
                                                         "pthread_mutex_destroy failed, err=16")));
}

TEST_F(MutexTest, TheDestructorDestroysOnlyWhatWasCreated) {
    const CallLog calls;
    { const KEPosixMutex neverCreated; }
    EXPECT_EQ(calls.Count("pthread_mutex_destroy"), 0u);
    { const KEOsThreadMutexAutoCreate created; }
    EXPECT_EQ(calls.Count("pthread_mutex_destroy"), 1u);
}

TEST_F(MutexTest, TheEmptyLockLocksNothing) {
    KEEmptyLock lock;
    lock.AcquireMutex();
    EXPECT_TRUE(lock.TryEnterMutex());
    EXPECT_TRUE(CanOtherThreadEnter(lock));
    lock.ReleaseMutex();
}

} // namespace
