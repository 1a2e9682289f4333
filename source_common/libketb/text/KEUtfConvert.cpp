// The standard library's converters are deprecated without a replacement; they are used here alone.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#include "text/KEUtfConvert.h"

#include <codecvt>
#include <exception>
#include <locale>
#include <string>

namespace kestrelon {

namespace {

using WideConverter = std::wstring_convert<std::codecvt_utf8<wchar_t>, wchar_t>;
using Utf16Converter = std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>;

// A converter stops in front of a character that the end of the text cuts off, and finds no fault with it.
template <typename Converter, typename Char, typename Result>
bool CheckWhole(const Converter& converter, const Char* text, Result& result) noexcept {
    if (converter.converted() == std::char_traits<Char>::length(text)) {
        return true;
    }
    result.clear();
    return false;
}

template <typename Converter, typename Char>
bool FromUtf8(const char* text, std::basic_string<Char>& result) noexcept {
    try {
        Converter converter;
        result = converter.from_bytes(text);
        return CheckWhole(converter, text, result);
    } catch (const std::exception&) {
        result.clear();
        return false;
    }
}

template <typename Converter, typename Char>
bool ToUtf8(const Char* text, std::string& result) noexcept {
    try {
        Converter converter;
        result = converter.to_bytes(text);
        return CheckWhole(converter, text, result);
    } catch (const std::exception&) {
        result.clear();
        return false;
    }
}

} // namespace

bool KEUtf8ToWide(const char* text, std::wstring& result) noexcept {
    return FromUtf8<WideConverter>(text, result);
}

bool KEUtf8ToUtf16(const char* text, std::u16string& result) noexcept {
    return FromUtf8<Utf16Converter>(text, result);
}

bool KEWideToUtf8(const wchar_t* text, std::string& result) noexcept {
    return ToUtf8<WideConverter>(text, result);
}

bool KEUtf16ToUtf8(const char16_t* text, std::string& result) noexcept {
    return ToUtf8<Utf16Converter>(text, result);
}

} // namespace kestrelon
