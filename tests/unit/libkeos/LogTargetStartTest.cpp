// Starting the log file target: its settings, the expansion of its file's name, and what goes wrong.
#include <cstdlib>

#include "LogTargetFixture.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* cImpl = "KESTATUS kestrelon::KELogTargetLogFile::";

TEST_F(LogTargetFileTest, AStartMakesABackupOfAnExistingFile) {
    mDirectory.Write("x.log", "old\n");
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "old\n");
    Log("new");
    EXPECT_EQ(Written(), "new\n");
}

TEST_F(LogTargetFileTest, AppendModeContinuesAnExistingFile) {
    mDirectory.Write("x.log", "old\n");
    mTarget.EnableAppendToExistingFile(true);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("new");
    EXPECT_EQ(Written(), "old\nnew\n");
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    mTarget.EnableAppendToExistingFile(false);
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "old\nnew\n");
}

TEST_F(LogTargetFileTest, ASecondStartChangesNothing) {
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("first");
    MapConfiguration configuration;
    configuration.mTexts["File.LogFile"] = mDirectory / "other.log";
    configuration.mNumbers["File.FlushAfterWrite"] = 1;
    EXPECT_EQ(mTarget.StartTarget(&configuration), KESTATUS{0xE0000085});
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], StartsWith(std::string("module: WARNING: ") + cImpl));
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith("): already started\n"));
    Log("second");
    EXPECT_EQ(mDirectory.Read("x.log"), ""); // not flushed
    EXPECT_EQ(Written(), "first\nsecond\n");
    EXPECT_FALSE(mDirectory.Exists("other.log"));
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
}

TEST_F(LogTargetFileTest, StartsAnewAfterAStop) {
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("first");
    mTarget.StopTarget();
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("second");
    EXPECT_EQ(Written(), "second\n");
    EXPECT_EQ(mDirectory.Read("x.log.bak"), "first\n");
}

TEST_F(LogTargetFileTest, TheFacilityStartsAndStopsIt) {
    ASSERT_EQ(KEStartLogging(nullptr), KESTATUS_SUCCESS);
    Log("line");
    KEStopLogging();
    EXPECT_EQ(mDirectory.Read("x.log"), "line\n");
}

struct NameCase {
    const char* configured; // $DIR is the test's directory
    const char* opened;
};

class LogFileNameTest : public LogTargetFileTest, public testing::WithParamInterface<NameCase> {};

TEST_P(LogFileNameTest, IsTrimmedAndExpanded) {
    setenv("DIR", mDirectory.Path().c_str(), 1);
    setenv("HOME", mDirectory.Path().c_str(), 1);
    MapConfiguration configuration;
    configuration.mTexts["File.LogFile"] = GetParam().configured;
    configuration.mTexts["Other.LogFile"] = "/not/for/us";
    ASSERT_EQ(mTarget.StartTarget(&configuration), KESTATUS_SUCCESS);
    Log("line");
    EXPECT_EQ(Written(GetParam().opened), "line\n");
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Names, LogFileNameTest,
                         testing::Values(NameCase{"$DIR/a.log", "a.log"}, NameCase{"~/b.log", "b.log"},
                                         NameCase{" \t ${DIR}/c.log \t ", "c.log"},
                                         NameCase{"\r\n\v\f$DIR/g.log\r\n\v\f", "g.log"},
                                         NameCase{"\"$DIR/d e.log\"", "d e.log"},
                                         NameCase{"$DIR/$(echo f).log", "f.log"}));

TEST_F(LogTargetFileTest, TheNameSetByTheProgramIsExpandedToo) {
    setenv("DIR", mDirectory.Path().c_str(), 1);
    mTarget.SetLogFileName("$DIR/y.log");
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    Log("line");
    EXPECT_EQ(Written("y.log"), "line\n");
}

