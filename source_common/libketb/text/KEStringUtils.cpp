#include "text/KEStringUtils.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <exception>

namespace kestrelon {

namespace {

constexpr std::size_t cMaxSpaces = 63;

template <typename charT>
struct SpacesText {
    charT mText[cMaxSpaces + 1];
    constexpr SpacesText() : mText{} {
        for (std::size_t i = 0; i < cMaxSpaces; ++i) {
            mText[i] = ' ';
        }
    }
};

template <typename charT>
constexpr SpacesText<charT> cSpaces;

long ToSigned(const char* text, char** end, int base) {
    return std::strtol(text, end, base);
}
long ToSigned(const wchar_t* text, wchar_t** end, int base) {
    return std::wcstol(text, end, base);
}
unsigned long ToUnsigned(const char* text, char** end, int base) {
    return std::strtoul(text, end, base);
}
unsigned long ToUnsigned(const wchar_t* text, wchar_t** end, int base) {
    return std::wcstoul(text, end, base);
}

// Whether text begins with 0b, behind blanks and a sign.
template <typename charT>
bool HasBinaryPrefix(const charT* text) noexcept {
    while (*text != charT{} && KEFindCharInString(strimpl::cWhiteSpace<charT>, *text)) {
        ++text;
    }
    if (*text == charT{'+'} || *text == charT{'-'}) {
        ++text;
    }
    return text[0] == charT{'0'} && (text[1] == charT{'b'} || text[1] == charT{'B'});
}

template <typename T, typename charT>
KESTATUS Store(T& value, T number, const charT* text, const charT* end) noexcept {
    if (end == text) {
        return KESTATUS_INVALID_FORMAT;
    }
    value = number;
    return KESTATUS_SUCCESS;
}

} // namespace

template <typename charT>
const charT* KESpacesStr(std::size_t count) noexcept {
    return cSpaces<charT>.mText + (cMaxSpaces - std::min(count, cMaxSpaces));
}

template const char* KESpacesStr<char>(std::size_t count) noexcept;
template const wchar_t* KESpacesStr<wchar_t>(std::size_t count) noexcept;

std::string KEStdStringPrintf(const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    std::string text = KEStdStringVPrintf(format, args);
    va_end(args);
    return text;
}

std::wstring KEStdStringPrintf(const wchar_t* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    std::wstring text = KEStdStringVPrintf(format, args);
    va_end(args);
    return text;
}

std::string KEStdStringVPrintf(const char* format, va_list args) noexcept {
    va_list argsForLength;
    va_copy(argsForLength, args);
    const int length = std::vsnprintf(nullptr, 0, format, argsForLength);
    va_end(argsForLength);
    if (length <= 0) {
        return {};
    }
    try {
        std::string text(static_cast<std::size_t>(length), '\0');
        std::vsnprintf(text.data(), text.size() + 1, format, args);
        return text;
    } catch (const std::exception&) {
        return {};
    }
}

std::wstring KEStdStringVPrintf(const wchar_t* format, va_list args) noexcept {
    // vswprintf does not tell how much room it would have needed: try larger and larger ones.
    constexpr std::size_t cFirstSize = 256;
    constexpr std::size_t cMaxSize = std::size_t{1} << 24;
    try {
        std::wstring text;
        for (std::size_t size = cFirstSize; size <= cMaxSize; size *= 4) {
            text.resize(size);
            va_list argsForTry;
            va_copy(argsForTry, args);
            errno = 0;
            const int length = std::vswprintf(text.data(), text.size(), format, argsForTry);
            const int err = errno;
            va_end(argsForTry);
            if (length >= 0) {
                text.resize(static_cast<std::size_t>(length));
                return text;
            }
            if (err == EILSEQ || err == EINVAL || err == ENOMEM) {
                break; // more room would not help
            }
        }
    } catch (const std::exception&) {
        // Nothing to give back but an empty text.
    }
    return {};
}

template <typename T, typename charT>
KESTATUS KEConvertStringToNumeric(T& value, const charT* text, int base) noexcept {
    if (base < 0 || base == 1 || base > 36) {
        return KESTATUS_INVALID_FORMAT; // the C library need not say where it stopped then
    }
    const charT* const start = KEStringSkipLeadingZeros(text);
    if (HasBinaryPrefix(start) && (base == 0 || base == 2)) {
        base = 10; // newer C libraries would read the binary number, others the 0 alone
    }
    charT* end = nullptr;
    if constexpr (std::is_signed_v<T>) {
        const long number = ToSigned(start, &end, base);
        return Store(value, static_cast<T>(number), start, static_cast<const charT*>(end));
    } else {
        const unsigned long number = ToUnsigned(start, &end, base);
        return Store(value, static_cast<T>(number), start, static_cast<const charT*>(end));
    }
}

template KESTATUS KEConvertStringToNumeric(int& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(int& value, const wchar_t* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned int& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned int& value, const wchar_t* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(long& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(long& value, const wchar_t* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned long& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned long& value, const wchar_t* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(short& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(short& value, const wchar_t* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned short& value, const char* text, int base) noexcept;
template KESTATUS KEConvertStringToNumeric(unsigned short& value, const wchar_t* text, int base) noexcept;

KESTATUS KEConvertStringToNumeric(float& value, const char* text) noexcept {
    char* end = nullptr;
    const float number = std::strtof(text, &end);
    return Store(value, number, text, static_cast<const char*>(end));
}

KESTATUS KEConvertStringToNumeric(double& value, const char* text) noexcept {
    char* end = nullptr;
    const double number = std::strtod(text, &end);
    return Store(value, number, text, static_cast<const char*>(end));
}

KESTATUS KEConvertStringToNumeric(float& value, const wchar_t* text) noexcept {
    wchar_t* end = nullptr;
    const float number = std::wcstof(text, &end);
    return Store(value, number, text, static_cast<const wchar_t*>(end));
}

KESTATUS KEConvertStringToNumeric(double& value, const wchar_t* text) noexcept {
    wchar_t* end = nullptr;
    const double number = std::wcstod(text, &end);
    return Store(value, number, text, static_cast<const wchar_t*>(end));
}

} // namespace kestrelon
