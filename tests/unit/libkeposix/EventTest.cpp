// Events: manual and automatic reset, time-outs, failures below them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "KEOsEvent.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"
#include "WaitUntil.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr bool cManual = true;
constexpr bool cAuto = false;

class EventTest : public testing::Test {
protected:
    LogCapture mLog;
    KEPosixEvent mEvent;
};

TEST_F(EventTest, IsNotSignalledWhenCreated) {
    EXPECT_FALSE(mEvent.IsValid());
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    EXPECT_TRUE(mEvent.IsValid());
    EXPECT_TRUE(mEvent.IsManualResetType());
    EXPECT_FALSE(mEvent.IsAutoResetType());
    EXPECT_FALSE(mEvent.IsSignaled());
    EXPECT_EQ(mEvent.WaitForEvent(0), KESTATUS{0xE0000003});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(EventTest, AManualResetEventReleasesEveryLaterWaiterUntilItIsReset) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
    for (const KETimeoutInterval timeout : {0, -1, 5, INT32_MIN, 0}) {
        EXPECT_EQ(mEvent.WaitForEvent(timeout), KESTATUS_SUCCESS);
        EXPECT_TRUE(mEvent.IsSignaled());
    }
    EXPECT_EQ(mEvent.ResetEvent(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mEvent.IsSignaled());
    EXPECT_EQ(mEvent.WaitForEvent(0), KESTATUS_TIMEOUT);
    EXPECT_EQ(mEvent.WaitForEvent(2), KESTATUS_TIMEOUT);
}

TEST_F(EventTest, AnAutoResetEventReleasesOneWaiter) {
    ASSERT_EQ(mEvent.CreateEvent(cAuto), KESTATUS_SUCCESS);
    EXPECT_TRUE(mEvent.IsAutoResetType());
    EXPECT_FALSE(mEvent.IsManualResetType());
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS); // still one
    EXPECT_EQ(mEvent.WaitForEvent(-1), KESTATUS_SUCCESS);
    EXPECT_FALSE(mEvent.IsSignaled());
    EXPECT_EQ(mEvent.WaitForEvent(0), KESTATUS_TIMEOUT);
}

TEST_F(EventTest, TheKindsOfTheOsLayer) {
    KEOsManualResetEvent manual;
    ASSERT_EQ(manual.CreateEvent(), KESTATUS_SUCCESS);
    EXPECT_TRUE(manual.IsManualResetType());
    KEOsAutoResetEvent automatic;
    ASSERT_EQ(automatic.CreateEvent(), KESTATUS_SUCCESS);
    EXPECT_TRUE(automatic.IsAutoResetType());
}

TEST_F(EventTest, WakesAllWaitersOfAManualResetEvent) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    std::vector<std::thread> waiters;
    waiters.reserve(4);
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back(
            [this, i] { EXPECT_EQ(mEvent.WaitForEvent(i % 2 == 0 ? -1 : 60000), KESTATUS_SUCCESS); });
    }
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST_F(EventTest, AnAutoResetEventReleasesAsManyWaitersAsItIsSet) {
    ASSERT_EQ(mEvent.CreateEvent(cAuto), KESTATUS_SUCCESS);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    waiters.reserve(4);
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            EXPECT_EQ(mEvent.WaitForEvent(-1), KESTATUS_SUCCESS);
            ++released;
        });
    }
    for (int set = 1; set <= 4; ++set) {
        EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
        EXPECT_TRUE(WaitUntil([&] { return released >= set; }, [&] { return released.load(); }));
        EXPECT_EQ(released, set); // and no more
        EXPECT_FALSE(mEvent.IsSignaled());
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST_F(EventTest, OneDeadlineCountsForTheWholeWait) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    const VirtualTime time({0, 0}, {1000, 400000000});
    std::vector<timespec> deadlines;
    const TimedWaitScript script([&](const timespec& deadline) {
        deadlines.push_back(deadline);
        return deadlines.size() < 4 ? 0 : ETIMEDOUT; // the first ones wake without a reason
    });
    EXPECT_EQ(mEvent.WaitForEvent(1600), KESTATUS_TIMEOUT);
    ASSERT_EQ(deadlines.size(), 4u);
    for (const timespec& deadline : deadlines) {
        EXPECT_EQ(deadline.tv_sec, 1002);
        EXPECT_EQ(deadline.tv_nsec, 0);
    }
}

TEST_F(EventTest, AnEventThatComesWithTheTimeoutCounts) {
    ASSERT_EQ(mEvent.CreateEvent(cAuto), KESTATUS_SUCCESS);
    const TimedWaitScript script([&](const timespec&) {
        EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS); // the mutex is recursive
        return ETIMEDOUT;
    });
    EXPECT_EQ(mEvent.WaitForEvent(5), KESTATUS_SUCCESS);
    EXPECT_FALSE(mEvent.IsSignaled());
}

TEST_F(EventTest, OperationsWithoutAnEventAreRefused) {
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS{0xE0000036});
    EXPECT_EQ(mEvent.ResetEvent(), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(mEvent.WaitForEvent(-1), KESTATUS_NOT_INITIALIZED);
    EXPECT_EQ(mEvent.WaitForEvent(0), KESTATUS_NOT_INITIALIZED);
    EXPECT_FALSE(mEvent.IsSignaled());
    mEvent.DestroyEvent();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(EventTest, ASecondCreationIsRefusedAndChangesNothing) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    ASSERT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
    EXPECT_EQ(mEvent.CreateEvent(cAuto), KESTATUS_ALREADY_DONE);
    EXPECT_TRUE(mEvent.IsManualResetType());
    EXPECT_TRUE(mEvent.IsSignaled());
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixEvent::CreateEvent", "already created")));
}

