// The worker thread: its states, its status, the wait for its start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <utility>

#include "KEOsWorkerThread.h"
#include "KEPosixEvent.h"
#include "KEPosixTime.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"
#include "WaitUntil.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;
using State = KEOsWorkerThreadState;

namespace {

constexpr KESTATUS cAnyFailure = KESTATUS_READ_FILE_FAILED;

// A class that holds its worker as a member.
class Holder {
public:
    explicit Holder(std::function<void(KEOsWorkerThread&)> routine) : mRoutine(std::move(routine)) {}
    void ThreadRoutine() { mRoutine(mThread); }
    KESTATUS Start() { return mThread.CreateThread(this); }

    KEOsWorkerThread mThread;

private:
    std::function<void(KEOsWorkerThread&)> mRoutine;
};

// A class that is a worker.
class Deriver : public KEOsWorkerThread {
public:
    void ThreadRoutine() {
        SetState(State::Running, KESTATUS_SUCCESS);
        while (!mIsTerminationRequested) {
            KEPosixSleep(1);
        }
        SetState(State::Stopping, cAnyFailure);
    }
    KESTATUS Start() { return CreateThread(this); }
};

void WaitUntilEnded(const KEOsWorkerThread& thread) {
    EXPECT_TRUE(testsupport::WaitUntil([&] { return thread.HasEnded(); },
                                       [&] { return static_cast<int>(thread.State()); }));
}

TEST(WorkerThreadTest, StatesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(State::NotCreated), 0);
    EXPECT_EQ(static_cast<int>(State::Creating), 1);
    EXPECT_EQ(static_cast<int>(State::Running), 2);
    EXPECT_EQ(static_cast<int>(State::Stopping), 3);
    EXPECT_EQ(static_cast<int>(State::Terminated), 4);
}

TEST(WorkerThreadTest, ConstructionLeavesEverythingZero) {
    const KEOsWorkerThread thread;
    EXPECT_EQ(thread.State(), State::NotCreated);
    EXPECT_EQ(thread.StatusCode(), KESTATUS_SUCCESS);
    EXPECT_FALSE(thread.IsTerminationRequested());
    EXPECT_FALSE(thread.HasEnded());
}

