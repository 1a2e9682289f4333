#include "text/KEFormatter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include "kestatus_util.h"
#include "text/KEFormatScanner.h"
#include "text/KEUtfConvert.h"

namespace kestrelon {

using fmtimpl::ArgumentHolder;
using fmtimpl::IntNumber;

namespace {

// The digits of a number, built from the last one to the first.
class DigitBuffer {
public:
    // grouping is put between every groupSize digits when it is not 0.
    DigitBuffer(char grouping, unsigned groupSize) noexcept : mGrouping(grouping), mGroupSize(groupSize) {}

    void PutDigit(char digit) noexcept {
        if (mGrouping && mDigits != 0 && mDigits % mGroupSize == 0) {
            *--mFirst = mGrouping;
        }
        *--mFirst = digit;
        ++mDigits;
    }
    void PutPrefix(char character) noexcept { *--mFirst = character; }

    unsigned Digits() const noexcept { return mDigits; }
    const char* First() const noexcept { return mFirst; }
    std::size_t Length() const noexcept {
        return static_cast<std::size_t>(mBuffer + sizeof mBuffer - mFirst);
    }

private:
    char mBuffer[40];
    char* mFirst = mBuffer + sizeof mBuffer;
    char mGrouping;
    unsigned mGroupSize;
    unsigned mDigits = 0;
};

DigitBuffer DecimalDigits(std::uint64_t magnitude, const KEFormatSpec& spec) noexcept {
    DigitBuffer digits(spec.mGroupingCharacter, 3);
    do {
        digits.PutDigit(static_cast<char>('0' + magnitude % 10));
        magnitude /= 10;
    } while (magnitude != 0);
    return digits;
}

DigitBuffer HexadecimalDigits(std::uint64_t value, std::uint8_t size, const KEFormatSpec& spec) noexcept {
    const char* const symbols = spec.Is(KEFormatSpec::UpperCase) ? "0123456789ABCDEF" : "0123456789abcdef";
    if (size < 8) {
        value &= (std::uint64_t{1} << (8 * size)) - 1;
    }
    DigitBuffer digits(spec.mGroupingCharacter, spec.Is(KEFormatSpec::GroupByEight) ? 8 : 4);
    do {
        digits.PutDigit(symbols[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    if (spec.Is(KEFormatSpec::FullWidth)) {
        while (digits.Digits() < 2u * size) {
            digits.PutDigit('0');
        }
    }
    if (spec.Is(KEFormatSpec::AlternateForm)) {
        digits.PutPrefix('x');
        digits.PutPrefix('0');
    }
    return digits;
}

} // namespace

int KEFormatterBase::FmtCharacter(char character, const KEFormatSpec& spec) noexcept {
    const char text[] = {character, '\0'};
    return FmtString(text, spec);
}

int KEFormatterBase::FmtCharacter(char16_t character, const KEFormatSpec& spec) noexcept {
    const char16_t text[] = {character, u'\0'};
    return FmtString(text, spec);
}

int KEFormatterBase::FmtCharacter(wchar_t character, const KEFormatSpec& spec) noexcept {
    const wchar_t text[] = {character, L'\0'};
    return FmtString(text, spec);
}

int KEFormatterBase::FmtBool(bool value, const KEFormatSpec& spec) noexcept {
    return FmtString(value ? "true" : "false", spec);
}

int KEFormatterBase::FmtIntNumber(const IntNumber& number, const KEFormatSpec& spec) noexcept {
    if (!spec.Is(KEFormatSpec::Character)) {
        FmtIntNumberImpl(number, spec);
        return 0;
    }
    if (number.value == 0) {
        return FmtString("NUL", spec);
    }
    const auto code = static_cast<unsigned char>(number.value);
    return FmtCharacter(code >= 32 && code < 32 + 96 ? static_cast<char>(code) : '?', spec);
}

void KEFormatterBase::FmtHexDigits(std::uint64_t value, std::uint8_t size, bool upperCase) noexcept {
    KEFormatSpec spec;
    spec.mFlags = KEFormatSpec::Hexadecimal | KEFormatSpec::FullWidth |
                  (upperCase ? KEFormatSpec::UpperCase : KEFormatSpec::Flags{});
    FmtIntNumberImpl({static_cast<std::int64_t>(value), size, false}, spec);
}

void KEFormatterBase::FmtHexByte(std::uint8_t value, bool upperCase) noexcept {
    FmtHexDigits(value, sizeof value, upperCase);
}

void KEFormatterBase::FmtHexWord(std::uint16_t value, bool upperCase) noexcept {
    FmtHexDigits(value, sizeof value, upperCase);
}

void KEFormatterBase::FmtHexDword(std::uint32_t value, bool upperCase) noexcept {
    FmtHexDigits(value, sizeof value, upperCase);
}

void KEFormatterBase::FmtHexQword(std::uint64_t value, bool upperCase) noexcept {
    FmtHexDigits(value, sizeof value, upperCase);
}

int KEFormatterBase::FmtPointer(const void* pointer, const KEFormatSpec& spec) noexcept {
    const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
    return FmtIntNumber({static_cast<std::int64_t>(address), sizeof address, false}, spec);
}

int KEFormatterBase::FmtFloatingPoint(float value, const KEFormatSpec& spec) noexcept {
    return FmtFloatingPoint(static_cast<double>(value), spec);
}

int KEFormatterBase::FmtFloatingPoint(double value, const KEFormatSpec& spec) noexcept {
    char text[std::numeric_limits<double>::max_exponent10 + 16];
    std::snprintf(text, sizeof text, "%f", value);
    return FmtString(text, spec);
}

int KEFormatterBase::FmtFloatingPoint(long double value, const KEFormatSpec& spec) noexcept {
    char text[std::numeric_limits<long double>::max_exponent10 + 16];
    std::snprintf(text, sizeof text, "%Lf", value);
    return FmtString(text, spec);
}

namespace fmtimpl {

int FormatStatus(KEFormatterContext& context, const KEFormatArgKEStatus* status) noexcept {
    if (!status) {
        context.fs.mFlags |=
            KEFormatSpec::Hexadecimal | KEFormatSpec::AlternateForm | KEFormatSpec::FullWidth;
        return 0;
    }
    context.fmt.FmtInteger(status->mStatus, context.fs);
    context.fmt.PutCharacter('(');
    context.fmt.PutString(KEStringForStatusCode(status->mStatus));
    context.fmt.PutCharacter(')');
    return 0;
}

int FormatCharArray(KEFormatterContext& context, const char* text, std::size_t size) noexcept {
    if (strnlen(text, size) < size) {
        return context.fmt.FmtString(text, context.fs);
    }
    try {
        return context.fmt.FmtString(std::string(text, size).c_str(), context.fs);
    } catch (const std::exception&) {
        return 1;
    }
}

std::string FormatToStdString(const char* format, const ArgumentHolder* args, std::size_t count) noexcept {
    try {
        std::string text;
        const std::size_t length = KEFormatter().FormatArgs(format, args, count);
        if (length != 0) {
            text.resize(length);
            KEFormatter(text.data(), length + 1).FormatArgs(format, args, count);
        }
        return text;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace fmtimpl

template <typename CharT>
KEFormatterImplT<CharT>::KEFormatterImplT(CharT* buffer, std::size_t size) noexcept {
    if (buffer && size != 0) {
        mRange.mCurWritePtr = buffer;
        mRange.mLastPtr = buffer + (size - 1);
    }
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutCharacter(char character) noexcept {
    if (mRange.mCurWritePtr < mRange.mLastPtr) {
        *mRange.mCurWritePtr++ = character;
    }
    ++mRange.mCurLen;
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutCharacters(const char* characters, std::size_t count) noexcept {
    const auto room = static_cast<std::size_t>(mRange.mLastPtr - mRange.mCurWritePtr);
    const std::size_t written = std::min(count, room);
    constexpr std::size_t cShort = 16; // not worth a call of the C library
    if (written > cShort) {
        std::memcpy(mRange.mCurWritePtr, characters, written);
    } else {
        for (std::size_t i = 0; i < written; ++i) {
            mRange.mCurWritePtr[i] = characters[i];
        }
    }
    mRange.mCurWritePtr += written;
    mRange.mCurLen += count;
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutString(const char* text) noexcept {
    PutCharacters(text, std::strlen(text));
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutFill(std::uint64_t count, const KEFormatSpec& spec) noexcept {
    if (count == 0) {
        return;
    }
    const auto room = static_cast<std::uint64_t>(mRange.mLastPtr - mRange.mCurWritePtr);
    mRange.mCurWritePtr = std::fill_n(mRange.mCurWritePtr, static_cast<std::size_t>(std::min(count, room)),
                                      spec.mFillCharacter ? spec.mFillCharacter : ' ');
    mRange.mCurLen += static_cast<std::size_t>(count);
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutTerminator() noexcept {
    if (mRange.mCurWritePtr) {
        *mRange.mCurWritePtr = '\0';
    }
}

template <typename CharT>
int KEFormatterImplT<CharT>::FmtString(const char* text, const KEFormatSpec& spec) noexcept {
    if (!text) {
        text = "<<nullptr>>";
    }
    const std::size_t length = std::strlen(text);
    const std::uint64_t padding = spec.mWidth > length ? spec.mWidth - length : 0;
    std::uint64_t before = padding;
    std::uint64_t after = 0;
    if (spec.mAlignCharacter == '<') {
        std::swap(before, after);
    } else if (spec.mAlignCharacter == '^') {
        // Only every second character of the leading share is written, kept for compatibility.
        const std::uint64_t leadingShare = padding / 2;
        before = (leadingShare + 1) / 2;
        after = padding - leadingShare;
    }
    PutFill(before, spec);
    PutCharacters(text, length);
    PutFill(after, spec);
    return 0;
}

template <typename CharT>
int KEFormatterImplT<CharT>::FmtString(const char16_t* text, const KEFormatSpec& spec) noexcept {
    std::string converted;
    if (text && !KEUtf16ToUtf8(text, converted)) {
        return 1;
    }
    return FmtString(text ? converted.c_str() : nullptr, spec);
}

template <typename CharT>
int KEFormatterImplT<CharT>::FmtString(const wchar_t* text, const KEFormatSpec& spec) noexcept {
    std::string converted;
    if (text && !KEWideToUtf8(text, converted)) {
        return 1;
    }
    return FmtString(text ? converted.c_str() : nullptr, spec);
}

template <typename CharT>
void KEFormatterImplT<CharT>::FmtIntNumberImpl(const IntNumber& number, const KEFormatSpec& spec) noexcept {
    const auto bits = static_cast<std::uint64_t>(number.value);
    const bool hexadecimal = spec.Is(KEFormatSpec::Hexadecimal);
    char sign = 0;
    if (!hexadecimal) {
        if (number.isSigned && number.value < 0) {
            sign = '-';
        } else if (spec.mSignCharacter == '+' || spec.mSignCharacter == ' ') {
            sign = spec.mSignCharacter;
        }
    }
    const DigitBuffer digits = hexadecimal ? HexadecimalDigits(bits, number.size, spec)
                                           : DecimalDigits(sign == '-' ? 0 - bits : bits, spec);
    const std::size_t length = digits.Length() + (sign ? 1 : 0);
    const std::uint64_t padding = spec.mWidth > length ? spec.mWidth - length : 0;
    std::uint64_t beforeSign = 0;
    std::uint64_t beforeDigits = 0;
    std::uint64_t after = 0;
    switch (spec.mAlignCharacter) {
    case '<':
        after = padding;
        break;
    case '^':
        beforeSign = padding / 2;
        after = padding - beforeSign;
        break;
    case '=':
        beforeDigits = padding;
        break;
    default:
        beforeSign = padding;
        break;
    }
    PutFill(beforeSign, spec);
    if (sign) {
        PutCharacter(sign);
    }
    PutFill(beforeDigits, spec);
    PutCharacters(digits.First(), digits.Length());
    PutFill(after, spec);
}

template <typename CharT>
std::size_t KEFormatterT<CharT>::FormatArgs(const CharT* format, const ArgumentHolder* args,
                                            std::size_t count) noexcept {
    KEFormatScanner scanner(*this, format, args, count, __PRETTY_FUNCTION__);
    scanner.ScanFormat();
    this->PutTerminator();
    scanner.ReportLeftovers();
    return this->mRange.mCurLen;
}

template class KEFormatterImplT<char>;
template class KEFormatterT<char>;

} // namespace kestrelon
