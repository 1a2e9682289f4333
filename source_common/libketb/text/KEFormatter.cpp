#include "text/KEFormatter.h"

#include <algorithm>
#include <array>
#include <bit>
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

// "00" to "99".
constexpr std::array<char, 200> cDigitPairs = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        pairs[i] = static_cast<char>('0' + i / 20);
        pairs[i + 1] = static_cast<char>('0' + i / 2 % 10);
    }
    return pairs;
}();

unsigned CountDecimalDigits(std::uint64_t number) noexcept {
    unsigned count = 1;
    for (; number >= 10000; number /= 10000) {
        count += 4;
    }
    return count + (number >= 10) + (number >= 100) + (number >= 1000);
}

// Ends right before end. Two digits per division, since divisions cost the most.
void WriteDecimalBefore(char* end, std::uint64_t number) noexcept {
    for (; number >= 100; number /= 100) {
        end -= 2;
        std::memcpy(end, &cDigitPairs[number % 100 * 2], 2);
    }
    if (number >= 10) {
        std::memcpy(end - 2, &cDigitPairs[number * 2], 2);
    } else {
        end[-1] = static_cast<char>('0' + number);
    }
}

unsigned CountHexadecimalDigits(std::uint64_t number) noexcept {
    return number == 0 ? 1 : (static_cast<unsigned>(std::bit_width(number)) + 3) / 4;
}

// The digits of a number without its sign, with "0x" and grouping. The length is known before they are
// written, so that they are written right where they belong.
class NumberDigits {
public:
    static constexpr std::size_t cMaxLength = 32; // of any number, with a sign too

    static NumberDigits Decimal(std::uint64_t magnitude, const KEFormatSpec& spec) noexcept {
        return {magnitude, CountDecimalDigits(magnitude), 3, spec};
    }
    // size is that of the value's type in bytes.
    static NumberDigits Hexadecimal(std::uint64_t value, std::uint8_t size,
                                    const KEFormatSpec& spec) noexcept {
        if (size < 8) {
            value &= (std::uint64_t{1} << (8 * size)) - 1;
        }
        const unsigned count =
            std::max(CountHexadecimalDigits(value), spec.Is(KEFormatSpec::FullWidth) ? 2u * size : 0u);
        return {value, count, spec.Is(KEFormatSpec::GroupByEight) ? 8u : 4u, spec};
    }

    std::size_t Length() const noexcept { return mLength; }
    // Ends right before end.
    void WriteBefore(char* end) const noexcept {
        if (mSpec.Is(KEFormatSpec::Hexadecimal)) {
            WriteHexadecimal(end);
        } else if (mSpec.mGroupingCharacter) {
            WriteDigits<10>(end, "0123456789");
        } else {
            WriteDecimalBefore(end, mNumber);
        }
    }

private:
    NumberDigits(std::uint64_t number, unsigned count, unsigned groupSize, const KEFormatSpec& spec) noexcept
        : mSpec(spec), mNumber(number), mCount(count), mGroupSize(groupSize), mLength(count) {
        if (spec.mGroupingCharacter) {
            mLength += (count - 1) / groupSize;
        }
        if (HasPrefix()) {
            mLength += 2;
        }
    }

    bool HasPrefix() const noexcept {
        return mSpec.Is(KEFormatSpec::Hexadecimal) && mSpec.Is(KEFormatSpec::AlternateForm);
    }

    void WriteHexadecimal(char* end) const noexcept {
        end =
            WriteDigits<16>(end, mSpec.Is(KEFormatSpec::UpperCase) ? "0123456789ABCDEF" : "0123456789abcdef");
        if (HasPrefix()) {
            *--end = 'x';
            *--end = '0';
        }
    }

    // Returns where the first digit is.
    template <unsigned Base>
    char* WriteDigits(char* end, const char* symbols) const noexcept {
        std::uint64_t number = mNumber;
        for (unsigned i = 0; i < mCount; ++i) {
            if (mSpec.mGroupingCharacter && i != 0 && i % mGroupSize == 0) {
                *--end = mSpec.mGroupingCharacter;
            }
            *--end = symbols[number % Base];
            number /= Base;
        }
        return end;
    }

    const KEFormatSpec& mSpec;
    std::uint64_t mNumber;
    unsigned mCount; // of digits, with leading zeros
    unsigned mGroupSize;
    std::size_t mLength;
};

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

int KEFormatterBase::FmtCharacterCode(const IntNumber& number, const KEFormatSpec& spec) noexcept {
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
        char buffer[256]; // for nearly every text
        KEFormatter formatter(buffer, sizeof buffer);
        const std::size_t length = formatter.FormatArgs(format, args, count);
        // Faults are reported once more, kept for compatibility.
        if (length < sizeof buffer && (length == 0 || !formatter.HasFaults())) {
            return {buffer, length};
        }
        std::string text(length, '\0');
        KEFormatter(text.data(), length + 1).FormatArgs(format, args, count);
        return text;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace fmtimpl

template <typename CharT>
void KEFormatterImplT<CharT>::PutCharacter(char character) noexcept {
    if (mRange.mCurWritePtr < mRange.mLastPtr) {
        *mRange.mCurWritePtr++ = character;
    }
    ++mRange.mCurLen;
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
    mRange.mCurWritePtr = std::fill_n(mRange.mCurWritePtr, std::min<std::uint64_t>(count, Room()),
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
    const bool isPlain = !spec.Is(KEFormatSpec::Hexadecimal) && spec.mWidth == 0 && !spec.mSignCharacter &&
                         !spec.mGroupingCharacter;
    if (!isPlain || Room() < NumberDigits::cMaxLength) {
        FmtNumberWithSpec(number, spec);
        return;
    }
    // The path of nearly every number.
    auto magnitude = static_cast<std::uint64_t>(number.value);
    if (number.isSigned && number.value < 0) {
        PutCharacter('-');
        magnitude = 0 - magnitude;
    }
    const unsigned count = CountDecimalDigits(magnitude);
    mRange.mCurWritePtr += count;
    mRange.mCurLen += count;
    WriteDecimalBefore(mRange.mCurWritePtr, magnitude);
}

template <typename CharT>
void KEFormatterImplT<CharT>::FmtNumberWithSpec(const IntNumber& number, const KEFormatSpec& spec) noexcept {
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
    const NumberDigits digits = hexadecimal ? NumberDigits::Hexadecimal(bits, number.size, spec)
                                            : NumberDigits::Decimal(sign == '-' ? 0 - bits : bits, spec);
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
    if (Room() >= digits.Length()) {
        mRange.mCurWritePtr += digits.Length();
        mRange.mCurLen += digits.Length();
        digits.WriteBefore(mRange.mCurWritePtr);
    } else {
        char buffer[NumberDigits::cMaxLength];
        digits.WriteBefore(buffer + digits.Length());
        for (std::size_t i = 0; i < digits.Length(); ++i) {
            PutCharacter(buffer[i]);
        }
    }
    PutFill(after, spec);
}

template <typename CharT>
std::size_t KEFormatterT<CharT>::FormatArgs(const CharT* format, const ArgumentHolder* args,
                                            std::size_t count) noexcept {
    KEFormatScanner scanner(*this, format, args, count, __PRETTY_FUNCTION__);
    scanner.ScanFormat();
    this->PutTerminator();
    scanner.ReportLeftovers();
    mHasFaults = scanner.HasFaults();
    return this->mRange.mCurLen;
}

template class KEFormatterImplT<char>;
template class KEFormatterT<char>;

} // namespace kestrelon
