// Bounded operations on zero-terminated texts, and numbers from text.
//
// Each operation exists for char and wchar_t. Copying and appending also take a text of another width, which
// is converted character by character without regard to its encoding. Sizes are in characters. Nothing is
// written past the given size, and the result is always terminated; a destination of size 0 is left alone.
// Only ASCII letters have an upper and a lower case. Pointers must not be null. From any thread.
#ifndef KESTRELON_KESTRINGUTILS_H
#define KESTRELON_KESTRINGUTILS_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <type_traits>

#include "kestatus.h"

namespace kestrelon {

// Number of characters before the terminator.
template <typename charT>
std::size_t KEStringLen(const charT* str) noexcept {
    return std::char_traits<charT>::length(str);
}

namespace strimpl {

// A character of another width; narrow ones count as unsigned.
template <typename charT, typename srcT>
charT ConvertCharacter(srcT c) noexcept {
    return static_cast<charT>(static_cast<std::make_unsigned_t<srcT>>(c));
}

} // namespace strimpl

// Copies what fits before dstEnd together with a terminator; returns the terminator's place.
template <typename charT, typename srcT>
charT* KEStringLCopy(charT* dst, const charT* dstEnd, const srcT* src) noexcept {
    if (dst >= dstEnd) {
        return dst;
    }
    for (; *src != srcT{} && dst + 1 < dstEnd; ++src) {
        *dst++ = strimpl::ConvertCharacter<charT>(*src);
    }
    *dst = charT{};
    return dst;
}

// Copies at most size - 1 characters; returns the number copied.
template <typename charT, typename srcT>
std::size_t KEStringNCopy(charT* dst, std::size_t size, const srcT* src) noexcept {
    return static_cast<std::size_t>(KEStringLCopy(dst, dst + size, src) - dst);
}

// Appends what fits before dstEnd together with a terminator; returns the terminator's place. A dst without a
// terminator before dstEnd is left alone; dstEnd is returned then.
template <typename charT, typename srcT>
charT* KEStringLCat(charT* dst, charT* dstEnd, const srcT* src) noexcept {
    while (dst < dstEnd && *dst != charT{}) {
        ++dst;
    }
    return KEStringLCopy(dst, dstEnd, src);
}

// Appends up to size - 1 characters in all; returns the number appended.
template <typename charT, typename srcT>
std::size_t KEStringNCat(charT* dst, std::size_t size, const srcT* src) noexcept {
    charT* const dstEnd = dst + size;
    charT* end = dst;
    while (end < dstEnd && *end != charT{}) {
        ++end;
    }
    return static_cast<std::size_t>(KEStringLCopy(end, dstEnd, src) - end);
}

template <typename charT>
bool KEIsUpperCaseChar(charT c) noexcept {
    return c >= charT{'A'} && c <= charT{'Z'};
}

template <typename charT>
bool KEIsLowerCaseChar(charT c) noexcept {
    return c >= charT{'a'} && c <= charT{'z'};
}

template <typename charT>
charT KEToUpperCaseChar(charT c) noexcept {
    return KEIsLowerCaseChar(c) ? static_cast<charT>(c - 'a' + 'A') : c;
}

template <typename charT>
charT KEToLowerCaseChar(charT c) noexcept {
    return KEIsUpperCaseChar(c) ? static_cast<charT>(c - 'A' + 'a') : c;
}

template <typename charT>
bool KEStringEqual(const charT* a, const charT* b) noexcept {
    for (; *a != charT{} && *a == *b; ++a, ++b) {
    }
    return *a == *b;
}

template <typename charT>
bool KEStringEqualIgnoreCase(const charT* a, const charT* b) noexcept {
    for (; *a != charT{} && KEToLowerCaseChar(*a) == KEToLowerCaseChar(*b); ++a, ++b) {
    }
    return KEToLowerCaseChar(*a) == KEToLowerCaseChar(*b);
}

// The first or last occurrence of a character, null when there is none. The terminator is not found.
template <typename charT>
charT* KEFindCharInString(charT* str, std::remove_const_t<charT> c) noexcept {
    for (; *str != std::remove_const_t<charT>{}; ++str) {
        if (*str == c) {
            return str;
        }
    }
    return nullptr;
}

template <typename charT>
charT* KEReverseFindCharInString(charT* str, std::remove_const_t<charT> c) noexcept {
    charT* found = nullptr;
    for (; *str != std::remove_const_t<charT>{}; ++str) {
        if (*str == c) {
            found = str;
        }
    }
    return found;
}

// Replaces, in place, every occurrence of a character, or of every character of a set.
template <typename charT>
void KEReplaceCharInString(charT* str, charT oldChar, charT newChar) noexcept {
    for (; *str != charT{}; ++str) {
        if (*str == oldChar) {
            *str = newChar;
        }
    }
}

template <typename charT>
void KEReplaceCharsInString(charT* str, const charT* set, charT newChar) noexcept {
    for (; *str != charT{}; ++str) {
        if (KEFindCharInString(set, *str)) {
            *str = newChar;
        }
    }
}

namespace strimpl {

template <typename charT>
inline constexpr charT cWhiteSpace[] = {' ', '\t', '\r', '\n', '\v', '\f', '\0'};

} // namespace strimpl

// Remove, in place, the characters of a set (white space by default) from the begin, the end or both.
template <typename charT>
void KEStringTrimBegin(charT* str, const charT* set = strimpl::cWhiteSpace<charT>) noexcept {
    charT* first = str;
    while (*first != charT{} && KEFindCharInString(set, *first)) {
        ++first;
    }
    std::char_traits<charT>::move(str, first, KEStringLen(first) + 1);
}

template <typename charT>
void KEStringTrimEnd(charT* str, const charT* set = strimpl::cWhiteSpace<charT>) noexcept {
    charT* end = str + KEStringLen(str);
    while (end != str && KEFindCharInString(set, end[-1])) {
        --end;
    }
    *end = charT{};
}

template <typename charT>
void KEStringTrimBeginEnd(charT* str, const charT* set = strimpl::cWhiteSpace<charT>) noexcept {
    KEStringTrimEnd(str, set);
    KEStringTrimBegin(str, set);
}

template <typename charT>
void KEStringToUpperCase(charT* str) noexcept {
    for (; *str != charT{}; ++str) {
        *str = KEToUpperCaseChar(*str);
    }
}

template <typename charT>
void KEStringToLowerCase(charT* str) noexcept {
    for (; *str != charT{}; ++str) {
        *str = KEToLowerCaseChar(*str);
    }
}

// Removes, in place, a quote character at both ends of a text of two characters or more. Returns whether
// it did.
template <typename charT>
bool KEStringRemoveQuotes(charT* str, charT quote) noexcept {
    const std::size_t length = KEStringLen(str);
    if (length < 2 || str[0] != quote || str[length - 1] != quote) {
        return false;
    }
    std::char_traits<charT>::move(str, str + 1, length - 2);
    str[length - 2] = charT{};
    return true;
}

// Returns the text behind its leading zeros. The last digit stays, even if it is a zero.
template <typename charT>
const charT* KEStringSkipLeadingZeros(const charT* str) noexcept {
    while (str[0] == charT{'0'} && str[1] >= charT{'0'} && str[1] <= charT{'9'}) {
        ++str;
    }
    return str;
}

// A static text of count spaces, of 63 when count is larger.
template <typename charT = char>
const charT* KESpacesStr(std::size_t count) noexcept;

// printf into a string; empty when the C library fails or memory is short, and for a wide text of more than
// 16 million characters.
std::string KEStdStringPrintf(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));
std::wstring KEStdStringPrintf(const wchar_t* format, ...) noexcept;
std::string KEStdStringVPrintf(const char* format, va_list args) noexcept
    __attribute__((format(printf, 1, 0)));
std::wstring KEStdStringVPrintf(const wchar_t* format, va_list args) noexcept;

// Numbers from text, as the C library reads them, with two exceptions: a leading zero never makes an integer
// octal, and "0b" never makes it binary but reads as 0. The result is cut to the width of value without a
// range check. Characters behind the number are ignored. Instantiated for int, unsigned int, long, unsigned
// long, short and unsigned short; char and wchar_t.
//   KESTATUS_INVALID_FORMAT  there is no number, or no such base; value is unchanged
template <typename T, typename charT>
[[nodiscard]] KESTATUS KEConvertStringToNumeric(T& value, const charT* text, int base) noexcept;

[[nodiscard]] KESTATUS KEConvertStringToNumeric(float& value, const char* text) noexcept;
[[nodiscard]] KESTATUS KEConvertStringToNumeric(double& value, const char* text) noexcept;
[[nodiscard]] KESTATUS KEConvertStringToNumeric(float& value, const wchar_t* text) noexcept;
[[nodiscard]] KESTATUS KEConvertStringToNumeric(double& value, const wchar_t* text) noexcept;

} // namespace kestrelon

#endif
