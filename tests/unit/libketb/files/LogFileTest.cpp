// The log file: its backup, its limit, appending, and what goes wrong.
#include "files/KELogFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "AllocationFault.h"
#include "LogExpect.h"
#include "OperatorNew.h"
#include "SystemCallFaults.h"
#include "TemporaryFolder.h"
#include "log/KELogging.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LogFileTest : public testing::Test {
protected:
    LogFileTest() { KESetLogModuleName("module"); }
    ~LogFileTest() override { KESetLogModuleName(""); }

    KESTATUS Open(const std::string& name) { return mFile.OpenLogFile((mDirectory / name).c_str()); }
    KESTATUS Write(const std::string& text) { return mFile.WriteToLogFile(text.data(), text.size()); }

    LogCapture mLog;
    DebugOutputCapture mDiagnostics;
    TemporaryFolder mDirectory;
    KELogFile mFile;
};

TEST_F(LogFileTest, HasItsDefaults) {
    EXPECT_EQ(KELogFile::DefaultFileSizeLimitKB, 20480u);
    EXPECT_EQ(mFile.mMaxFileSize, 20971520u);
    EXPECT_FALSE(mFile.mAppendToExistingFile);
    EXPECT_FALSE(mFile.mFlushAfterEachWrite);
    EXPECT_TRUE(mFile.mPermitSharing);
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    EXPECT_EQ(mFile.FilePathAndName(), "");
}

TEST_F(LogFileTest, IsClosedWithoutANameWhenMemoryIsShort) {
    FLOWLANE_NEEDS_OPERATOR_NEW();
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    const std::string longer = mDirectory / std::string(200, 'y');
    KESTATUS st = KESTATUS_SUCCESS;
    {
        const AllocationFault fault;
        st = mFile.OpenLogFile(longer.c_str());
    }
    EXPECT_EQ(st, KESTATUS_NO_MEMORY);
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_EQ(mFile.FilePathAndName(), "");
    EXPECT_EQ(Open("x.log"), KESTATUS_SUCCESS);
}

TEST_F(LogFileTest, RefusesToOpenWithoutAName) {
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.OpenLogFile(nullptr), KESTATUS{0xE0000041});
    EXPECT_EQ(mFile.OpenLogFile(""), KESTATUS{0xE0000041});
    ASSERT_EQ(mDiagnostics.Messages().size(), 2u);
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::StartsWith("module: ERROR: KESTATUS "
                                                                "kestrelon::KELogFile::OpenLogFile("));
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith("): filePathAndName is null\n"));
    EXPECT_THAT(mDiagnostics.Messages()[1], testing::EndsWith("): filePathAndName is empty\n"));
    EXPECT_TRUE(mFile.IsOpen()); // nothing was changed
}

TEST_F(LogFileTest, BeginsANewFileAndKeepsTheOldOneAsBackup) {
    mDirectory.Write("x.log", "old\n");
    mDirectory.Write("x.log.bak", "older\n");
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.FilePathAndName(), mDirectory / "x.log");
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    EXPECT_EQ(mDirectory.Read("x.log"), "");
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "old\n");
    ASSERT_EQ(Write("new\n"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 4u);
    mFile.CloseLogFile();
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_EQ(mFile.FilePathAndName(), "");
    EXPECT_EQ(mDirectory.Read("x.log"), "new\n");
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(LogFileTest, AnOldBackupGoesEvenWithoutAFileToTakeItsPlace) {
    mDirectory.Write("x.log.bak", "older\n");
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
}

TEST_F(LogFileTest, AppendsWithoutMakingABackup) {
    mDirectory.Write("x.log", "old\n");
    mDirectory.Write("x.log.bak", "older\n");
    mFile.mAppendToExistingFile = true;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 4u); // of the existing file
    ASSERT_EQ(Write("new\n"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 8u);
    mFile.CloseLogFile();
    EXPECT_EQ(mDirectory.Read("x.log"), "old\nnew\n");
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "older\n");
}

TEST_F(LogFileTest, AnAppendedFileMayBeNew) {
    mFile.mAppendToExistingFile = true;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
}