TEST_F(LogTargetFileTest, OfSeveralWordsTheFirstIsUsed) {
    mTarget.SetLogFileName((mDirectory / "one.log" + " two three").c_str());
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], StartsWith(std::string("module: WARNING: ") + cImpl));
    EXPECT_THAT(mDiagnostics.Messages()[0],
                EndsWith("): unexpected number of file names 3, use first name\n"));
    Log("line");
    EXPECT_EQ(Written("one.log"), "line\n");
}

TEST_F(LogTargetFileTest, ANameThatCannotBeExpandedIsReported) {
    mTarget.SetLogFileName("\"open");
    EXPECT_EQ(mTarget.StartTarget(nullptr), KESTATUS{0xE0000001});
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], StartsWith(std::string("module: ERROR: ") + cImpl));
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith("): ExpandString('\"open') failed, st=0xE0000001\n"));
    EXPECT_EQ(mLog.CountContaining(KEERROR, "wordexp failed, ret="), 1u);
    // Not started, so another name may be tried.
    mTarget.SetLogFileName((mDirectory / "y.log").c_str());
    EXPECT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
}

TEST_F(LogTargetFileTest, ANameThatExpandsToNothingIsReported) {
    mTarget.SetLogFileName("$NOT_SET_ANYWHERE");
    EXPECT_EQ(mTarget.StartTarget(nullptr), KESTATUS{0xE0000001});
    ASSERT_EQ(mDiagnostics.Messages().size(), 1u);
    EXPECT_THAT(mDiagnostics.Messages()[0], StartsWith(std::string("module: ERROR: ") + cImpl));
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith("): no expanded strings for '$NOT_SET_ANYWHERE'\n"));
}

class NoLogFileNameTest : public LogTargetFileTest, public testing::WithParamInterface<const char*> {};

TEST_P(NoLogFileNameTest, DoesNotStart) {
    mTarget.SetLogFileName(nullptr);
    MapConfiguration configuration;
    configuration.mTexts["File.LogFile"] = GetParam();
    EXPECT_EQ(mTarget.StartTarget(&configuration), KESTATUS{0xE0000041});
    ASSERT_EQ(mDiagnostics.Messages().size(), 2u);
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith("): filePathAndName is empty\n"));
    EXPECT_THAT(mDiagnostics.Messages()[1], EndsWith("): OpenLogFile() failed, st=0xE0000041\n"));
    Log("dropped");
}

INSTANTIATE_TEST_SUITE_P(Names, NoLogFileNameTest, testing::Values("", "   ", " \t"));

TEST_F(LogTargetFileTest, AFileThatCannotBeOpenedIsReported) {
    const std::string name = mDirectory / "missing/x.log";
    mTarget.SetLogFileName(name.c_str());
    EXPECT_EQ(mTarget.StartTarget(nullptr), KESTATUS{0xE0010002});
    ASSERT_EQ(mDiagnostics.Messages().size(), 2u);
    EXPECT_THAT(mDiagnostics.Messages()[0], EndsWith(": Open file '" + name + "' failed, st=0xE0010002\n"));
    EXPECT_THAT(mDiagnostics.Messages()[1], StartsWith(std::string("module: ERROR: ") + cImpl));
    EXPECT_THAT(mDiagnostics.Messages()[1], EndsWith("): OpenLogFile(" + name + ") failed, st=0xE0010002\n"));
    Log("dropped");
    EXPECT_EQ(mDiagnostics.Messages().size(), 2u);
}

struct NumberCase {
    const char* key;
    int value;
    bool isEffective; // whether what the key asks for happens
};

class AppendModeTest : public LogTargetFileTest, public testing::WithParamInterface<NumberCase> {};

TEST_P(AppendModeTest, IsOnForEveryNumberButZero) {
    mDirectory.Write("x.log", "old\n");
    mTarget.EnableAppendToExistingFile(!GetParam().isEffective); // the key decides
    MapConfiguration configuration;
    configuration.mNumbers["File.AppendMode"] = GetParam().value;
    ASSERT_EQ(mTarget.StartTarget(&configuration), KESTATUS_SUCCESS);
    EXPECT_EQ(Written(), GetParam().isEffective ? "old\n" : "");
}