TEST_F(EventTest, IsCreatedAnewAfterItsDestruction) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    ASSERT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
    mEvent.DestroyEvent();
    EXPECT_FALSE(mEvent.IsValid());
    EXPECT_EQ(mEvent.SetEvent(), KESTATUS_NOT_INITIALIZED);
    ASSERT_EQ(mEvent.CreateEvent(cAuto), KESTATUS_SUCCESS);
    EXPECT_TRUE(mEvent.IsAutoResetType());
    EXPECT_FALSE(mEvent.IsSignaled());
}

TEST_F(EventTest, TheConditionIsDestroyedBeforeTheMutex) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    const CallLog calls;
    mEvent.DestroyEvent();
    EXPECT_THAT(calls.Calls(),
                ElementsAre(testing::StrEq("pthread_cond_destroy"), testing::StrEq("pthread_mutex_destroy")));
    mEvent.DestroyEvent();
    EXPECT_EQ(calls.Calls().size(), 2u);
}

TEST_F(EventTest, AFailingMutexEndsTheCreation) {
    const SystemCallFault fault("pthread_mutex_init", ENOMEM);
    EXPECT_EQ(mEvent.CreateEvent(cManual), KESTATUS{0xE001000C});
    EXPECT_FALSE(mEvent.IsValid());
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(IsMessageOf(KEERROR, "KEPosixMutex::CreateMutexObj", "pthread_mutex_init failed, err=12"),
                    IsMessageOf(KEERROR, "KEPosixEvent::CreateEvent",
                                "CreateMutexObj failed, st=0xe001000c(KESTATUS_LINUX_ENOMEM)")));
}

TEST_F(EventTest, AFailingConditionEndsTheCreationAndFreesTheMutex) {
    {
        const SystemCallFault fault("pthread_cond_init", EAGAIN);
        const CallLog calls;
        EXPECT_EQ(mEvent.CreateEvent(cManual), KESTATUS{0xE001000B});
        EXPECT_EQ(calls.Count("pthread_mutex_destroy"), 1u);
    }
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixCondition::CreateCondition",
                                        "pthread_cond_init failed, err=11"),
                            IsMessageOf(KEERROR, "KEPosixEvent::CreateEvent",
                                        "CreateCondition failed, st=0xe001000b(KESTATUS_LINUX_EAGAIN)")));
    EXPECT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
}

struct SetFailure {
    bool isManual;
    const char* call;
    const char* conditionFunction;
    const char* conditionMessage;
    const char* eventMessage;
};

class SetEventFailureTest : public EventTest, public testing::WithParamInterface<SetFailure> {};

TEST_P(SetEventFailureTest, IsLoggedTwiceAndReleasesTheMutex) {
    const SetFailure& failure = GetParam();
    ASSERT_EQ(mEvent.CreateEvent(failure.isManual), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault(failure.call, EINVAL);
        EXPECT_EQ(mEvent.SetEvent(), KESTATUS{0xE0010016});
    }
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, failure.conditionFunction, failure.conditionMessage),
                            IsMessageOf(KEERROR, "KEPosixEvent::SetEvent", failure.eventMessage)));
    // Another thread gets the mutex, and the flag is set all the same.
    std::thread([this] { EXPECT_TRUE(mEvent.IsSignaled()); }).join();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, SetEventFailureTest,
    testing::Values(SetFailure{cManual, "pthread_cond_broadcast", "KEPosixCondition::BroadcastCondition",
                               "pthread_cond_broadcast failed, err=22",
                               "BroadcastCondition failed, st=0xe0010016(KESTATUS_LINUX_EINVAL)"},
                    SetFailure{cAuto, "pthread_cond_signal", "KEPosixCondition::SignalCondition",
                               "pthread_cond_signal failed, err=22",
                               "SignalCondition failed, st=0xe0010016(KESTATUS_LINUX_EINVAL)"}));

TEST_F(EventTest, AFailingConditionWaitEndsTheWait) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_cond_wait", EPERM);
        EXPECT_EQ(mEvent.WaitForEvent(-1), KESTATUS{0xE0010001});
    }
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixCondition::WaitForConditionInfinite",
                                        "pthread_cond_wait failed, err=1")));
    std::thread([this] { EXPECT_FALSE(mEvent.IsSignaled()); }).join();
}

TEST_F(EventTest, AnUnreadableClockEndsATimedWait) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    const SystemCallFault fault("clock_gettime", EINVAL);
    EXPECT_EQ(mEvent.WaitForEvent(10), KESTATUS{0xE0010016});
}

TEST_F(EventTest, ASignaledEventNeedsNoClock) {
    for (const bool isManual : {cManual, !cManual}) {
        ASSERT_EQ(mEvent.CreateEvent(isManual), KESTATUS_SUCCESS);
        for (const KETimeoutInterval timeout : {0, 10}) {
            EXPECT_EQ(mEvent.SetEvent(), KESTATUS_SUCCESS);
            const SystemCallFault fault("clock_gettime", EINVAL);
            EXPECT_EQ(mEvent.WaitForEvent(timeout), KESTATUS_SUCCESS);
            EXPECT_FALSE(fault.IsDelivered());
        }
        mEvent.DestroyEvent();
    }
}

TEST_F(EventTest, TheNativeEventIsTheCondition) {
    ASSERT_EQ(mEvent.CreateEvent(cManual), KESTATUS_SUCCESS);
    EXPECT_EQ(pthread_cond_signal(mEvent.NativeEvent()), 0);
}

} // namespace
