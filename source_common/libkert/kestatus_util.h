// Names and texts of the status codes, and the mapping of the standard library's errors into them.
//
// The lookups return static, constant, zero-terminated strings that are never freed; they never fail
// and may be called from any thread. For a value without a row the Impl forms return a null pointer, the
// others "unknown". The wide forms have the same contents.
#ifndef KESTRELON_KESTATUS_UTIL_H
#define KESTRELON_KESTATUS_UTIL_H

#include <filesystem>
#include <system_error>

#include "kestatus.h"

namespace kestrelon {

// The symbolic name, for example "KESTATUS_TIMEOUT".
const char* KEStatusStringImplA(KESTATUS status) noexcept;
const wchar_t* KEStatusStringImplW(KESTATUS status) noexcept;
const char* KEStatusStringA(KESTATUS status) noexcept;
const wchar_t* KEStatusStringW(KESTATUS status) noexcept;

// The text, one sentence with a period, for example "The operation timed out.".
const char* KEStatusTextImplA(KESTATUS status) noexcept;
const wchar_t* KEStatusTextImplW(KESTATUS status) noexcept;
const char* KEStatusTextA(KESTATUS status) noexcept;
const wchar_t* KEStatusTextW(KESTATUS status) noexcept;

// The narrow name or "unknown". The formatter prints it behind a status number.
const char* KEStringForStatusCode(KESTATUS status) noexcept;

// The Linux-family status of an error code's value; the category is not looked at. Test the code first: the
// value 0 gives 0xE0010000, which is a failure.
[[nodiscard]] KESTATUS KEStatusFromStdErrorCode(const std::error_code& error) noexcept;
[[nodiscard]] KESTATUS
KEStatusFromStdFilesystemError(const std::filesystem::filesystem_error& error) noexcept;

} // namespace kestrelon

#endif