INSTANTIATE_TEST_SUITE_P(Values, AppendModeTest,
                         testing::Values(NumberCase{"AppendMode", 0, false},
                                         NumberCase{"AppendMode", 1, true},
                                         NumberCase{"AppendMode", -1, true}));

class FlushAfterWriteTest : public LogTargetFileTest, public testing::WithParamInterface<NumberCase> {};

TEST_P(FlushAfterWriteTest, IsOnForEveryNumberButZero) {
    mTarget.EnableFlushAfterEachWrite(!GetParam().isEffective);
    MapConfiguration configuration;
    configuration.mNumbers["File.FlushAfterWrite"] = GetParam().value;
    ASSERT_EQ(mTarget.StartTarget(&configuration), KESTATUS_SUCCESS);
    Log("line");
    EXPECT_EQ(mDirectory.Read("x.log"), GetParam().isEffective ? "line\n" : "");
}

INSTANTIATE_TEST_SUITE_P(Values, FlushAfterWriteTest,
                         testing::Values(NumberCase{"FlushAfterWrite", 0, false},
                                         NumberCase{"FlushAfterWrite", 2, true},
                                         NumberCase{"FlushAfterWrite", -1, true}));

struct LimitCase {
    int value;
    unsigned filesKB; // the limit that is in force after a start with 3 KiB set before; 0: none
};

class MaxFileSizeTest : public LogTargetFileTest, public testing::WithParamInterface<LimitCase> {};

TEST_P(MaxFileSizeTest, IsInKiB) {
    mTarget.SetMaxFileSizeKB(3);
    MapConfiguration configuration;
    configuration.mNumbers["File.MaxFileSizeKB"] = GetParam().value;
    ASSERT_EQ(mTarget.StartTarget(&configuration), KESTATUS_SUCCESS);
    unsigned written = 0;
    while (written < 20 * 1024 && !mDirectory.Exists("x.log.bak")) {
        Log(std::string(255, 'a'));
        written += 256;
    }
    EXPECT_EQ(mDirectory.Exists("x.log.bak"), GetParam().filesKB != 0);
    if (GetParam().filesKB != 0) {
        EXPECT_EQ(written, GetParam().filesKB * 1024);
    }
}

INSTANTIATE_TEST_SUITE_P(Values, MaxFileSizeTest,
                         testing::Values(LimitCase{0, 0}, LimitCase{1, 1}, LimitCase{7, 7}, LimitCase{-1, 3},
                                         LimitCase{INT32_MIN, 3}, LimitCase{INT32_MAX, 0}));

TEST_F(LogTargetFileTest, KeysThatAreNotAvailableLeaveTheSettings) {
    mDirectory.Write("x.log", "old\n");
    mTarget.EnableAppendToExistingFile(true);
    mTarget.EnableFlushAfterEachWrite(true);
    MapConfiguration empty;
    ASSERT_EQ(mTarget.StartTarget(&empty), KESTATUS_SUCCESS);
    Log("new");
    EXPECT_EQ(mDirectory.Read("x.log"), "old\nnew\n");
}

TEST_F(LogTargetFileTest, TheLimitIs20MiBUnlessSet) {
    constexpr int cLines = 20971520 / 512;
    ASSERT_EQ(mTarget.StartTarget(nullptr), KESTATUS_SUCCESS);
    const std::string line(511, 'a');
    for (int i = 0; i < cLines - 1; ++i) {
        Log(line);
    }
    EXPECT_FALSE(mDirectory.Exists("x.log.bak"));
    Log(line);
    EXPECT_TRUE(mDirectory.Exists("x.log.bak"));
}

} // namespace
