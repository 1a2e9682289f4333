#include "LogCapture.h"

#include <algorithm>
#include <ostream>

#include "kert_debug.h"

namespace testsupport {

using namespace kestrelon;

std::ostream& operator<<(std::ostream& stream, const CapturedMessage& message) {
    return stream << "{level " << static_cast<int>(message.level) << ", \"" << message.text << "\"}";
}

LogCapture::LogCapture(KELogger& logger, KELogLevel level)
    : KELogTarget("LogCapture"), mLogger(logger), mOldLevel(logger.Level()) {
    mLogger.SetLevel(level);
    static_cast<void>(mLogger.AttachTarget(*this)); // without a free slot no line comes, which the test sees
}

LogCapture::~LogCapture() {
    mLogger.DetachTarget(*this);
    mLogger.SetLevel(mOldLevel);
}

void LogCapture::OutputMessage(KELogMessage& message, const KELogger&, const KELogMsgMetaData& metaData) {
    const std::lock_guard lock(mMutex);
    mMessages.push_back({metaData.mMsgLevel, message.Text()});
}

std::vector<CapturedMessage> LogCapture::Messages() const {
    const std::lock_guard lock(mMutex);
    return mMessages;
}

std::vector<std::string> LogCapture::Texts() const {
    std::vector<std::string> texts;
    for (const CapturedMessage& message : Messages()) {
        texts.push_back(message.text);
    }
    return texts;
}

std::size_t LogCapture::Count(KELogLevel level, const std::string& text) const {
    const std::vector<CapturedMessage> messages = Messages();
    return static_cast<std::size_t>(
        std::count(messages.begin(), messages.end(), CapturedMessage{level, text}));
}

std::size_t LogCapture::CountContaining(KELogLevel level, const std::string& part) const {
    const std::vector<CapturedMessage> messages = Messages();
    return static_cast<std::size_t>(
        std::count_if(messages.begin(), messages.end(), [&](const CapturedMessage& message) {
            return message.level == level && message.text.find(part) != std::string::npos;
        }));
}

void LogCapture::Clear() {
    const std::lock_guard lock(mMutex);
    mMessages.clear();
}

namespace {

std::mutex sDebugOutputMutex;
std::vector<std::string> sDebugOutput;

void KeepDebugOutput(const char* message) {
    const std::lock_guard lock(sDebugOutputMutex);
    sDebugOutput.emplace_back(message);
}

} // namespace

DebugOutputCapture::DebugOutputCapture() {
    Clear();
    KESetDebugOutputFunction(&KeepDebugOutput);
}

DebugOutputCapture::~DebugOutputCapture() {
    KESetDebugOutputFunction(nullptr);
}

std::vector<std::string> DebugOutputCapture::Messages() const {
    const std::lock_guard lock(sDebugOutputMutex);
    return sDebugOutput;
}

void DebugOutputCapture::Clear() {
    const std::lock_guard lock(sDebugOutputMutex);
    sDebugOutput.clear();
}

} // namespace testsupport
