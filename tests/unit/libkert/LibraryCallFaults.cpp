#include "LibraryCallFaults.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace testsupport {

void (*gUsleepFunction)(useconds_t microseconds) = nullptr;

namespace {

bool sIsPrintfFailing = false;
int sPrintfErrno = 0;
unsigned sFailedPrintfs = 0;
std::vector<SystemLogLine> sSystemLog;

} // namespace

PrintfFault::PrintfFault(int err) {
    sIsPrintfFailing = true;
    sPrintfErrno = err;
    sFailedPrintfs = 0;
}

unsigned PrintfFault::Failures() const {
    return sFailedPrintfs;
}

PrintfFault::~PrintfFault() {
    sIsPrintfFailing = false;
}

std::vector<SystemLogLine> TakeSystemLog() {
    return std::exchange(sSystemLog, {});
}

} // namespace testsupport

using namespace testsupport;

// The linker sends the wrapped calls of the whole program here.
extern "C" {

int __real_vsnprintf(char* buf, size_t size, const char* format, va_list args);
int __real_vswprintf(wchar_t* buf, size_t size, const wchar_t* format, va_list args);
int __real_usleep(useconds_t microseconds);
int __wrap_vsnprintf(char* buf, size_t size, const char* format, va_list args);
int __wrap_vswprintf(wchar_t* buf, size_t size, const wchar_t* format, va_list args);
int __wrap_usleep(useconds_t microseconds);
void __wrap_vsyslog(int priority, const char* format, va_list args);
int __wrap___vsnprintf_chk(char* buf, size_t size, int flag, size_t bufferSize, const char* format,
                           va_list args);
int __wrap___vswprintf_chk(wchar_t* buf, size_t size, int flag, size_t bufferSize, const wchar_t* format,
                           va_list args);
void __wrap___vsyslog_chk(int priority, int flag, const char* format, va_list args);

int __wrap_vsnprintf(char* buf, size_t size, const char* format, va_list args) {
    if (sIsPrintfFailing) {
        ++sFailedPrintfs;
        errno = sPrintfErrno;
        return -1;
    }
    return __real_vsnprintf(buf, size, format, args);
}

int __wrap_vswprintf(wchar_t* buf, size_t size, const wchar_t* format, va_list args) {
    if (sIsPrintfFailing) {
        ++sFailedPrintfs;
        errno = sPrintfErrno;
        return -1;
    }
    return __real_vswprintf(buf, size, format, args);
}

int __wrap_usleep(useconds_t microseconds) {
    if (!gUsleepFunction) {
        return __real_usleep(microseconds);
    }
    gUsleepFunction(microseconds);
    return 0;
}

void __wrap_vsyslog(int priority, const char* format, va_list args) {
    char text[8192];
    __real_vsnprintf(text, sizeof text, format, args);
    sSystemLog.push_back({priority, text});
}

// The forms of a hardened build: a flag, and the buffer's size as far as the compiler knows it.
int __wrap___vsnprintf_chk(char* buf, size_t size, int /*flag*/, size_t /*bufferSize*/, const char* format,
                           va_list args) {
    return __wrap_vsnprintf(buf, size, format, args);
}

int __wrap___vswprintf_chk(wchar_t* buf, size_t size, int /*flag*/, size_t /*bufferSize*/,
                           const wchar_t* format, va_list args) {
    return __wrap_vswprintf(buf, size, format, args);
}

void __wrap___vsyslog_chk(int priority, int /*flag*/, const char* format, va_list args) {
    __wrap_vsyslog(priority, format, args);
}
}
