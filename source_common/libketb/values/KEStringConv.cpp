#include "values/KEStringConv.h"

#include "log/KELogging.h"
#include "text/KEUtfConvert.h"

namespace kestrelon {

namespace {

template <typename Result, typename Char>
Result Convert(bool (*convert)(const Char*, Result&) noexcept, const Char* text) noexcept {
    Result result;
    if (text && !convert(text, result)) {
        KEOutputLogMessage(logger::Global, KEERROR, "Conversion of string '{}' failed.", text);
    }
    return result;
}

} // namespace

std::wstring KEConvToWString(const char* text) noexcept {
    return Convert(&KEUtf8ToWide, text);
}

std::u16string KEConvToU16String(const char* text) noexcept {
    return Convert(&KEUtf8ToUtf16, text);
}

std::string KEConvToString(const wchar_t* text) noexcept {
    return Convert(&KEWideToUtf8, text);
}

std::string KEConvToString(const char16_t* text) noexcept {
    return Convert(&KEUtf16ToUtf8, text);
}

KEUnicodeString KEConvToUnicodeString(const char16_t* text) noexcept {
    return KEConvToString(text);
}

} // namespace kestrelon