TEST(WorkerThreadTest, WalksThroughItsStatesAsABase) {
    const LogCapture log;
    Deriver worker;
    ASSERT_EQ(worker.Start(), KESTATUS_SUCCESS);
    ASSERT_EQ(worker.WaitUntilRunning(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(worker.State(), State::Running);
    EXPECT_FALSE(worker.HasEnded());
    worker.RequestTermination();
    WaitUntilEnded(worker);
    EXPECT_EQ(worker.State(), State::Stopping);
    EXPECT_EQ(worker.StatusCode(), cAnyFailure);
    EXPECT_EQ(worker.WaitForTerminationAndDestroy(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(worker.State(), State::Terminated);
    EXPECT_EQ(worker.StatusCode(), cAnyFailure);
    EXPECT_TRUE(worker.HasEnded());
    EXPECT_TRUE(worker.IsTerminationRequested());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(WorkerThreadTest, IsUsedAsAMemberAndStartsAfreshAfterTheJoin) {
    Holder holder([](KEOsWorkerThread& thread) {
        EXPECT_EQ(thread.State(), State::Creating);
        EXPECT_EQ(thread.StatusCode(), KESTATUS_SUCCESS);
        EXPECT_FALSE(thread.IsTerminationRequested());
        thread.SetState(State::Stopping, cAnyFailure);
    });
    for (int round = 0; round < 2; ++round) {
        holder.mThread.RequestTermination(); // cleared by the creation
        ASSERT_EQ(holder.Start(), KESTATUS_SUCCESS);
        ASSERT_EQ(holder.mThread.WaitForTerminationAndDestroy(-1), KESTATUS_SUCCESS);
        EXPECT_EQ(holder.mThread.StatusCode(), cAnyFailure);
    }
}

TEST(WorkerThreadTest, OneThatEndedByItselfStillHasToBeJoined) {
    const LogCapture log;
    Holder holder([](KEOsWorkerThread& thread) { thread.SetState(State::Stopping, cAnyFailure); });
    ASSERT_EQ(holder.Start(), KESTATUS_SUCCESS);
    WaitUntilEnded(holder.mThread);
    EXPECT_EQ(holder.Start(), KESTATUS{0xE0000008});
    EXPECT_EQ(holder.mThread.State(), State::Stopping);
    EXPECT_EQ(holder.mThread.StatusCode(), cAnyFailure);
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEOsWorkerThread::CreateThread", "already created")));
    EXPECT_EQ(holder.mThread.WaitForTerminationAndDestroy(-1), KESTATUS_SUCCESS);
}

TEST(WorkerThreadTest, AFailedCreationReturnsToNotCreated) {
    const LogCapture log;
    Holder holder([](KEOsWorkerThread&) {});
    holder.mThread.SetState(State::Terminated, cAnyFailure);
    holder.mThread.mIsTerminationRequested = true;
    EXPECT_TRUE(holder.mThread.IsTerminationRequested());
    const SystemCallFault fault("pthread_create", EAGAIN);
    EXPECT_EQ(holder.Start(), KESTATUS{0xE001000B});
    EXPECT_EQ(holder.mThread.State(), State::NotCreated);
    EXPECT_EQ(holder.mThread.StatusCode(), KESTATUS_SUCCESS);
    EXPECT_FALSE(holder.mThread.IsTerminationRequested());
    EXPECT_THAT(log.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixThread::CreateThread",
                                                        "pthread_create failed, ret=11")));
}

TEST(WorkerThreadTest, AFailingJoinIsReturnedAndChangesNothing) {
    Holder holder([](KEOsWorkerThread& thread) { thread.SetState(State::Stopping, KESTATUS_SUCCESS); });
    ASSERT_EQ(holder.Start(), KESTATUS_SUCCESS);
    WaitUntilEnded(holder.mThread);
    {
        const SystemCallFault fault("pthread_join", ESRCH);
        EXPECT_EQ(holder.mThread.WaitForTerminationAndDestroy(-1), KESTATUS{0xE0010003});
    }
    EXPECT_EQ(holder.mThread.State(), State::Stopping);
    EXPECT_EQ(holder.mThread.WaitForTerminationAndDestroy(-1), KESTATUS_SUCCESS);
}

TEST(WorkerThreadTest, WaitingForTheEndWithoutAThreadTerminates) {
    const LogCapture log;
    KEOsWorkerThread thread;
    EXPECT_EQ(thread.WaitForTerminationAndDestroy(3), KESTATUS_SUCCESS);
    EXPECT_EQ(thread.State(), State::Terminated);
    EXPECT_THAT(log.Messages(), ElementsAre(IsMessageOf(KEWARN, "KEPosixThread::JoinAndDestroy",
                                                        "waitTimeout=3 is not supported on Posix")));
}

struct StartupCase {
    State state;
    KESTATUS statusCode;
    KESTATUS expected;
};

class WaitUntilRunningTest : public testing::TestWithParam<StartupCase> {};

TEST_P(WaitUntilRunningTest, TellsWhetherTheRoutineSurvivedItsStart) {
    const VirtualTime time({100, 0}, {});
    KEOsWorkerThread thread;
    thread.SetState(GetParam().state, GetParam().statusCode);
    EXPECT_EQ(thread.WaitUntilRunning(0), GetParam().expected);
    EXPECT_THAT(time.Sleeps(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(States, WaitUntilRunningTest,
                         testing::Values(StartupCase{State::NotCreated, 0, KESTATUS_SUCCESS},
                                         StartupCase{State::Running, 0, KESTATUS_SUCCESS},
                                         StartupCase{State::Running, cAnyFailure, KESTATUS{0xE0000001}},
                                         StartupCase{State::Stopping, 0, KESTATUS_SUCCESS},
                                         StartupCase{State::Stopping, cAnyFailure, KESTATUS{0xE0000001}},
                                         StartupCase{State::Terminated, 0, KESTATUS_SUCCESS},
                                         StartupCase{State::Terminated, cAnyFailure, KESTATUS{0xE0000001}}));

struct TimeoutCase {
    KETimeoutInterval timeout;
    int expectedMs;
};

class WaitUntilRunningTimeoutTest : public testing::TestWithParam<TimeoutCase> {};

TEST_P(WaitUntilRunningTimeoutTest, EndsTheWaitForARoutineThatNeverStarts) {
    // The tick count wraps during the longer waits.
    const VirtualTime time({4294967, 250000000}, {});
    KEOsWorkerThread thread;
    thread.SetState(State::Creating, KESTATUS_SUCCESS);
    EXPECT_EQ(thread.WaitUntilRunning(GetParam().timeout), KESTATUS{0xE0000003});
    EXPECT_EQ(time.ElapsedNs(), std::int64_t{GetParam().expectedMs} * 1000000);
    EXPECT_EQ(time.Sleeps().size(), static_cast<std::size_t>(GetParam().expectedMs / 10));
}

INSTANTIATE_TEST_SUITE_P(Timeouts, WaitUntilRunningTimeoutTest,
                         testing::Values(TimeoutCase{0, 10}, TimeoutCase{1, 10}, TimeoutCase{10, 10},
                                         TimeoutCase{11, 20}, TimeoutCase{100, 100},
                                         TimeoutCase{1000, 1000}));

TEST(WorkerThreadTest, ARoutineThatStartsDuringTheLastSleepIsInTime) {
    VirtualTime time({100, 0}, {});
    KEOsWorkerThread thread;
    thread.SetState(State::Creating, KESTATUS_SUCCESS);
    time.mOnSleep = [&](unsigned sleeps) {
        if (sleeps == 3) {
            thread.SetState(State::Running, KESTATUS_SUCCESS);
        }
    };
    EXPECT_EQ(thread.WaitUntilRunning(30), KESTATUS_SUCCESS);
    EXPECT_EQ(time.ElapsedNs(), 30000000);
}

TEST(WorkerThreadTest, ANegativeTimeoutWaitsOn) {
    VirtualTime time({100, 0}, {});
    KEOsWorkerThread thread;
    thread.SetState(State::Creating, KESTATUS_SUCCESS);
    time.mOnSleep = [&](unsigned sleeps) {
        if (sleeps == 10000) {
            thread.SetState(State::Stopping, cAnyFailure);
        }
    };
    EXPECT_EQ(thread.WaitUntilRunning(-2), KESTATUS{0xE0000001});
    EXPECT_EQ(time.Sleeps().size(), 10000u);
}

} // namespace
