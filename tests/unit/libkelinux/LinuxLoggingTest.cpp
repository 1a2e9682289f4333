// Starting the logging on Linux, and the time, process and thread of a message.
#include "KELinuxLogging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <thread>

#include "KELinuxThreadId.h"
#include "LogCapture.h"
#include "SystemCallFaults.h"
#include "log/KELogging.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Records how it is started.
class StartedTarget : public KELogTarget {
public:
    StartedTarget() : KELogTarget("StartedTarget") {}
    KESTATUS StartTarget(KELogConfiguration* configuration) override {
        ++mStarts;
        int value = 0;
        mHasBareConfiguration = configuration && configuration->ReadLogTargetParameter(
                                                     "StartedTarget", "x", value) == KESTATUS_NOT_AVAILABLE;
        return mResult;
    }

    int mStarts = 0;
    bool mHasBareConfiguration = false;
    KESTATUS mResult = KESTATUS_SUCCESS;
};

class InitLoggingTest : public testing::Test {
protected:
    InitLoggingTest() { KESetLogModuleName("before"); }
    ~InitLoggingTest() override {
        KEStopLogging();
        KESetLogModuleName("");
    }
    StartedTarget mTarget;
    DebugOutputCapture mDiagnostics;
};

TEST_F(InitLoggingTest, TakesTheNameOfTheProgram) {
    EXPECT_EQ(KELinuxInitLoggingFacility(nullptr, nullptr), KESTATUS_SUCCESS);
    EXPECT_STREQ(KEGetLogModuleName(), "unit_libkelinux");
    EXPECT_EQ(mTarget.mStarts, 1);
    EXPECT_TRUE(mTarget.mHasBareConfiguration);
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(InitLoggingTest, TakesAGivenNameWithoutLookingForTheProgram) {
    const SystemCallFault fault("readlink", EACCES);
    EXPECT_EQ(KELinuxInitLoggingFacility("/not/read", "given"), KESTATUS_SUCCESS);
    EXPECT_STREQ(KEGetLogModuleName(), "given");
    EXPECT_FALSE(fault.IsDelivered());
    EXPECT_EQ(mTarget.mStarts, 1);
}

TEST_F(InitLoggingTest, ReturnsTheStatusOfTheStart) {
    mTarget.mResult = KESTATUS_OPEN_FILE_FAILED;
    EXPECT_EQ(KELinuxInitLoggingFacility(nullptr, "given"), KESTATUS_OPEN_FILE_FAILED);
}

TEST_F(InitLoggingTest, FailsWithoutAProgramFile) {
    const SystemCallFault fault("readlink", EACCES);
    EXPECT_EQ(KELinuxInitLoggingFacility(nullptr, nullptr), KESTATUS{0xE001000D});
    EXPECT_STREQ(KEGetLogModuleName(), "before");
    EXPECT_EQ(mTarget.mStarts, 0);
    EXPECT_THAT(mDiagnostics.Messages(),
                ElementsAre(testing::EndsWith(": readlink failed, err=13\n"),
                            testing::AllOf(
                                testing::StartsWith("ERROR: KESTATUS kestrelon::KELinuxInitLoggingFacility("),
                                testing::EndsWith("): Cannot get module file name, st=0xe001000d.\n"))));
}

TEST(MetaDataTest, StampsAMessage) {
    const VirtualTime time({1234, 56789}, {});
    KELogMsgMetaData metaData;
    KEInitLogMsgMetaData(metaData, KEWARN);
    EXPECT_EQ(metaData.mTimestamp, 1234000056);
    EXPECT_EQ(metaData.mProcessID, getpid());
    EXPECT_EQ(metaData.mThreadID, gettid());
    EXPECT_EQ(metaData.mMsgLevel, KEWARN);
}

TEST(ThreadIdTest, IsTheKernelsNumber) {
    EXPECT_EQ(KELinuxGetKernelThreadId(), getpid()); // of the first thread
    pid_t other = 0;
    pid_t expected = 0;
    std::thread([&] {
        other = KELinuxGetKernelThreadId();
        expected = gettid();
    }).join();
    EXPECT_EQ(other, expected);
    EXPECT_NE(other, getpid());
}

// A call that reads the clock also asks for the process and the thread.
TEST(LogMetaDataTest, NoMessageIsStampedWithoutATarget) {
    KELogger logger("Stamped", KEINFO);
    KELogMessage message;
    const std::function<void()> calls[] = {
        [&] { KEOutputLogMessage(logger, KEERROR, "{}", 1); },
        [&] { KEOutputLogMessage(logger, KEERROR, KE_FUNCTION_TAG, "{}", 1); },
        [&] {
            KEOutputLogMessageImpl({logger, KEERROR});
        },
        [&] {
            KEOutputLogMessageImpl({logger, KEERROR}, "text");
        },
        [&] {
            KEOutputHexDumpImpl({logger, KEERROR}, "ab", 2, 1);
        },
        [&] {
            KEOutputHexDumpImpl({logger, KEERROR}, nullptr, 2, 1);
        },
        [&] { logger.OutputMessage(KEERROR, message); },
    };
    for (const auto& call : calls) {
        const auto number = &call - calls;
        logger.DetachAllTargets();
        {
            const SystemCallFault fault("clock_gettime", EIO);
            call();
            EXPECT_FALSE(fault.IsDelivered()) << "call " << number;
        }
        StartedTarget target;
        EXPECT_EQ(logger.AttachTarget(target), KESTATUS_SUCCESS);
        const SystemCallFault fault("clock_gettime", EIO);
        call();
        EXPECT_TRUE(fault.IsDelivered()) << "call " << number;
    }
}

} // namespace
