// printf-style formatting into a caller's buffer, with a status.
//
// size is the buffer's size in characters. Nothing is written past it, and the result is always terminated.
// When size is 0 or buf is null nothing is written, and the status is KESTATUS_BUFFER_TOO_SMALL.
//   KESTATUS_SUCCESS            the whole result and its terminator fitted
//   KESTATUS_BUFFER_TOO_SMALL   the result was cut
//   KESTATUS_INVALID_PARAMETER  the C library reported EINVAL
//   0xE0010000 | errno          any other failure of the C library
// Safe from any thread.
#ifndef KESTRELON_KERT_STRING_H
#define KESTRELON_KERT_STRING_H

#include <cstdarg>
#include <cstddef>

#include "kestatus.h"

namespace kestrelon {

[[nodiscard]] KESTATUS KEStringVPrintfA(char* buf, std::size_t size, const char* fmt, va_list args) noexcept
    __attribute__((format(printf, 3, 0)));
[[nodiscard]] KESTATUS KEStringVPrintfW(wchar_t* buf, std::size_t size, const wchar_t* fmt,
                                        va_list args) noexcept;

[[nodiscard]] KESTATUS KEStringPrintfA(char* buf, std::size_t size, const char* fmt, ...) noexcept
    __attribute__((format(printf, 3, 4)));
[[nodiscard]] KESTATUS KEStringPrintfW(wchar_t* buf, std::size_t size, const wchar_t* fmt, ...) noexcept;

[[nodiscard]] KESTATUS KEStringPrintf(char* buf, std::size_t size, const char* fmt, ...) noexcept
    __attribute__((format(printf, 3, 4)));
[[nodiscard]] KESTATUS KEStringPrintf(wchar_t* buf, std::size_t size, const wchar_t* fmt, ...) noexcept;

} // namespace kestrelon

#endif
