#include "values/KEEthernetMacAddress.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "log/KELogging.h"

namespace kestrelon {

namespace {

constexpr std::size_t cTextLength = 2 * KEEthernetMacAddress::cSize;

// The value of a hexadecimal digit, -1 for another character.
template <typename charT>
int DigitValue(charT c) noexcept {
    if (c >= '0' && c <= '9') {
        return static_cast<int>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<int>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<int>(c - 'A') + 10;
    }
    return -1;
}

} // namespace

bool KEEthernetMacAddress::IsZero() const noexcept {
    return std::all_of(mMacAddr.mac, mMacAddr.mac + cSize, [](std::uint8_t byte) { return byte == 0; });
}

bool KEEthernetMacAddress::IsBroadcast() const noexcept {
    return std::all_of(mMacAddr.mac, mMacAddr.mac + cSize, [](std::uint8_t byte) { return byte == 0xFF; });
}

template <typename charT>
KESTATUS KEEthernetMacAddress::InitFromString(const charT* text) {
    const std::size_t length = text ? std::char_traits<charT>::length(text) : 0;
    if (length < cTextLength) {
        KEOutputLogMessage(logger::Global, KEERROR, "invalid string length={}", length);
        return KESTATUS_INVALID_LENGTH;
    }
    for (std::size_t i = 0; i < cSize; ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            KEOutputLogMessage(logger::Global, KEERROR, "invalid digit in MAC address '{}'", text);
            return KESTATUS_INVALID_FORMAT;
        }
        mMacAddr.mac[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return KESTATUS_SUCCESS;
}

template KESTATUS KEEthernetMacAddress::InitFromString<char>(const char* text);
template KESTATUS KEEthernetMacAddress::InitFromString<wchar_t>(const wchar_t* text);

int KEEthernetMacAddress::FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const {
    const char* const digits = spec.Is(KEFormatSpec::UpperCase) ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[3 * cSize];
    char* end = text;
    for (const std::uint8_t byte : mMacAddr.mac) {
        *end++ = digits[byte >> 4];
        *end++ = digits[byte & 0xF];
        *end++ = '-';
    }
    end[-1] = '\0';
    return fmt.FmtString(text, spec);
}

} // namespace kestrelon
