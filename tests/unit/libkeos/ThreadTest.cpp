// Threads: creation, the join, the entry point for a member function.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

#include "KEOsThread.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::atomic<int> sRuns{0};

void* CountRun(void* arg) {
    ++sRuns;
    return arg;
}

class ThreadTest : public testing::Test {
protected:
    ThreadTest() { sRuns = 0; }
    LogCapture mLog;
    KEOsThread mThread;
};

TEST_F(ThreadTest, RunsTheRoutineAndHandsBackItsResult) {
    int value = 0;
    EXPECT_FALSE(mThread.IsCreated());
    ASSERT_EQ(mThread.CreateThread(&CountRun, &value, nullptr), KESTATUS_SUCCESS);
    EXPECT_TRUE(mThread.IsCreated());
    void* result = nullptr;
    EXPECT_EQ(mThread.JoinAndDestroy(-1, &result), KESTATUS_SUCCESS);
    EXPECT_EQ(result, &value);
    EXPECT_EQ(sRuns, 1);
    EXPECT_FALSE(mThread.IsCreated());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(ThreadTest, AttributesReachTheSystem) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{32} << 20), 0); // the usual size is 8 MiB
    const auto readStackSize = [](void* arg) -> void* {
        pthread_attr_t own;
        pthread_getattr_np(pthread_self(), &own);
        pthread_attr_getstacksize(&own, static_cast<std::size_t*>(arg));
        pthread_attr_destroy(&own);
        return nullptr;
    };
    std::size_t stackSize = 0;
    ASSERT_EQ(mThread.CreateThread(readStackSize, &stackSize, &attributes), KESTATUS_SUCCESS);
    EXPECT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
    pthread_attr_destroy(&attributes);
    EXPECT_GE(stackSize, std::size_t{32} << 20);
}

TEST_F(ThreadTest, ASecondCreationIsRefusedUntilTheThreadIsJoined) {
    ASSERT_EQ(mThread.CreateThread(&CountRun, nullptr, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(mThread.CreateThread(&CountRun, nullptr, nullptr), KESTATUS{0xE0000008});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixThread::CreateThread", "already created")));
    ASSERT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(sRuns, 1);

    ASSERT_EQ(mThread.CreateThread(&CountRun, nullptr, nullptr), KESTATUS_SUCCESS);
    ASSERT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(sRuns, 2);
}

TEST_F(ThreadTest, AFailingCreationIsLoggedAndMapped) {
    const SystemCallFault fault("pthread_create", EAGAIN);
    EXPECT_EQ(mThread.CreateThread(&CountRun, nullptr, nullptr), KESTATUS{0xE001000B});
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixThread::CreateThread",
                                                         "pthread_create failed, ret=11")));
    EXPECT_FALSE(mThread.IsCreated());
    EXPECT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(sRuns, 0);
}

struct TimeoutCase {
    KETimeoutInterval timeout;
    const char* warning; // null: none
};

class JoinTimeoutTest : public testing::TestWithParam<TimeoutCase> {};

TEST_P(JoinTimeoutTest, IsWarnedAboutAndNotHonoured) {
    LogCapture log;
    KEOsThread thread;
    // The routine ends far later than the shorter time-outs.
    const auto slowRoutine = [](void* arg) -> void* {
        const timespec pause = {0, 20000000};
        nanosleep(&pause, nullptr);
        static_cast<std::atomic<bool>*>(arg)->store(true);
        return nullptr;
    };
    std::atomic<bool> hasEnded{false};
    ASSERT_EQ(thread.CreateThread(slowRoutine, &hasEnded, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(thread.JoinAndDestroy(GetParam().timeout, nullptr), KESTATUS_SUCCESS);
    EXPECT_TRUE(hasEnded);
    EXPECT_FALSE(thread.IsCreated());
    if (GetParam().warning) {
        EXPECT_THAT(log.Messages(),
                    ElementsAre(IsMessageOf(KEWARN, "KEPosixThread::JoinAndDestroy", GetParam().warning)));
    } else {
        EXPECT_THAT(log.Messages(), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(Timeouts, JoinTimeoutTest,
                         testing::Values(TimeoutCase{-1, nullptr}, TimeoutCase{INT32_MIN, nullptr},
                                         TimeoutCase{0, "waitTimeout=0 is not supported on Posix"},
                                         TimeoutCase{1, "waitTimeout=1 is not supported on Posix"},
                                         TimeoutCase{5000, "waitTimeout=5000 is not supported on Posix"}));

TEST_F(ThreadTest, AThreadNeverCreatedIsJoinedAtOnce) {
    EXPECT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    // The warning does not depend on there being a thread.
    EXPECT_EQ(mThread.JoinAndDestroy(7, nullptr), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEWARN, "KEPosixThread::JoinAndDestroy",
                                                         "waitTimeout=7 is not supported on Posix")));
}

TEST_F(ThreadTest, AFailingJoinLeavesTheThreadCreated) {
    ASSERT_EQ(mThread.CreateThread(&CountRun, nullptr, nullptr), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_join", EINVAL);
        EXPECT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS{0xE0010016});
    }
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "KEPosixThread::JoinAndDestroy",
                                                         "pthread_join failed, ret=22")));
    EXPECT_TRUE(mThread.IsCreated());
    EXPECT_EQ(mThread.JoinAndDestroy(-1, nullptr), KESTATUS_SUCCESS);
}

class Object {
public:
    void Run() { mWasRun = true; }
    bool mWasRun = false;
};

TEST_F(ThreadTest, TheMemberEntryPointRunsTheMemberAndReturnsNull) {
    Object object;
    EXPECT_EQ((KEOsThread::ThreadEntryPointForMember_static<Object, &Object::Run>(&object)), nullptr);
    EXPECT_TRUE(object.mWasRun);
}

} // namespace
