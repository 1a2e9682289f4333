// Conversions between UTF-8, UTF-16 and 32-bit texts (a wide character is a whole code point). A text that
// cannot be converted (KEUtfConvert.h) is logged on Global and gives an empty text. A null pointer gives an
// empty text without a message. From any thread.
#ifndef KESTRELON_KESTRINGCONV_H
#define KESTRELON_KESTRINGCONV_H

#include <string>

#include "text/KEUnicode.h"

namespace kestrelon {

std::wstring KEConvToWString(const char* text) noexcept;
std::u16string KEConvToU16String(const char* text) noexcept;
std::string KEConvToString(const wchar_t* text) noexcept;
std::string KEConvToString(const char16_t* text) noexcept;
KEUnicodeString KEConvToUnicodeString(const char16_t* text) noexcept;

} // namespace kestrelon

#endif
