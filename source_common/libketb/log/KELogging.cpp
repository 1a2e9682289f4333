#include "log/KELogging.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "kert_debug.h"
#include "text/KEStringUtils.h"
#include "text/KEUtfConvert.h"

namespace kestrelon {

namespace {

constinit bool sIsStarted = false;

template <typename Object>
Object* FindByName(const char* name, bool caseSensitive) noexcept {
    const auto isEqual = caseSensitive ? &KEStringEqual<char> : &KEStringEqualIgnoreCase<char>;
    Object* object = Object::First();
    while (object && !isEqual(object->Name(), name)) {
        object = object->Next();
    }
    return object;
}

struct HexDump {
    const unsigned char* mData;
    std::size_t mLength;
    std::size_t mLineLength; // bytes per line
};

void AppendValue(KELogMessage& message, const char* format, const auto& value) noexcept {
    const fmtimpl::ArgumentHolder holder = fmtimpl::MakeArgument(value);
    message.AppendFormatted(format, &holder, 1);
}

// The bytes at offset: the offset, each byte in hexadecimal, each byte as a character.
void AppendHexDumpLine(KELogMessage& message, const HexDump& dump, std::size_t offset) noexcept {
    constexpr std::size_t cMaxLengthForShortOffset = 0x10000;
    const std::size_t lineLength = std::min(dump.mLineLength, KELogMessage::TextSize); // more never fits
    const std::size_t count = std::min(lineLength, dump.mLength - offset);
    const unsigned char* const bytes = dump.mData + offset;

    AppendValue(message, dump.mLength <= cMaxLengthForShortOffset ? "{:04x}:" : "{:08x}:", offset);
    for (std::size_t i = 0; i < count; ++i) {
        AppendValue(message, "{:02x} ", bytes[i]);
    }
    for (std::size_t i = count; i < lineLength; ++i) {
        message.AppendText("   ");
    }
    for (std::size_t i = 0; i < count; ++i) {
        const bool isCharacter = bytes[i] >= 32 && bytes[i] <= 127;
        AppendValue(message, "{:c}", isCharacter ? bytes[i] : static_cast<unsigned char>('.'));
    }
}

} // namespace

const char* KEGetLogLevelName(KELogLevel level) noexcept {
    switch (level) {
    case KEFATAL:
        return "FATAL";
    case KEERROR:
        return "ERROR";
    case KEWARN:
        return "WARN";
    default:
        return "INFO";
    }
}

void KEOutputLogMessageImpl(const KELogFunctionParams& params) {
    KEOutputLogMessageArgs(params, "", nullptr, 0);
}

void KEOutputLogMessageImpl(const KELogFunctionParams& params, const char* text) {
    KEOutputLogMessageArgs(params, text, nullptr, 0);
}

void KEOutputLogMessageArgs(const KELogFunctionParams& params, const char* format,
                            const fmtimpl::ArgumentHolder* args, std::size_t count) {
    if (!params.logger.IsHeard(params.level)) {
        return;
    }
    KELogMessage message;
    message.ResetMsg(params);
    message.AppendFormatted(format, args, count);
    params.logger.OutputMessage(params.level, message);
}

KESTATUS KEOutputFailure(const KELogger& logger, const char* format, KESTATUS st) {
    KEOutputLogMessage(logger, KEERROR, format, KEFormatArgKEStatus(st));
    return st;
}

KESTATUS KEOutputFailure(const KELogger& logger, const KELogMsgHeaderTag& function, const char* format,
                         KESTATUS st) {
    KEOutputLogMessage(logger, KEERROR, function, format, KEFormatArgKEStatus(st));
    return st;
}

KESTATUS KEOutputSystemError(const KELogMsgHeaderTag& function, const char* format, int err) {
    KEOutputLogMessage(logger::Global, KEERROR, function, format, err);
    return KEStatusFromErrno(err);
}

void KEOutputHexDumpImpl(const KELogFunctionParams& params, const void* data, std::size_t length,
                         unsigned int bytesPerLine) {
    if (!params.logger.IsHeard(params.level)) {
        return;
    }
    if (!data) {
        KEOutputLogMessageImpl(params, "<<nullptr>>");
        return;
    }
    if (length == 0) {
        KEOutputLogMessageImpl(params, "<<zero length>>");
        return;
    }
    const HexDump dump = {static_cast<const unsigned char*>(data), length,
                          bytesPerLine != 0 ? bytesPerLine : 16};
    KELogMessage message;
    for (std::size_t offset = 0; offset < length; offset += dump.mLineLength) {
        message.ResetMsg(params);
        AppendHexDumpLine(message, dump, offset);
        params.logger.OutputMessage(params.level, message);
    }
}

KELogger* KEGetLoggerByName(const char* name, bool caseSensitive) noexcept {
    name = name ? name : "";
    KELogger* logger = FindByName<KELogger>(name, caseSensitive);
    if (!logger) {
        KEOutputDebugString("%s: WARNING: %s: Logger '%s' not found\n", KEModuleName(), __PRETTY_FUNCTION__,
                            name);
    }
    return logger;
}

KELogTarget* KEGetLogTargetByName(const char* name, bool caseSensitive) noexcept {
    name = name ? name : "";
    KELogTarget* target = FindByName<KELogTarget>(name, caseSensitive);
    if (!target) {
        KEOutputDebugString("%s: WARNING: %s: Target '%s' not found\n", KEModuleName(), __PRETTY_FUNCTION__,
                            name);
    }
    return target;
}

KESTATUS KEAttachLogTargetToLogger(KELogTarget& target, KELogger& logger) noexcept {
    return logger.AttachTarget(target);
}

KESTATUS KEAttachLogTargetToLogger(const char* target, const char* logger) noexcept {
    KELogTarget* const foundTarget = KEGetLogTargetByName(target, true);
    KELogger* const foundLogger = KEGetLoggerByName(logger, true);
    if (!foundTarget || !foundLogger) {
        return KESTATUS_OBJECT_NOT_FOUND;
    }
    return KEAttachLogTargetToLogger(*foundTarget, *foundLogger);
}

KESTATUS KEAttachLogTargetToAllLoggers(KELogTarget& target) noexcept {
    return target.AttachToAllLoggers();
}

KESTATUS KEAttachLogTargetToAllLoggers(const char* target) noexcept {
    KELogTarget* const found = KEGetLogTargetByName(target, true);
    return found ? KEAttachLogTargetToAllLoggers(*found) : KESTATUS_OBJECT_NOT_FOUND;
}

KESTATUS KEAttachAllLogTargets() noexcept {
    KESTATUS result = KESTATUS_SUCCESS;
    for (KELogTarget* target = KELogTarget::First(); target; target = target->Next()) {
        const KESTATUS st = target->AttachToAllLoggers();
        if (result == KESTATUS_SUCCESS) {
            result = st;
        }
    }
    return result;
}

void KEDetachAllLogTargets() noexcept {
    for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        logger->DetachAllTargets();
    }
}

