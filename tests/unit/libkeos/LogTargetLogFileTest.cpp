// The lines that a started log file target writes.
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "LogTargetFixture.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

TEST_F(LogTargetFileTest, RegistersUnderItsName) {
    EXPECT_EQ(KEGetLogTargetByName("File", true), &mTarget);
}

TEST_F(LogTargetFileTest, WritesPrefixAndText) {
    mTarget.mPrefixLayout.mOptions = KELogMsgPrefixLayout::LoggerName | KELogMsgPrefixLayout::LevelName;
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("hello");
    KEOutputLogMessage(mLogger, KEWARN, "number {}, %s is no format", 7);
    KEOutputLogMessage(mLogger, KEVERBOSE, "not admitted");
    EXPECT_EQ(Written(), "FileLogger: INFO: hello\nFileLogger: WARN: number 7, %s is no format\n");
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(LogTargetFileTest, DropsLinesWhileItIsNotStarted) {
    Log("before");
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("while");
    mTarget.StopTarget();
    Log("after");
    EXPECT_EQ(mDirectory.Read("x.log"), "while\n");
    mTarget.StopTarget();
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(LogTargetFileTest, TheLineThatReachesTheLimitIsWrittenWhole) {
    mTarget.SetMaxFileSizeKB(1);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    const std::string line(255, 'a'); // 256 bytes with its newline
    std::string full;
    for (int i = 0; i < 3; ++i) {
        Log(line);
        full += line + "\n";
    }
    Log(std::string(254, 'b'));
    full += std::string(254, 'b') + "\n"; // 1023 bytes so far
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    const std::string last(300, 'c');
    Log(last);
    full += last + "\n";
    EXPECT_EQ(mDirectory.Read("x.log.bak"), full);
    EXPECT_EQ(mDirectory.Read("x.log"), "");
    Log("next");
    EXPECT_EQ(Written(), "next\n");
    EXPECT_EQ(mDirectory.Read("x.log.bak"), full);
}

TEST_F(LogTargetFileTest, AFileThatReachesTheLimitExactlyIsFull) {
    mTarget.SetMaxFileSizeKB(1);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
        Log(std::string(255, 'a'));
    }
    EXPECT_EQ(std::filesystem::file_size(mDirectory / "x.log.bak"), 1024u);
}

TEST_F(LogTargetFileTest, AHugeLimitDoesNotWrap) {
    mTarget.SetMaxFileSizeKB(4194304); // 4 GiB
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    for (int i = 0; i < 100; ++i) {
        Log(std::string(500, 'a'));
    }
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    mTarget.StopTarget();

    mTarget.SetMaxFileSizeKB(4194305); // would be 1 KiB in 32 bits
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    for (int i = 0; i < 100; ++i) {
        Log(std::string(500, 'a'));
    }
    EXPECT_EQ(Written().size(), 50100u);
}

TEST_F(LogTargetFileTest, ALimitOfZeroIsNone) {
    mTarget.SetMaxFileSizeKB(1);
    mTarget.SetMaxFileSizeKB(0);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    for (int i = 0; i < 10; ++i) {
        Log(std::string(500, 'a'));
    }
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    EXPECT_EQ(Written().size(), 5010u);
}

TEST_F(LogTargetFileTest, FlushesAfterEachLineWhenAsked) {
    mTarget.EnableFlushAfterEachWrite(true);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("at once");
    EXPECT_EQ(mDirectory.Read("x.log"), "at once\n");
}

TEST_F(LogTargetFileTest, SeveralThreadsWriteWholeLinesAcrossRotations) {
    constexpr int cThreads = 4;
    constexpr int cLines = 500;
    mTarget.mPrefixLayout.mOptions = KELogMsgPrefixLayout::LoggerName;
    mTarget.SetMaxFileSizeKB(64); // the lines of all threads fill one and a half files
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    std::vector<std::thread> threads;
    threads.reserve(cThreads);
    for (int thread = 0; thread < cThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int line = 0; line < cLines; ++line) {
                KEOutputLogMessage(mLogger, KEINFO, "thread {} line {} padding padding end", thread, line);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mTarget.StopTarget();
    ASSERT_TRUE(mDirectory.Exists("x.log.bak"));
    std::istringstream all(mDirectory.Read("x.log.bak") + mDirectory.Read("x.log"));
    int nextLine[cThreads] = {};
    int count = 0;
    for (std::string text; std::getline(all, text); ++count) {
        int thread = -1;
        int line = -1;
        char end[4] = {};
        ASSERT_EQ(std::sscanf(text.c_str(), // NOLINT(cert-err34-c): compared below
                              "FileLogger: thread %d line %d padding padding %3s", &thread, &line, end),
                  3)
            << text;
        ASSERT_TRUE(thread >= 0 && thread < cThreads) << text;
        EXPECT_STREQ(end, "end");
        EXPECT_EQ(line, nextLine[thread]++);
    }
    EXPECT_EQ(count, cThreads * cLines);
}

TEST_F(LogTargetFileTest, AWriteFailureGoesToTheSystemLog) {
    mTarget.mPrefixLayout.mOptions = KELogMsgPrefixLayout::LevelName;
    mTarget.EnableAppendToExistingFile(true);
    mTarget.SetLogFileName(mDirectory.FullDisk("full.log").c_str());
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    const std::string text(500, 'a');
    for (int i = 0; i < 1000 && mDiagnostics.Messages().empty(); ++i) {
        Log(text); // the C library's buffer takes the first ones
    }
    const std::vector<std::string> messages = mDiagnostics.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_THAT(messages[0], EndsWith(": PrintfV failed\n"));
    EXPECT_THAT(messages[1],
                StartsWith("module: ERROR: virtual void kestrelon::KELogTargetLogFile::OutputMessage("));
    EXPECT_THAT(messages[1],
                EndsWith("): WriteToLogFileFormatted(INFO: " + text + ") failed, st=0xe0000001\n"));
}

// Global is attached to the target, and failures below the target are logged on Global.
class GlobalOnFileTest : public LogTargetFileTest {
protected:
    GlobalOnFileTest() { EXPECT_EQ(logger::Global.AttachTarget(mTarget), KESTATUS_SUCCESS); }
    void LogGlobal(const char* text) { KEOutputLogMessage(logger::Global, KEINFO, text); }
};

TEST_F(GlobalOnFileTest, AFailingLockDoesNotRecurse) {
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_mutex_lock", EINVAL);
        mTarget.StopTarget(); // outside of a line: the message goes the usual way
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_EQ(mLog.CountContaining(KEERROR, "pthread_mutex_lock failed, err=22"), 1u);
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(GlobalOnFileTest, AFailureBelowALineGoesToTheSystemLogOnce) {
    mTarget.EnableAppendToExistingFile(true);
    mTarget.EnableFlushAfterEachWrite(true);
    mTarget.SetLogFileName(mDirectory.FullDisk("full.log").c_str());
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    LogGlobal("line");
    const std::vector<std::string> messages = mDiagnostics.Messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_THAT(messages[0],
                StartsWith("module: ERROR: virtual void kestrelon::KELogTargetLogFile::OutputMessage("));
    EXPECT_THAT(messages[0], EndsWith("KEStdFileStream::FlushFile(): fflush failed, 28\n"));
    // Other targets get it as usual.
    EXPECT_EQ(mLog.CountContaining(KEERROR, "fflush failed, 28"), 1u);
}

TEST_F(GlobalOnFileTest, AFailingUnlockInsideALineGoesToTheSystemLogOnce) {
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    logger::Global.DetachTarget(mLog); // whose own lock would take the failure
    {
        const SystemCallFault fault("pthread_mutex_unlock", EPERM);
        LogGlobal("line");
        EXPECT_TRUE(fault.IsDelivered());
    }
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith("pthread_mutex_unlock failed, err=1\n"));
    EXPECT_EQ(Written(), "line\n");
}

TEST_F(GlobalOnFileTest, AFailingCloseInTheDestructorReachesNoDeadObject) {
    const std::string full = mDirectory.FullDisk("full.log");
    {
        KELogTargetLogFile target("Short");
        ASSERT_EQ(logger::Global.AttachTarget(target), KESTATUS_SUCCESS);
        target.EnableAppendToExistingFile(true);
        target.SetLogFileName(full.c_str());
        ASSERT_EQ(target.StartTarget(nullptr), KESTATUS_SUCCESS);
        LogGlobal("line");
    }
    EXPECT_EQ(KEGetLogTargetByName("Short", true), nullptr);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEINFO, "line"},
                            IsMessageOf(KEWARN, "KEStdFileStreamCloseFunction", "fclose failed, err=28")));
}

TEST_F(LogTargetFileTest, AFileThatCannotBeOpenedAgainDropsLines) {
    std::filesystem::create_directory(mDirectory / "sub");
    mTarget.SetLogFileName((mDirectory / "sub/x.log").c_str());
    mTarget.SetMaxFileSizeKB(1);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    std::filesystem::remove_all(mDirectory / "sub");
    for (int i = 0; i < 10; ++i) {
        Log(std::string(500, 'a'));
    }
    const std::vector<std::string> messages = mDiagnostics.Messages();
    ASSERT_EQ(messages.size(), 1u); // of the one attempt
    EXPECT_THAT(messages[0],
                EndsWith(": Open file '" + mDirectory / "sub/x.log" + "' failed, st=0xE0010002\n"));
    EXPECT_EQ(mTarget.StartTarget(nullptr), KESTATUS_ALREADY_OPEN); // still counts as started
}

} // namespace
