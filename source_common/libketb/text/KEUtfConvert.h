// Conversions between UTF-8, UTF-16 and 32-bit texts. They log nothing, since the formatter itself uses them;
// those of KEStringConv.h log failures.
//
// Each returns false when the standard library's converter refuses the text or memory is short; result is
// empty then. Newer libraries refuse single surrogates, older ones only those of UTF-16. text must not be
// null. From any thread.
#ifndef KESTRELON_KEUTFCONVERT_H
#define KESTRELON_KEUTFCONVERT_H

#include <string>

namespace kestrelon {

[[nodiscard]] bool KEUtf8ToWide(const char* text, std::wstring& result) noexcept;
[[nodiscard]] bool KEUtf8ToUtf16(const char* text, std::u16string& result) noexcept;
[[nodiscard]] bool KEWideToUtf8(const wchar_t* text, std::string& result) noexcept;
[[nodiscard]] bool KEUtf16ToUtf8(const char16_t* text, std::string& result) noexcept;

} // namespace kestrelon

#endif
