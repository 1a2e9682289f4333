// The condition variable: waking, deadlines, failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <thread>
#include <vector>

#include "KEPosixCondition.h"
#include "KEPosixTime.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ConditionTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(mMutex.CreateMutexObj(), KESTATUS_SUCCESS);
        ASSERT_EQ(mCondition.CreateCondition(), KESTATUS_SUCCESS);
    }
    LogCapture mLog;
    KEPosixMutex mMutex;
    KEPosixCondition mCondition;
};

TEST_F(ConditionTest, WakesItsWaiters) {
    struct Call {
        KESTATUS (KEPosixCondition::*wake)();
        KETimeoutInterval timeout;
    };
    constexpr KETimeoutInterval cLong = 60000;
    for (const Call& call :
         {Call{&KEPosixCondition::SignalCondition, -1}, Call{&KEPosixCondition::BroadcastCondition, -1},
          Call{&KEPosixCondition::SignalCondition, cLong},
          Call{&KEPosixCondition::BroadcastCondition, cLong}}) {
        bool isReady = false;
        std::thread waiter([&] {
            const std::lock_guard guard(mMutex);
            while (!isReady) {
                EXPECT_EQ(mCondition.WaitForCondition(mMutex, call.timeout), KESTATUS_SUCCESS);
            }
        });
        {
            const std::lock_guard guard(mMutex);
            isReady = true;
            EXPECT_EQ((mCondition.*call.wake)(), KESTATUS_SUCCESS);
        }
        waiter.join();
    }
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(ConditionTest, ADeadlineThatHasPassedIsATimeoutWithoutAMessage) {
    const std::lock_guard guard(mMutex);
    EXPECT_EQ(mCondition.WaitForConditionTimed(mMutex, {1, 0}), KESTATUS{0xE0000003});
    EXPECT_EQ(mCondition.WaitForCondition(mMutex, 0), KESTATUS{0xE0000003});
    EXPECT_EQ(mCondition.WaitForCondition(mMutex, 3), KESTATUS{0xE0000003});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(ConditionTest, TheDeadlineIsOnTheRealTimeClock) {
    const VirtualTime time({7, 0}, {1700000000, 900000000});
    std::vector<timespec> deadlines;
    const TimedWaitScript script([&](const timespec& deadline) {
        deadlines.push_back(deadline);
        return 0;
    });
    EXPECT_EQ(mCondition.WaitForCondition(mMutex, 1250), KESTATUS_SUCCESS);
    ASSERT_EQ(deadlines.size(), 1u);
    EXPECT_EQ(deadlines[0].tv_sec, 1700000002);
    EXPECT_EQ(deadlines[0].tv_nsec, 150000000);
}

TEST_F(ConditionTest, ASecondCreationIsRefused) {
    EXPECT_EQ(mCondition.CreateCondition(), KESTATUS_ALREADY_DONE);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixCondition::CreateCondition", "already created")));
}

TEST_F(ConditionTest, OperationsWithoutAnObjectAreRefused) {
    KEPosixCondition condition;
    KEPosixMutex mutex;
    EXPECT_EQ(condition.SignalCondition(), KESTATUS{0xE0000036});
    EXPECT_EQ(condition.BroadcastCondition(), KESTATUS_NOT_INITIALIZED);
    for (const KETimeoutInterval timeout : {-1, 0}) {
        EXPECT_EQ(condition.WaitForCondition(mMutex, timeout), KESTATUS_NOT_INITIALIZED);
        EXPECT_EQ(mCondition.WaitForCondition(mutex, timeout), KESTATUS_NOT_INITIALIZED);
    }
    EXPECT_EQ(condition.DestroyCondition(), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(ConditionTest, AFailingCreationIsLoggedAndMapped) {
    KEPosixCondition condition;
    const SystemCallFault fault("pthread_cond_init", EAGAIN);
    EXPECT_EQ(condition.CreateCondition(), KESTATUS{0xE001000B});
    EXPECT_FALSE(condition.IsCreated());
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixCondition::CreateCondition",
                                                         "pthread_cond_init failed, err=11")));
}

struct FailingCall {
    const char* call;
    const char* function;
    const char* message;
};

class ConditionFailureTest : public ConditionTest, public testing::WithParamInterface<FailingCall> {};

TEST_P(ConditionFailureTest, IsLoggedAndMapped) {
    const std::string function = GetParam().function;
    const std::lock_guard guard(mMutex);
    {
        const SystemCallFault fault(GetParam().call, EINVAL);
        const TimedWaitScript script([](const timespec&) { return EINVAL; });
        KESTATUS st = KESTATUS_SUCCESS;
        if (function == "SignalCondition") {
            st = mCondition.SignalCondition();
        } else if (function == "BroadcastCondition") {
            st = mCondition.BroadcastCondition();
        } else if (function == "WaitForConditionInfinite") {
            st = mCondition.WaitForCondition(mMutex, -5);
        } else if (function == "WaitForConditionTimed") {
            st = mCondition.WaitForCondition(mMutex, 5);
        } else {
            st = mCondition.DestroyCondition();
            EXPECT_FALSE(mCondition.IsCreated());
        }
        EXPECT_EQ(st, KESTATUS{0xE0010016});
    }
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixCondition::" + function, GetParam().message)));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ConditionFailureTest,
    testing::Values(
        FailingCall{"pthread_cond_signal", "SignalCondition", "pthread_cond_signal failed, err=22"},
        FailingCall{"pthread_cond_broadcast", "BroadcastCondition", "pthread_cond_broadcast failed, err=22"},
        FailingCall{"pthread_cond_wait", "WaitForConditionInfinite", "pthread_cond_wait failed, err=22"},
        FailingCall{"-", "WaitForConditionTimed", "pthread_cond_timedwait failed, err=22"},
        FailingCall{"pthread_cond_destroy", "DestroyCondition", "pthread_cond_destroy failed, err=22"}));

TEST_F(ConditionTest, AnUnreadableClockEndsATimedWait) {
    const SystemCallFault fault("clock_gettime", EINVAL);
    EXPECT_EQ(mCondition.WaitForCondition(mMutex, 5), KESTATUS{0xE0010016});
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixGetAbsoluteTimeForTimeout",
                                                         "clock_gettime failed, err=22")));
}

} // namespace
