#include "kert_debug.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

namespace kestrelon {

namespace {

constinit std::atomic<KEDebugOutputFunction> sDebugOutput{nullptr};
constinit char sModuleName[cModuleNameSize] = {};

constexpr useconds_t cHaltMessageInterval = 3000000;

// Where to cut text, at length or before it, so that no character of UTF-8 is divided.
std::size_t CutBeforeCharacter(const char* text, std::size_t length) noexcept {
    constexpr std::size_t cMaxContinuationBytes = 3;
    for (std::size_t back = 0; back <= cMaxContinuationBytes && back <= length; ++back) {
        if ((static_cast<unsigned char>(text[length - back]) & 0xC0) != 0x80) {
            return length - back;
        }
    }
    return length; // some other encoding
}

} // namespace

void KEOutputDebugStringV(const char* fmt, va_list args) noexcept {
    if (const KEDebugOutputFunction output = sDebugOutput.load(std::memory_order_acquire)) {
        char message[4096];
        std::vsnprintf(message, sizeof message, fmt, args);
        output(message);
        return;
    }
    vsyslog(LOG_USER | LOG_ERR, fmt, args);
}

void KEOutputDebugString(const char* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    KEOutputDebugStringV(fmt, args);
    va_end(args);
}

KEDebugOutputFunction KESetDebugOutputFunction(KEDebugOutputFunction function) noexcept {
    return sDebugOutput.exchange(function, std::memory_order_acq_rel);
}

void KEOutputAssertionFailedMessage(const char* expression, const char* file, int line,
                                    const char* moduleName) noexcept {
    const char* what = expression ? expression : "";
    const char* where = file ? file : "";
    if (moduleName) {
        KEOutputDebugString("\n%s: FATAL: ASSERTION FAILED: (%s)\n  %s(%d)\n", moduleName, what, where, line);
    } else {
        KEOutputDebugString("\nFATAL: ASSERTION FAILED: (%s)\n  %s(%d)\n", what, where, line);
    }
}

void KEAssertionFailed(const char* expression, const char* file, int line) noexcept {
    KEOutputAssertionFailedMessage(expression, file, line, KEModuleName());
    const int thread = static_cast<int>(pthread_self());
    for (;;) {
        usleep(cHaltMessageInterval);
        KEOutputDebugString("%s: FATAL: Thread %d halted.", KEModuleName(), thread);
    }
}

void KESetModuleName(const char* name) noexcept {
    const char* const source = name ? name : "";
    std::size_t length = strnlen(source, cModuleNameSize);
    if (length == cModuleNameSize) {
        length = CutBeforeCharacter(source, cModuleNameSize - 1);
    }
    std::memmove(sModuleName, source, length);
    sModuleName[length] = '\0';
}

const char* KEModuleName() noexcept {
    return sModuleName;
}

} // namespace kestrelon
