#include "text/KEFormatter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include "kert_debug.h"
#include "kestatus_util.h"
#include "text/KEUtfConvert.h"

namespace kestrelon {

using fmtimpl::ArgumentHolder;
using fmtimpl::FormatSpecError;
using fmtimpl::IntNumber;

namespace {

bool IsBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsAlignment(char c) noexcept {
    return c == '<' || c == '=' || c == '>' || c == '^';
}

int CharacterCode(char c) noexcept {
    return static_cast<unsigned char>(c);
}

// Reads decimal digits; a number too large stays at the largest one.
std::uint32_t ReadNumber(const char*& position) noexcept {
    std::uint64_t number = 0;
    for (; IsDigit(*position); ++position) {
        number = std::min<std::uint64_t>(number * 10 + static_cast<std::uint64_t>(*position - '0'),
                                         std::numeric_limits<std::uint32_t>::max());
    }
    return static_cast<std::uint32_t>(number);
}

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
    for (std::size_t i = 0; i < count; ++i) {
        PutCharacter(characters[i]);
    }
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutString(const char* text) noexcept {
    PutCharacters(text, std::strlen(text));
}

template <typename CharT>
void KEFormatterImplT<CharT>::PutFill(std::uint64_t count, const KEFormatSpec& spec) noexcept {
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
        // The leading share of a centred text is written by a count that goes down in steps of two.
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
FormatSpecError KEFormatterT<CharT>::ExtractFormatSpec(const CharT*& position, KEFormatSpec& spec) noexcept {
    if (position[0] != '\0' && IsAlignment(position[1])) {
        spec.mFillCharacter = position[0];
        spec.mAlignCharacter = position[1];
        position += 2;
    } else if (IsAlignment(position[0])) {
        spec.mFillCharacter = ' ';
        spec.mAlignCharacter = position[0];
        ++position;
    }
    if (*position == '+' || *position == '-' || *position == ' ') {
        spec.mSignCharacter = *position++;
    }
    if (*position == '#') {
        spec.mFlags |= KEFormatSpec::AlternateForm;
        ++position;
    }
    if (*position == '0') {
        if (!spec.mAlignCharacter) {
            spec.mFillCharacter = '0';
            spec.mAlignCharacter = '=';
        }
        ++position;
    }
    if (IsDigit(*position)) {
        spec.mWidth = ReadNumber(position);
    }
    if (*position == ',' || *position == '_') {
        spec.mGroupingCharacter = *position++;
    }
    if (*position == '.') {
        ++position;
        ReadNumber(position);
        spec.mFlags |= KEFormatSpec::HasPrecision;
    }
    switch (*position) {
    case '\0':
        return FormatSpecError::IncompleteSpec;
    case '}':
        return FormatSpecError::Success;
    case 'X':
        spec.mFlags |= KEFormatSpec::UpperCase;
        [[fallthrough]];
    case 'x':
        spec.mFlags |= KEFormatSpec::Hexadecimal;
        if (spec.Is(KEFormatSpec::AlternateForm)) {
            spec.mFlags |= KEFormatSpec::FullWidth;
        }
        break;
    case 'd':
    case 'n':
        spec.mFlags &= ~std::uint32_t{KEFormatSpec::Hexadecimal};
        break;
    case 'c':
        spec.mFlags |= KEFormatSpec::Character;
        break;
    case 's':
        spec.mFlags |= KEFormatSpec::String;
        break;
    case 'e':
    case 'f':
    case 'g':
    case 'E':
    case 'F':
    case 'G':
        break;
    default:
        if (IsBlank(*position)) {
            return FormatSpecError::Success;
        }
        ++position;
        return FormatSpecError::UnsupportedType;
    }
    ++position;
    return FormatSpecError::Success;
}

template <typename CharT>
std::size_t KEFormatterT<CharT>::FormatArgs(const CharT* format, const ArgumentHolder* args,
                                            std::size_t count) noexcept {
    const char* const function = __PRETTY_FUNCTION__;
    const auto argumentCount = static_cast<unsigned>(count);
    const auto followWithFormat = [format] { KEOutputDebugString("%s\n", format); };

    KEFormatterContext context{*this, {}};
    std::size_t automaticIndex = 0;
    std::size_t usedCount = 0; // highest used index + 1
    bool inField = false;
    std::size_t index = 0;
    bool defaultsSet = false;

    const CharT* position = format;
    while (*position != '\0') {
        const CharT c = *position;
        if (!inField) {
            if (c == '{' && position[1] != '{') {
                inField = true;
                context.fs = {};
                index = automaticIndex;
                defaultsSet = false;
                ++position;
            } else if (c == '}' && position[1] != '}') {
                KEOutputDebugString("%s: WARNING: %s: Discarding unexpected closing bracket }. FormatString "
                                    "follows, %u arguments.\n",
                                    KEModuleName(), function, argumentCount);
                followWithFormat();
                position += position[1] != '\0' ? 2 : 1;
            } else {
                this->PutCharacter(c);
                position += c == '{' || c == '}' ? 2 : 1;
            }
        } else if (IsBlank(c)) {
            ++position;
        } else if (IsDigit(c)) {
            const std::uint32_t explicitIndex = ReadNumber(position);
            if (explicitIndex < count) {
                index = explicitIndex;
            } else {
                KEOutputDebugString("%s: ERROR: %s: Index=%u is an invalid index specification. FormatString "
                                    "follows, %u arguments.\n",
                                    KEModuleName(), function, explicitIndex, argumentCount);
                followWithFormat();
            }
        } else if (c == ':') {
            ++position;
            if (index < count) {
                args[index].mActionFunction(context, nullptr);
                defaultsSet = true;
            }
            switch (ExtractFormatSpec(position, context.fs)) {
            case FormatSpecError::Success:
                break;
            case FormatSpecError::IncompleteSpec:
                KEOutputDebugString(
                    "%s: ERROR: %s: Incomplete format specification. FormatString follows, %u arguments.\n",
                    KEModuleName(), function, argumentCount);
                followWithFormat();
                break;
            case FormatSpecError::UnsupportedType:
                KEOutputDebugString("%s: WARNING: %s: Ignoring unsupported format specifier %d. FormatString "
                                    "follows, %u arguments.\n",
                                    KEModuleName(), function, CharacterCode(position[-1]), argumentCount);
                followWithFormat();
                break;
            }
        } else if (c == '}') {
            ++position;
            inField = false;
            if (index < count) {
                if (!defaultsSet) {
                    args[index].mActionFunction(context, nullptr);
                }
                if (args[index].mActionFunction(context, args[index].mArgPtr) != 0) {
                    KEOutputDebugString("%s: ERROR: %s: Conversion of argument %u failed. FormatString "
                                        "follows, %u arguments.\n",
                                        KEModuleName(), function, static_cast<unsigned>(index),
                                        argumentCount);
                    followWithFormat();
                }
                automaticIndex = index + 1;
                usedCount = std::max(usedCount, automaticIndex);
            } else {
                KEOutputDebugString("%s: ERROR: %s: No argument for {} replacement field. FormatString "
                                    "follows, %u arguments.\n",
                                    KEModuleName(), function, argumentCount);
                followWithFormat();
            }
        } else {
            KEOutputDebugString("%s: WARNING: %s: Ignoring unexpected character %d within {} replacement "
                                "field. FormatString follows, %u arguments.\n",
                                KEModuleName(), function, CharacterCode(c), argumentCount);
            followWithFormat();
            ++position;
        }
    }

    this->PutTerminator();
    if (count > usedCount) {
        KEOutputDebugString(
            "%s: ERROR: %s: More arguments than {} replacement fields. FormatString follows, %u arguments.\n",
            KEModuleName(), function, argumentCount);
        followWithFormat();
    }
    if (inField) {
        KEOutputDebugString("%s: ERROR: %s: Missing closing bracket }. FormatString follows, %u arguments.\n",
                            KEModuleName(), function, argumentCount);
        followWithFormat();
    }
    return this->mRange.mCurLen;
}

template class KEFormatterImplT<char>;
template class KEFormatterT<char>;

} // namespace kestrelon