void KESetLevelForLogger(KELogger& logger, KELogLevel level) noexcept {
    logger.SetLevel(level);
}

KESTATUS KESetLevelForLogger(const char* logger, KELogLevel level) noexcept {
    KELogger* const found = KEGetLoggerByName(logger, true);
    if (!found) {
        return KESTATUS_OBJECT_NOT_FOUND;
    }
    KESetLevelForLogger(*found, level);
    return KESTATUS_SUCCESS;
}

void KESetLevelForLoggersAttachedToTarget(const KELogTarget& target, KELogLevel level) noexcept {
    for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        if (logger->IsAttachedToTarget(target)) {
            logger->SetLevel(level);
        }
    }
}

KESTATUS KESetLevelForLoggersAttachedToTarget(const char* target, KELogLevel level) noexcept {
    const KELogTarget* const found = KEGetLogTargetByName(target, true);
    if (!found) {
        return KESTATUS_OBJECT_NOT_FOUND;
    }
    KESetLevelForLoggersAttachedToTarget(*found, level);
    return KESTATUS_SUCCESS;
}

void KESetLevelForAllLoggers(KELogLevel level) noexcept {
    for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        logger->SetLevel(level);
    }
}

void KESetPrefixOptionsForLogTarget(KELogTarget& target, std::uint32_t options) noexcept {
    target.mPrefixLayout.mOptions = options;
}

KESTATUS KESetPrefixOptionsForLogTarget(const char* target, std::uint32_t options) noexcept {
    KELogTarget* const found = KEGetLogTargetByName(target, true);
    if (!found) {
        return KESTATUS_OBJECT_NOT_FOUND;
    }
    KESetPrefixOptionsForLogTarget(*found, options);
    return KESTATUS_SUCCESS;
}

KESTATUS KEStartLogging(KELogConfiguration* config) {
    if (sIsStarted) {
        return KESTATUS_SUCCESS;
    }
    if (!KELogTarget::First()) {
        KEOutputDebugString("%s: WARNING: %s: No log targets registered\n", KEModuleName(),
                            __PRETTY_FUNCTION__);
    }
    if (!KELogger::First()) {
        KEOutputDebugString("%s: WARNING: %s: No loggers registered\n", KEModuleName(), __PRETTY_FUNCTION__);
    }
    const KESTATUS st = KEStartLogTargets(config);
    if (config) {
        for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
            KELogLevel level = logger->Level();
            if (config->ReadLogLevel(logger->Name(), level) == KESTATUS_SUCCESS) {
                logger->SetLevel(level);
            }
        }
    }
    sIsStarted = true;
    return st;
}

KESTATUS KEStartLogTargets(KELogConfiguration* config) {
    KESTATUS result = KESTATUS_SUCCESS;
    for (KELogTarget* target = KELogTarget::First(); target; target = target->Next()) {
        const KESTATUS st = target->StartTarget(config);
        if (st != KESTATUS_SUCCESS) {
            KEOutputDebugString("%s: ERROR: %s: StartTarget '%s' failed, st=0x%08x\n", KEModuleName(),
                                __PRETTY_FUNCTION__, target->Name(), st);
            if (result == KESTATUS_SUCCESS) {
                result = st;
            }
        }
    }
    return result;
}

void KEStopLogging() {
    if (!sIsStarted) {
        return;
    }
    for (KELogTarget* target = KELogTarget::First(); target; target = target->Next()) {
        target->StopTarget();
    }
    sIsStarted = false;
}

void KESetLogModuleName(const char* name) noexcept {
    KESetModuleName(name);
}

void KESetLogModuleName(const wchar_t* name) noexcept {
    std::string narrow;
    if (!name || KEWideToUtf8(name, narrow)) {
        KESetModuleName(narrow.c_str());
        return;
    }
    char ascii[cModuleNameSize];
    std::size_t length = 0;
    for (; length < sizeof ascii - 1 && name[length] != L'\0'; ++length) {
        ascii[length] = name[length] > 0 && name[length] < 0x80 ? static_cast<char>(name[length]) : '?';
    }
    ascii[length] = '\0';
    KESetModuleName(ascii);
}

const char* KEGetLogModuleName() noexcept {
    return KEModuleName();
}

} // namespace kestrelon
