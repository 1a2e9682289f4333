// Captures what the code under test reports: log messages of one logger, or the toolbox's diagnostics.
#ifndef FLOWLANE_TESTS_LOGCAPTURE_H
#define FLOWLANE_TESTS_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "log/KELogging.h"

namespace testsupport {

struct CapturedMessage {
    kestrelon::KELogLevel level;
    std::string text; // headers included, prefix not

    friend bool operator==(const CapturedMessage&, const CapturedMessage&) = default;
};
std::ostream& operator<<(std::ostream& stream, const CapturedMessage& message);

// While it lives, the messages of one logger are kept, of all levels unless told otherwise. From any
// thread.
class LogCapture : public kestrelon::KELogTarget {
public:
    explicit LogCapture(kestrelon::KELogger& logger = kestrelon::logger::Global,
                        kestrelon::KELogLevel level = kestrelon::KEMAXLEVEL);
    ~LogCapture() override;

    void OutputMessage(kestrelon::KELogMessage& message, const kestrelon::KELogger& logger,
                       const kestrelon::KELogMsgMetaData& metaData) override;

    std::vector<CapturedMessage> Messages() const;
    // The messages' texts alone.
    std::vector<std::string> Texts() const;
    // How many messages have exactly this level and text, or contain the text.
    std::size_t Count(kestrelon::KELogLevel level, const std::string& text) const;
    std::size_t CountContaining(kestrelon::KELogLevel level, const std::string& part) const;
    void Clear();

private:
    kestrelon::KELogger& mLogger;
    kestrelon::KELogLevel mOldLevel;
    mutable std::mutex mMutex;
    std::vector<CapturedMessage> mMessages;
};

// While it lives, the toolbox's diagnostics are kept instead of going to the system log. One at a time.
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
