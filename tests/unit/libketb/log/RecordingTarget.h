// A log target that keeps what it is given, and counts its starts and stops.
#ifndef FLOWLANE_TESTS_RECORDINGTARGET_H
#define FLOWLANE_TESTS_RECORDINGTARGET_H

#include <string>
#include <vector>

#include "log/KELogging.h"

namespace testsupport {

class RecordingTarget : public kestrelon::KELogTarget {
public:
    explicit RecordingTarget(const char* name = "Recording") : KELogTarget(name) {}

    KESTATUS StartTarget(kestrelon::KELogConfiguration* configuration) override {
        ++mStarts;
        mConfiguration = configuration;
        return mStartStatus;
    }
    void StopTarget() override { ++mStops; }
    void OutputMessage(kestrelon::KELogMessage& message, const kestrelon::KELogger& logger,
                       const kestrelon::KELogMsgMetaData& metaData) override {
        message.CreatePrefix(mPrefixLayout, &logger, metaData);
        mLines.push_back(std::string(message.Prefix()) + message.Text());
        mMetaData.push_back(metaData);
    }

    std::vector<std::string> mLines; // prefix and text
    std::vector<kestrelon::KELogMsgMetaData> mMetaData;
    KESTATUS mStartStatus = KESTATUS_SUCCESS;
    int mStarts = 0;
    int mStops = 0;
    kestrelon::KELogConfiguration* mConfiguration = nullptr;
};

// While it lives, the module has this name.
class ModuleName {
public:
    explicit ModuleName(const char* name) : mOldName(kestrelon::KEGetLogModuleName()) {
        kestrelon::KESetLogModuleName(name);
    }
    ~ModuleName() { kestrelon::KESetLogModuleName(mOldName.c_str()); }
    ModuleName(const ModuleName&) = delete;
    ModuleName& operator=(const ModuleName&) = delete;

private:
    std::string mOldName;
};

// Whether message reads "module: level: signature: end", the signature containing function.
inline bool IsDiagnostic(const std::string& message, const std::string& begin, const std::string& function,
                         const std::string& end) {
    return message.starts_with(begin) && message.ends_with(end) &&
           message.substr(begin.size(), message.size() - begin.size() - end.size()).find(function) !=
               std::string::npos;
}

} // namespace testsupport

#endif
