// The toolbox's own last-resort diagnostics: lines in the system log, for what cannot go through a logger.
// Also the process-wide module name in front of them. Nothing here fails towards its caller.
#ifndef KESTRELON_KERT_DEBUG_H
#define KESTRELON_KERT_DEBUG_H

#include <cstdarg>
#include <cstddef>

namespace kestrelon {

// Write one message to the system log with priority LOG_USER | LOG_ERR. From any thread.
void KEOutputDebugString(const char* fmt, ...) noexcept __attribute__((format(printf, 1, 2)));
void KEOutputDebugStringV(const char* fmt, va_list args) noexcept __attribute__((format(printf, 1, 0)));

// Receives a formatted message, cut at 4095 characters, in place of the system log. It is called on the
// thread that reports, and the text is valid during the call.
using KEDebugOutputFunction = void (*)(const char* message);

// Redirects the diagnostics to function, or back to the system log when it is null. Returns the function that
// was set before. From any thread.
KEDebugOutputFunction KESetDebugOutputFunction(KEDebugOutputFunction function) noexcept;

// Writes the text of a failed assertion: expression, file and line, behind the module name unless that is
// null. A null expression or file prints as an empty string.
void KEOutputAssertionFailedMessage(const char* expression, const char* file, int line,
                                    const char* moduleName) noexcept;

// Reports a failed assertion and never returns: the calling thread is parked and reports that every three
// seconds. The process goes on.
[[noreturn]] void KEAssertionFailed(const char* expression, const char* file, int line) noexcept;

// The module name has at most 31 bytes: a longer one is cut between two characters of UTF-8. Null counts as
// "". Set it before other threads start.
inline constexpr std::size_t cModuleNameSize = 32;
void KESetModuleName(const char* name) noexcept;
const char* KEModuleName() noexcept;

} // namespace kestrelon

#endif