TEST_F(LogFileTest, BeginsANewFileWhenTheLimitIsReached) {
    mFile.mMaxFileSize = 10;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    ASSERT_EQ(Write("123456789"), KESTATUS_SUCCESS);
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    ASSERT_EQ(Write("0"), KESTATUS_SUCCESS); // exactly at the limit
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "1234567890");
    EXPECT_EQ(mDirectory.Read("x.log"), "");
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    EXPECT_TRUE(mFile.IsOpen());

    ASSERT_EQ(Write("a line far beyond the limit"), KESTATUS_SUCCESS); // whole, whatever its length
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "a line far beyond the limit");
    ASSERT_EQ(Write("next"), KESTATUS_SUCCESS);
    mFile.CloseLogFile();
    EXPECT_EQ(mDirectory.Read("x.log"), "next");
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "a line far beyond the limit");
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(LogFileTest, FormattedWritesCountTheirBytes) {
    mFile.mMaxFileSize = 12;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    ASSERT_EQ(mFile.WriteToLogFileFormatted("%s%s\n", "prefix ", "text"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "prefix text\n");
    ASSERT_EQ(mFile.WriteToLogFileFormatted("%d", 7), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 1u);
}

TEST_F(LogFileTest, AnAppendedFileThatWasRenamedAwayStartsEmpty) {
    mDirectory.Write("x.log", "0123456789");
    mFile.mAppendToExistingFile = true;
    mFile.mMaxFileSize = 10;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log"), "0123456789"); // full, but only a write turns it over
    ASSERT_EQ(Write("first\n"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "0123456789first\n");
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    ASSERT_EQ(Write("second\n"), KESTATUS_SUCCESS);
    mFile.CloseLogFile();
    EXPECT_EQ(mDirectory.Read("x.log"), "second\n");
}

TEST_F(LogFileTest, AZeroLimitIsNone) {
    mFile.mMaxFileSize = 0;
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(Write(std::string(1000, 'x')), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(mFile.CurrentFileSize(), 100000u);
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
}

TEST_F(LogFileTest, FlushesAfterEachWriteWhenAsked) {
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    ASSERT_EQ(Write("kept back "), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log"), "");
    mFile.mFlushAfterEachWrite = true;
    ASSERT_EQ(Write("now"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log"), "kept back now");
    ASSERT_EQ(mFile.WriteToLogFileFormatted("%s", " this"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log"), "kept back now this");
}

TEST_F(LogFileTest, OpeningClosesTheOpenFile) {
    ASSERT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    ASSERT_EQ(Write("text"), KESTATUS_SUCCESS);
    ASSERT_EQ(Open("y.log"), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log"), "text");
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    EXPECT_EQ(mFile.FilePathAndName(), mDirectory / "y.log");
}

TEST_F(LogFileTest, AFileThatCannotBeOpenedIsReported) {
    EXPECT_EQ(Open("missing/x.log"), KESTATUS{0xE0010002});
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0],
                testing::StartsWith("module: ERROR: KESTATUS kestrelon::KELogFile::"));
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith(": Open file '" + mDirectory / "missing/x.log" +
                                                              "' failed, st=0xE0010002\n"));
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_EQ(mFile.FilePathAndName(), "");
}

TEST_F(LogFileTest, AFileThatCannotBeOpenedAgainIsReportedAndClosed) {
    std::filesystem::create_directory(mDirectory / "sub");
    mFile.mMaxFileSize = 5;
    ASSERT_EQ(Open("sub/x.log"), KESTATUS_SUCCESS);
    std::filesystem::remove_all(mDirectory / "sub");
    EXPECT_EQ(Write("12345"), KESTATUS_SUCCESS); // written, though nobody will find it
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith("failed, st=0xE0010002\n"));
    EXPECT_FALSE(mFile.IsOpen());
    EXPECT_EQ(mFile.FilePathAndName(), "");
}

TEST_F(LogFileTest, AShortWriteIsReported) {
    mFile.mAppendToExistingFile = true;
    ASSERT_EQ(mFile.OpenLogFile(mDirectory.FullDisk("full.log").c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(Write(std::string(1 << 20, 'x')), KESTATUS{0xE0000001});
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0],
                testing::StartsWith("module: ERROR: KESTATUS kestrelon::KELogFile::WriteToLogFile("));
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith("): WriteToFile failed\n"));
}

TEST_F(LogFileTest, AFailingFormattedWriteIsReported) {
    mFile.mAppendToExistingFile = true;
    ASSERT_EQ(mFile.OpenLogFile(mDirectory.FullDisk("full.log").c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.WriteToLogFileFormatted("%s", std::string(1 << 20, 'x').c_str()), KESTATUS{0xE0000001});
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(
        mDiagnostics.Messages()[0],
        testing::StartsWith("module: ERROR: KESTATUS kestrelon::KELogFile::WriteToLogFileFormatted("));
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith("): PrintfV failed\n"));
}

TEST_F(LogFileTest, WritingToAClosedFileFails) {
    EXPECT_EQ(Write("x"), KESTATUS_FAILED);
    EXPECT_EQ(mFile.WriteToLogFileFormatted("x"), KESTATUS_FAILED);
    EXPECT_EQ(mDiagnostics.Messages().size(), 2u);
}

TEST_F(LogFileTest, AFailingFlushIsLoggedAndTheWriteCounts) {
    mFile.mAppendToExistingFile = true;
    mFile.mFlushAfterEachWrite = true;
    ASSERT_EQ(mFile.OpenLogFile(mDirectory.FullDisk("full.log").c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(Write("x"), KESTATUS_SUCCESS);
    EXPECT_EQ(mFile.CurrentFileSize(), 1u);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEStdFileStream::FlushFile", "fflush failed, 28")));
}

TEST_F(LogFileTest, ASizeThatCannotBeSoughtIsZero) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    mFile.mAppendToExistingFile = true;
    EXPECT_EQ(mFile.OpenLogFile(("/proc/self/fd/" + std::to_string(ends[1])).c_str()), KESTATUS_SUCCESS);
    EXPECT_TRUE(mFile.IsOpen());
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith(": SeekToEnd failed (0xe001001d)\n"));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LogFileTest, ASizeThatCannotBeToldIsZero) {
    mDirectory.Write("x.log", "old\n");
    mFile.mAppendToExistingFile = true;
    const SystemCallFault fault("ftell", EOVERFLOW);
    EXPECT_EQ(Open("x.log"), KESTATUS_SUCCESS);
    EXPECT_TRUE(mFile.IsOpen());
    EXPECT_EQ(mFile.CurrentFileSize(), 0u);
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], testing::EndsWith(": Tell failed (0xe001004b)\n"));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEStdFileStream::Tell", "ftell failed, 75")));
}

} // namespace
