#include "kert_string.h"

#include <cerrno>
#include <cstdio>
#include <cwchar>

namespace kestrelon {

namespace {

KESTATUS StatusOfPrintfError(int err) noexcept {
    return err == EINVAL ? KESTATUS_INVALID_PARAMETER : KEStatusFromErrno(err);
}

} // namespace

KESTATUS KEStringVPrintfA(char* buf, std::size_t size, const char* fmt, va_list args) noexcept {
    if (!buf || size == 0) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    errno = 0;
    const int length = std::vsnprintf(buf, size, fmt, args);
    if (length < 0) {
        const int err = errno;
        buf[size - 1] = '\0';
        return err == 0 ? KESTATUS_FAILED : StatusOfPrintfError(err);
    }
    return static_cast<std::size_t>(length) < size ? KESTATUS_SUCCESS : KESTATUS_BUFFER_TOO_SMALL;
}

KESTATUS KEStringVPrintfW(wchar_t* buf, std::size_t size, const wchar_t* fmt, va_list args) noexcept {
    if (!buf || size == 0) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    errno = 0;
    const int length = std::vswprintf(buf, size, fmt, args);
    if (length < 0) {
        // Unlike its narrow sibling, vswprintf fails when the buffer is too small, and C libraries
        // disagree on the errno that goes with it.
        const int err = errno;
        buf[size - 1] = L'\0';
        if (err == 0 || err == E2BIG || err == EOVERFLOW) {
            return KESTATUS_BUFFER_TOO_SMALL;
        }
        return StatusOfPrintfError(err);
    }
    return static_cast<std::size_t>(length) < size ? KESTATUS_SUCCESS : KESTATUS_BUFFER_TOO_SMALL;
}

KESTATUS KEStringPrintfA(char* buf, std::size_t size, const char* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    const KESTATUS st = KEStringVPrintfA(buf, size, fmt, args);
    va_end(args);
    return st;
}

KESTATUS KEStringPrintfW(wchar_t* buf, std::size_t size, const wchar_t* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    const KESTATUS st = KEStringVPrintfW(buf, size, fmt, args);
    va_end(args);
    return st;
}

KESTATUS KEStringPrintf(char* buf, std::size_t size, const char* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    const KESTATUS st = KEStringVPrintfA(buf, size, fmt, args);
    va_end(args);
    return st;
}

KESTATUS KEStringPrintf(wchar_t* buf, std::size_t size, const wchar_t* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    const KESTATUS st = KEStringVPrintfW(buf, size, fmt, args);
    va_end(args);
    return st;
}

} // namespace kestrelon
