// The logging facility: emitting messages, and the operations on all loggers and targets.
//
// A call site names a logger and a level. When the logger's level admits the message and a target is
// attached, the text is formatted (KEFormatter.h) into a buffer on the stack and handed to each target with
// time, thread and level. Otherwise nothing is done: a message that nobody gets costs two reads. Logging
// never fails towards its caller and takes no lock. Any thread may emit; construct, attach and start before
// other threads emit.
#ifndef KESTRELON_KELOGGING_H
#define KESTRELON_KELOGGING_H

#include <cstddef>
#include <cstdint>

#include "kestatus.h"
#include "log/KELogConfiguration.h"
#include "log/KELogMessage.h"
#include "log/KELogTarget.h"
#include "log/KELogger.h"

namespace kestrelon {

// --- Writing -------------------------------------------------------------------------------------

// Emits the headers alone.
void KEOutputLogMessageImpl(const KELogFunctionParams& params);
// Emits a text without arguments. It is still a format string: "{{" prints "{".
void KEOutputLogMessageImpl(const KELogFunctionParams& params, const char* text);
void KEOutputLogMessageArgs(const KELogFunctionParams& params, const char* format,
                            const fmtimpl::ArgumentHolder* args, std::size_t count);

// Emits bytes in hexadecimal and as characters, one message per line. bytesPerLine 0 means 16.
void KEOutputHexDumpImpl(const KELogFunctionParams& params, const void* data, std::size_t length,
                         unsigned int bytesPerLine);

template <typename... Args>
void KEOutputLogMessage(const KELogger& logger, KELogLevel level, const char* format, const Args&... args) {
    if (logger.IsHeard(level)) {
        const fmtimpl::ArgumentArray<Args...> holders(args...);
        KEOutputLogMessageArgs({logger, level}, format, holders.mHolders, holders.cCount);
    }
}

template <typename... Args>
void KEOutputLogMessage(const KELogger& logger, KELogLevel level, const KELogMsgHeaderTag& header,
                        const char* format, const Args&... args) {
    if (logger.IsHeard(level)) {
        const fmtimpl::ArgumentArray<Args...> holders(args...);
        KEOutputLogMessageArgs({logger, level, &header}, format, holders.mHolders, holders.cCount);
    }
}

template <typename... Args>
void KEOutputLogMessage(const KELogger& logger, KELogLevel level, const KELogMsgHeaderTag& header1,
                        const KELogMsgHeaderTag& header2, const char* format, const Args&... args) {
    if (logger.IsHeard(level)) {
        const fmtimpl::ArgumentArray<Args...> holders(args...);
        KEOutputLogMessageArgs({logger, level, &header1, &header2}, format, holders.mHolders, holders.cCount);
    }
}

// Logs a step that has failed with st as an error; returns st, which may be ignored. format has one field,
// for st.
KESTATUS KEOutputFailure(const KELogger& logger, const char* format, KESTATUS st);
KESTATUS KEOutputFailure(const KELogger& logger, const KELogMsgHeaderTag& function, const char* format,
                         KESTATUS st);

// Logs a system call that has failed with err, an error number, on Global; returns the status of that number,
// which may be ignored. format has one field, for err.
KESTATUS KEOutputSystemError(const KELogMsgHeaderTag& function, const char* format, int err);

// The calling function's signature as a header.
#define KE_FUNCTION_TAG                                                                                      \
    ::kestrelon::KELogMsgHeaderTag {                                                                         \
        __PRETTY_FUNCTION__                                                                                  \
    }

// --- Loggers and targets -------------------------------------------------------------------------

// Null, and a line in the system log, when there is none of this name. Without caseSensitive, ASCII letters
// are equal in both cases. A null name counts as "".
KELogger* KEGetLoggerByName(const char* name, bool caseSensitive) noexcept;
KELogTarget* KEGetLogTargetByName(const char* name, bool caseSensitive) noexcept;

// The operations that take names return KESTATUS_OBJECT_NOT_FOUND for an unknown one. Attaching returns
// KESTATUS_NO_RESOURCES when a logger has no free slot.
[[nodiscard]] KESTATUS KEAttachLogTargetToLogger(KELogTarget& target, KELogger& logger) noexcept;
[[nodiscard]] KESTATUS KEAttachLogTargetToLogger(const char* target, const char* logger) noexcept;
[[nodiscard]] KESTATUS KEAttachLogTargetToAllLoggers(KELogTarget& target) noexcept;
[[nodiscard]] KESTATUS KEAttachLogTargetToAllLoggers(const char* target) noexcept;
// Attaches every target to every logger. Tries all, then returns the first failure.
[[nodiscard]] KESTATUS KEAttachAllLogTargets() noexcept;
void KEDetachAllLogTargets() noexcept;

void KESetLevelForLogger(KELogger& logger, KELogLevel level) noexcept;
[[nodiscard]] KESTATUS KESetLevelForLogger(const char* logger, KELogLevel level) noexcept;
void KESetLevelForLoggersAttachedToTarget(const KELogTarget& target, KELogLevel level) noexcept;
[[nodiscard]] KESTATUS KESetLevelForLoggersAttachedToTarget(const char* target, KELogLevel level) noexcept;
void KESetLevelForAllLoggers(KELogLevel level) noexcept;

// Replace all options. To set or remove single ones use the target's mPrefixLayout.
void KESetPrefixOptionsForLogTarget(KELogTarget& target, std::uint32_t options) noexcept;
[[nodiscard]] KESTATUS KESetPrefixOptionsForLogTarget(const char* target, std::uint32_t options) noexcept;

// --- Start and stop ------------------------------------------------------------------------------

// Starts all targets; with a configuration, every logger then takes its level from there. When a target fails
// the others are started all the same, and logging counts as started; the first failure is returned. A second
// call does nothing and succeeds.
[[nodiscard]] KESTATUS KEStartLogging(KELogConfiguration* config);
[[nodiscard]] KESTATUS KEStartLogTargets(KELogConfiguration* config);
// Stops all targets; does nothing unless logging was started.
void KEStopLogging();

// The process-wide name in front of the toolbox's diagnostics. At most 31 bytes of UTF-8 are kept, whole
// characters only. In a wide name that cannot be converted "?" replaces what is not ASCII.
void KESetLogModuleName(const char* name) noexcept;
void KESetLogModuleName(const wchar_t* name) noexcept;
const char* KEGetLogModuleName() noexcept;

} // namespace kestrelon

#endif
