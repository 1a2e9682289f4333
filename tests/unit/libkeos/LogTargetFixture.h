// For the tests of the log file target: a target in a directory of its own, a logger attached to it and a
// configuration with settings in maps.
#ifndef FLOWLANE_TESTS_LOGTARGETFIXTURE_H
#define FLOWLANE_TESTS_LOGTARGETFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "KELogTargetLogFile.h"
#include "LogExpect.h"
#include "TemporaryFolder.h"
#include "log/KELogging.h"

namespace testsupport {

class MapConfiguration : public kestrelon::KELogConfiguration {
public:
    using KELogConfiguration::ReadLogLevel;

    KESTATUS ReadLogTargetParameter(const char* targetName, const char* parameterName, int& value) override {
        const auto found = mNumbers.find(std::string(targetName) + "." + parameterName);
        if (found == mNumbers.end()) {
            return KESTATUS_NOT_AVAILABLE;
        }
        value = found->second;
        return KESTATUS_SUCCESS;
    }
    KESTATUS ReadLogTargetParameter(const char* targetName, const char* parameterName,
                                    std::string& value) override {
        const auto found = mTexts.find(std::string(targetName) + "." + parameterName);
        if (found == mTexts.end()) {
            return KESTATUS_NOT_AVAILABLE;
        }
        value = found->second;
        return KESTATUS_SUCCESS;
    }

    std::map<std::string, int> mNumbers; // by "target.key"
    std::map<std::string, std::string> mTexts;
};

class LogTargetFileTest : public testing::Test {
protected:
    LogTargetFileTest() {
        kestrelon::KESetLogModuleName("module");
        EXPECT_EQ(mLogger.AttachTarget(mTarget), KESTATUS_SUCCESS);
        mTarget.SetLogFileName((mDirectory / "x.log").c_str());
    }
    ~LogTargetFileTest() override { kestrelon::KESetLogModuleName(""); }

    void Log(const std::string& text) const {
        kestrelon::KEOutputLogMessage(mLogger, kestrelon::KEINFO, "{}", text);
    }
    // The contents of the file when it is closed.
    std::string Written(const std::string& name = "x.log") {
        mTarget.StopTarget();
        return mDirectory.Read(name);
    }

    LogCapture mLog;
    DebugOutputCapture mDiagnostics;
    TemporaryFolder mDirectory;
    kestrelon::KELogger mLogger{"FileLogger", kestrelon::KEINFO};
    kestrelon::KELogTargetLogFile mTarget{"File"};
};

} // namespace testsupport

#endif
