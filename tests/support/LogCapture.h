// Captures what the code under test reports: the log messages of one logger, or the diagnostics of the
// toolbox.
#ifndef FLOWLANE_TESTS_LOGCAPTURE_H
#define FLOWLANE_TESTS_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "log/KELogging.h"

namespace testsupport {

struct CapturedMessage {
    kestrelon::KELogLevel level;
    std::string text; // with its headers, without the prefix

    friend bool operator==(const CapturedMessage&, const CapturedMessage&) = default;
};
std::ostream& operator<<(std::ostream& stream, const CapturedMessage& message);

// While it lives, it keeps the messages of one logger, by default those of all levels. Safe from any thread.
class LogCapture : public kestrelon::KELogTarget {
public:
    explicit LogCapture(kestrelon::KELogger& logger = kestrelon::logger::Global,
                        kestrelon::KELogLevel level = kestrelon::KEMAXLEVEL);
    ~LogCapture() override;

    void OutputMessage(kestrelon::KELogMessage& message, const kestrelon::KELogger& logger,
                       const kestrelon::KELogMsgMetaData& metaData) override;

    std::vector<CapturedMessage> Messages() const;
    // Without the levels.
    std::vector<std::string> Texts() const;
    // How many messages have this level and exactly this text, or contain it.
    std::size_t Count(kestrelon::KELogLevel level, const std::string& text) const;
    std::size_t CountContaining(kestrelon::KELogLevel level, const std::string& part) const;
    void Clear();

private:
    kestrelon::KELogger& mLogger;
    kestrelon::KELogLevel mOldLevel;
    mutable std::mutex mMutex;
    std::vector<CapturedMessage> mMessages;
};

// While it lives, it keeps the diagnostics of the toolbox, which do not go to the system log then. One object
// at a time.
class DebugOutputCapture {
public:
    DebugOutputCapture();
    ~DebugOutputCapture();
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    std::vector<std::string> Messages() const;
    void Clear();
};

} // namespace testsupport

#endif
