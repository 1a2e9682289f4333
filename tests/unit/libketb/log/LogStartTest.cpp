// Starting and stopping the logging facility, its configuration, the module name.
#include <gtest/gtest.h>

#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "log/KELogging.h"
#include "log/RecordingTarget.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::IsDiagnostic;
using testsupport::ModuleName;
using testsupport::RecordingTarget;

namespace {

class LogStartTest : public testing::Test {
protected:
    ~LogStartTest() override { KEStopLogging(); }

    ModuleName mModule{"mod"};
    DebugOutputCapture mOutput;
    KELogger mFirst{"first", KEINFO};
    KELogger mSecond{"second", KEINFO};
    RecordingTarget mOlder{"older"};
    RecordingTarget mNewer{"newer"};
};

// Knows the level of some loggers; for others it leaves a wrong value behind and fails.
class LevelConfiguration : public KELogConfiguration {
public:
    KESTATUS ReadLogLevel(const char* loggerName, KELogLevel& level) override {
        mAsked.emplace_back(loggerName);
        const auto found = mLevels.find(loggerName);
        level = found != mLevels.end() ? found->second : KEFATAL;
        return found != mLevels.end() ? KESTATUS_SUCCESS : KESTATUS_NOT_FOUND;
    }

    std::map<std::string, KELogLevel> mLevels;
    std::vector<std::string> mAsked;
};

TEST_F(LogStartTest, StartsEveryTargetOnce) {
    KELogConfiguration configuration;
    EXPECT_EQ(KEStartLogging(&configuration), KESTATUS_SUCCESS);
    EXPECT_EQ(mOlder.mStarts, 1);
    EXPECT_EQ(mNewer.mStarts, 1);
    EXPECT_EQ(mOlder.mConfiguration, &configuration);
    EXPECT_EQ(KEStartLogging(&configuration), KESTATUS_SUCCESS);
    EXPECT_EQ(mOlder.mStarts, 1) << "a second start does nothing";
    EXPECT_TRUE(mOutput.Messages().empty());
    EXPECT_EQ(mFirst.Level(), KEINFO) << "the base configuration knows nothing";
}

TEST_F(LogStartTest, WithoutAConfiguration) {
    EXPECT_EQ(KEStartLogging(nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(mOlder.mStarts, 1);
    EXPECT_EQ(mOlder.mConfiguration, nullptr);
    EXPECT_EQ(mFirst.Level(), KEINFO);
}

TEST_F(LogStartTest, LoggersTakeTheLevelThatTheConfigurationKnows) {
    LevelConfiguration configuration;
    configuration.mLevels["second"] = KETRACE;
    const KELogLevel globalLevel = logger::Global.Level();
    EXPECT_EQ(KEStartLogging(&configuration), KESTATUS_SUCCESS);
    EXPECT_EQ(mFirst.Level(), KEINFO);
    EXPECT_EQ(mSecond.Level(), KETRACE);
    EXPECT_EQ(logger::Global.Level(), globalLevel);
    ASSERT_GE(configuration.mAsked.size(), 3u);
    EXPECT_EQ(configuration.mAsked[0], "second");
    EXPECT_EQ(configuration.mAsked[1], "first");
}

TEST_F(LogStartTest, TheFirstFailureIsKeptAndTheOthersAreStarted) {
    LevelConfiguration configuration;
    configuration.mLevels["first"] = KEDUMP;
    mNewer.mStartStatus = 0xE000ABCD; // the newer target is first on the list
    mOlder.mStartStatus = KESTATUS_NO_MEMORY;
    EXPECT_EQ(KEStartLogging(&configuration), 0xE000ABCDu);
    EXPECT_EQ(mOlder.mStarts, 1);
    EXPECT_EQ(mNewer.mStarts, 1);
    EXPECT_EQ(mFirst.Level(), KEDUMP) << "the loggers are configured all the same";
    const auto messages = mOutput.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_TRUE(IsDiagnostic(messages[0], "mod: ERROR: ", "KEStartLogTargets(",
                             ": StartTarget 'newer' failed, st=0xe000abcd\n"))
        << messages[0];
    EXPECT_TRUE(IsDiagnostic(messages[1], "mod: ERROR: ", "KEStartLogTargets(",
                             ": StartTarget 'older' failed, st=0xe0000020\n"))
        << messages[1];
    EXPECT_EQ(KEStartLogging(&configuration), KESTATUS_SUCCESS) << "logging counts as started";
    EXPECT_EQ(mOlder.mStarts, 1);
}

TEST_F(LogStartTest, ATargetThatFailedToStartStillGetsMessages) {
    mOlder.mStartStatus = KESTATUS_FAILED;
    EXPECT_EQ(mFirst.AttachTarget(mOlder), KESTATUS_SUCCESS);
    EXPECT_EQ(KEStartLogging(nullptr), KESTATUS_FAILED);
    KEOutputLogMessage(mFirst, KEINFO, "x");
    EXPECT_EQ(mOlder.mLines, std::vector<std::string>{"x"});
}

TEST_F(LogStartTest, StopsWhatWasStarted) {
    KEStopLogging();
    EXPECT_EQ(mOlder.mStops, 0) << "nothing was started";
    EXPECT_EQ(KEStartLogging(nullptr), KESTATUS_SUCCESS);
    KEStopLogging();
    EXPECT_EQ(mOlder.mStops, 1);
    EXPECT_EQ(mNewer.mStops, 1);
    KEStopLogging();
    EXPECT_EQ(mOlder.mStops, 1);
    EXPECT_EQ(KEStartLogging(nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(mOlder.mStarts, 2) << "and again";
}

TEST_F(LogStartTest, TargetsAloneCanBeStarted) {
    mOlder.mStartStatus = KESTATUS_FAILED;
    EXPECT_EQ(KEStartLogTargets(nullptr), KESTATUS_FAILED);
    EXPECT_EQ(mNewer.mStarts, 1);
    KEStopLogging();
    EXPECT_EQ(mNewer.mStops, 0) << "logging as a whole was not started";
}

// Emptying the lists cannot be undone, so a child process does it.
[[noreturn]] void StartWithEmptyLists() {
    const DebugOutputCapture output;
    KELogTarget::UnchainAllObjects();
    KELogger::UnchainAllObjects();
    EXPECT_EQ(KELogTarget::First(), nullptr);
    EXPECT_EQ(KELogger::First(), nullptr);
    EXPECT_EQ(KEStartLogging(nullptr), KESTATUS_SUCCESS);
    const auto messages = output.Messages();
    EXPECT_EQ(messages.size(), 2u);
    if (messages.size() == 2) {
        EXPECT_TRUE(
            IsDiagnostic(messages[0], "mod: WARNING: ", "KEStartLogging(", ": No log targets registered\n"))
            << messages[0];
        EXPECT_TRUE(
            IsDiagnostic(messages[1], "mod: WARNING: ", "KEStartLogging(", ": No loggers registered\n"))
            << messages[1];
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(LogStartTest, NothingRegisteredIsReported) {
    EXPECT_EXIT(StartWithEmptyLists(), testing::ExitedWithCode(0), "");
}

TEST(LogConfigurationTest, TheBaseKnowsNothing) {
    KELogConfiguration configuration;
    KELogLevel level = KETRACE;
    int number = 5;
    std::string text = "old";
    EXPECT_EQ(configuration.ReadLogLevel("l", level), 0xE0000034u);
    EXPECT_EQ(configuration.ReadLogTargetParameter("t", "p", number), 0xE0000034u);
    EXPECT_EQ(configuration.ReadLogTargetParameter("t", "p", text), 0xE0000034u);
    EXPECT_EQ(configuration.GetLogTargetContextInfo(), nullptr);
    EXPECT_EQ(level, KETRACE);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(text, "old");
}

TEST(LogTargetBaseTest, DoesNothing) {
    KELogTarget target("base");
    EXPECT_EQ(target.StartTarget(nullptr), KESTATUS_SUCCESS);
    target.StopTarget();
    KELogger logger("l", KEINFO);
    EXPECT_EQ(logger.AttachTarget(target), KESTATUS_SUCCESS);
    KEOutputLogMessage(logger, KEINFO, "dropped");
}

TEST(LogModuleNameTest, NarrowAndWide) {
    const ModuleName old("before");
    KESetLogModuleName("1234567890123456789012345678901x");
    EXPECT_STREQ(KEGetLogModuleName(), "1234567890123456789012345678901");
    KESetLogModuleName(L"wide name");
    EXPECT_STREQ(KEGetLogModuleName(), "wide name");
    KESetLogModuleName(L"1234567890123456789012345678901x");
    EXPECT_STREQ(KEGetLogModuleName(), "1234567890123456789012345678901");
    KESetLogModuleName((std::wstring(30, L'x') + L"\u00e4").c_str());
    EXPECT_EQ(KEGetLogModuleName(), std::string(30, 'x')) << "no character is divided";
    KESetLogModuleName((std::wstring(29, L'x') + L"\u00e4").c_str());
    EXPECT_EQ(KEGetLogModuleName(), std::string(29, 'x') + "\xc3\xa4");
    const wchar_t invalid[] = {L'a', static_cast<wchar_t>(0x110000), 0xE4, L'b', 0};
    KESetLogModuleName(invalid);
    EXPECT_STREQ(KEGetLogModuleName(), "a??b") << "a name all the same";
    KESetLogModuleName((invalid + std::wstring(40, L'x')).c_str());
    EXPECT_EQ(KEGetLogModuleName(), "a??b" + std::string(27, 'x'));
    KESetLogModuleName(static_cast<const wchar_t*>(nullptr));
    EXPECT_STREQ(KEGetLogModuleName(), "");
}

} // namespace
