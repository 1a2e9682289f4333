#include "log/KELogMessage.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kert_debug.h"
#include "log/KELogger.h"

namespace kestrelon {

namespace {

// Formats into the buffer behind length characters; returns the length the whole text would have.
template <typename... Args>
std::size_t AppendPart(char* buffer, std::size_t size, std::size_t length, const char* format,
                       const Args&... args) noexcept {
    const fmtimpl::ArgumentArray<Args...> holders(args...);
    const std::size_t start = std::min(length, size - 1);
    return length +
           KEFormatter(buffer + start, size - start).FormatArgs(format, holders.mHolders, holders.cCount);
}

} // namespace

void KELogMessage::Reset() noexcept {
    mPrefix = mStrBuf;
    *mPrefix = '\0';
    mTextWritePtr = mStrBuf + PrefixSize;
    *mTextWritePtr = '\0';
}

void KELogMessage::ResetMsg(const KELogFunctionParams& params) noexcept {
    Reset();
    if (params.hd1) {
        AppendText(params.hd1->mText);
    }
    if (params.hd1 && params.hd2) {
        AppendText(":");
    }
    if (params.hd2) {
        AppendText(params.hd2->mText);
    }
    if (params.hd1 || params.hd2) {
        AppendText(": ");
    }
    if (params.hdText) {
        AppendText(params.hdText);
    }
}

void KELogMessage::AppendText(const char* text) noexcept {
    const auto room = static_cast<std::size_t>(TextEnd() - mTextWritePtr);
    const std::size_t length = strnlen(text, room);
    std::memcpy(mTextWritePtr, text, length);
    mTextWritePtr += length;
    *mTextWritePtr = '\0';
}

void KELogMessage::AppendFormatted(const char* format, const fmtimpl::ArgumentHolder* args,
                                   std::size_t count) noexcept {
    const auto room = static_cast<std::size_t>(TextEnd() - mTextWritePtr);
    const std::size_t length = KEFormatter(mTextWritePtr, room + 1).FormatArgs(format, args, count);
    mTextWritePtr += std::min(length, room);
}

void KELogMessage::CreatePrefix(const KELogMsgPrefixLayout& layout, const KELogger* logger,
                                const KELogMsgMetaData& metaData) noexcept {
    using Layout = KELogMsgPrefixLayout;
    constexpr std::int64_t cMicrosecondsPerSecond = 1000000;

    mPrefix = mStrBuf;
    *mPrefix = '\0';
    std::size_t length = 0;
    const auto append = [this, &length](const char* format, const auto&... args) {
        length = AppendPart(mPrefix, PrefixSize, length, format, args...);
    };
    if (layout.IsOption(Layout::TimeStamp)) {
        append("{}.{:06} ", metaData.mTimestamp / cMicrosecondsPerSecond,
               metaData.mTimestamp % cMicrosecondsPerSecond);
    }
    if (layout.IsOption(Layout::ProcessId)) {
        append("[{}] ", metaData.mProcessID);
    }
    if (layout.IsOption(Layout::ThreadId)) {
        append("({}) ", metaData.mThreadID);
    }
    if (layout.IsOption(Layout::ModuleName)) {
        append("{}: ", KEModuleName());
    }
    const bool hasText = TextLength() != 0;
    if (hasText && layout.IsOption(Layout::LoggerName)) {
        append("{}: ", logger ? logger->Name() : "");
    }
    if (hasText && layout.IsOption(Layout::LevelName)) {
        append("{}: ", KEGetLogLevelName(metaData.mMsgLevel));
    }
    constexpr std::size_t cMaxLength = PrefixSize - 1;
    if (length > cMaxLength) {
        KEOutputDebugString("%s: ERROR: %s: prefix length %u exceeds %u\n", KEModuleName(),
                            __PRETTY_FUNCTION__, static_cast<unsigned>(length),
                            static_cast<unsigned>(cMaxLength));
    }
}

char* KELogMessage::CompactMessage() noexcept {
    if (mPrefix != mStrBuf) {
        return mPrefix; // has been moved already
    }
    const std::size_t length = std::strlen(mPrefix);
    char* start = mStrBuf + PrefixSize - length;
    std::memmove(start, mPrefix, length);
    // The prefix and the text now read as one; the prefix alone is no longer terminated.
    mPrefix = start;
    return start;
}

bool KELogMessage::AppendNewline() noexcept {
    if (mTextWritePtr != Text() && mTextWritePtr[-1] == *NewlineChar) {
        return false;
    }
    if (mTextWritePtr == TextEnd()) {
        --mTextWritePtr;
    }
    *mTextWritePtr++ = *NewlineChar;
    *mTextWritePtr = '\0';
    return true;
}

bool KELogMessage::RemoveNewline() noexcept {
    if (mTextWritePtr == Text() || mTextWritePtr[-1] != *NewlineChar) {
        return false;
    }
    *--mTextWritePtr = '\0';
    return true;
}

} // namespace kestrelon
