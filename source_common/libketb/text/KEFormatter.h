// The formatter: turns a format string with {} replacement fields and typed arguments into text.
//
// Format strings: "{{" and "}}" are literal brackets; a field is {[index][:spec]} with
// spec = [[fill]align][sign][#][0][width][grouping][.precision][type], align one of < > ^ =, sign one of
// + - blank, grouping , or _, type one of x X d n c s e f g E F G. It differs from std::format: texts are
// right-aligned by default; a char prints as a number unless the type is c; "#" with x or X adds zeros up to
// the full width of the argument's type; a precision has no effect.
//
// A bad format string never stops the formatter. It writes what it can and reports each fault to the system
// log (kert_debug.h), followed by the format string. Nothing is thrown. One thread at a time per formatter.
#ifndef KESTRELON_KEFORMATTER_H
#define KESTRELON_KEFORMATTER_H

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "kestatus.h"
#include "text/KEFormatSpec.h"

namespace kestrelon {

namespace fmtimpl {

// An integer argument, widened.
struct IntNumber {
    std::int64_t value; // of unsigned 64-bit types too, as isSigned says
    std::uint8_t size;  // of the argument's type in bytes: 1, 2, 4 or 8
    bool isSigned;
};

// The buffer that gets the formatted characters; it belongs to the caller. With null pointers nothing is
// written, only counted.
template <typename CharT>
struct StringBufferRangeData {
    CharT* mCurWritePtr = nullptr;
    CharT* mLastPtr = nullptr; // one past the last character that may be written
    std::size_t mCurLen = 0;   // characters produced, also those that did not fit
};

} // namespace fmtimpl

// The interface through which the formatting action of an argument's type prints. Operations that print a
// text return 0, or non-zero when the text could not be converted.
class KEFormatterBase {
public:
    // Prints text with the width, fill and alignment of spec; a null pointer prints "<<nullptr>>".
    virtual int FmtString(const char* text, const KEFormatSpec& spec) noexcept = 0;
    virtual int FmtString(const char16_t* text, const KEFormatSpec& spec) noexcept = 0;
    virtual int FmtString(const wchar_t* text, const KEFormatSpec& spec) noexcept = 0;
    // Copies text or a character without formatting.
    virtual void PutString(const char* text) noexcept = 0;
    virtual void PutCharacter(char character) noexcept = 0;

protected:
    virtual void FmtIntNumberImpl(const fmtimpl::IntNumber& number, const KEFormatSpec& spec) noexcept = 0;
    ~KEFormatterBase() = default;

public:
    int FmtCharacter(char character, const KEFormatSpec& spec) noexcept;
    int FmtCharacter(char16_t character, const KEFormatSpec& spec) noexcept;
    int FmtCharacter(wchar_t character, const KEFormatSpec& spec) noexcept;

    int FmtBool(bool value, const KEFormatSpec& spec) noexcept;

    int FmtInteger(char value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(signed char value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtInteger(unsigned char value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtInteger(short value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(unsigned short value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtInteger(char16_t value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(int value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(unsigned int value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtInteger(char32_t value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(long value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(unsigned long value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtInteger(long long value, const KEFormatSpec& spec) noexcept { return FmtAnyInteger(value, spec); }
    int FmtInteger(unsigned long long value, const KEFormatSpec& spec) noexcept {
        return FmtAnyInteger(value, spec);
    }
    int FmtIntNumber(const fmtimpl::IntNumber& number, const KEFormatSpec& spec) noexcept {
        if (spec.Is(KEFormatSpec::Character)) {
            return FmtCharacterCode(number, spec);
        }
        FmtIntNumberImpl(number, spec);
        return 0;
    }

    // Hexadecimal digits of the value's full width, without prefix.
    void FmtHexByte(std::uint8_t value, bool upperCase) noexcept;
    void FmtHexWord(std::uint16_t value, bool upperCase) noexcept;
    void FmtHexDword(std::uint32_t value, bool upperCase) noexcept;
    void FmtHexQword(std::uint64_t value, bool upperCase) noexcept;

    // As an unsigned 8-byte integer.
    int FmtPointer(const void* pointer, const KEFormatSpec& spec) noexcept;

    // The C library's "%f", printed as a text.
    int FmtFloatingPoint(float value, const KEFormatSpec& spec) noexcept;
    int FmtFloatingPoint(double value, const KEFormatSpec& spec) noexcept;
    int FmtFloatingPoint(long double value, const KEFormatSpec& spec) noexcept;

private:
    template <typename T>
    int FmtAnyInteger(T value, const KEFormatSpec& spec) noexcept {
        return FmtIntNumber({static_cast<std::int64_t>(value), sizeof(T), std::is_signed_v<T>}, spec);
    }
    int FmtCharacterCode(const fmtimpl::IntNumber& number, const KEFormatSpec& spec) noexcept;
    void FmtHexDigits(std::uint64_t value, std::uint8_t size, bool upperCase) noexcept;
};

// The formatter and the format spec of the current field, for a formatting action.
struct KEFormatterContext {
    KEFormatterBase& fmt;
    KEFormatSpec fs;
};

// A status argument. It prints as 0xe0000003(KESTATUS_TIMEOUT).
struct KEFormatArgKEStatus {
    explicit KEFormatArgKEStatus(KESTATUS status) noexcept : mStatus(status) {}
    KESTATUS mStatus;
};

// The text arguments.
using KEFormatArgChar = const char*;
using KEFormatArgChar16 = const char16_t*;
using KEFormatArgWChar = const wchar_t*;

namespace fmtimpl {

// One argument of a format call, and the formatting action of its type.
struct ArgumentHolder {
    const void* mArgPtr;
    int (*mActionFunction)(KEFormatterContext& context, const void* arg);
};

int FormatStatus(KEFormatterContext& context, const KEFormatArgKEStatus* status) noexcept;
int FormatCharArray(KEFormatterContext& context, const char* text, std::size_t size) noexcept;

template <typename T>
concept FormattableObject = requires(const T& object, KEFormatterBase& fmt, const KEFormatSpec& spec) {
    { object.FormatObject(fmt, spec) } -> std::same_as<int>;
};

template <typename T>
inline constexpr bool cNoFormattingAction = false;

// The formatting action of the type T. With a null arg it puts the type's default flags into the context's
// format spec, otherwise it prints *arg. Returns 0, or non-zero when the argument could not be converted. A
// type of the application has a FormatObject or specialises this template.
template <typename T>
int DoFormatAction(KEFormatterContext& context, const void* arg) {
    if constexpr (std::is_same_v<T, KEFormatArgKEStatus>) {
        return FormatStatus(context, static_cast<const KEFormatArgKEStatus*>(arg));
    } else {
        if (!arg) {
            return 0;
        }
        const T& value = *static_cast<const T*>(arg);
        if constexpr (FormattableObject<T>) {
            return value.FormatObject(context.fmt, context.fs);
        } else if constexpr (std::is_same_v<T, bool>) {
            return context.fmt.FmtBool(value, context.fs);
        } else if constexpr (std::is_same_v<T, wchar_t>) {
            return context.fmt.FmtInteger(static_cast<char32_t>(value), context.fs);
        } else if constexpr (std::is_integral_v<T>) {
            return context.fmt.FmtInteger(value, context.fs);
        } else if constexpr (std::is_floating_point_v<T>) {
            return context.fmt.FmtFloatingPoint(value, context.fs);
        } else if constexpr (std::is_same_v<T, std::string>) {
            return context.fmt.FmtString(value.c_str(), context.fs);
        } else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, char>) {
            return FormatCharArray(context, value, std::extent_v<T>);
        } else if constexpr (std::is_convertible_v<T, KEFormatArgChar> ||
                             std::is_convertible_v<T, KEFormatArgChar16> ||
                             std::is_convertible_v<T, KEFormatArgWChar>) {
            return context.fmt.FmtString(value, context.fs);
        } else if constexpr (std::is_pointer_v<T>) {
            return context.fmt.FmtPointer(value, context.fs);
        } else {
            static_assert(cNoFormattingAction<T>, "this type of argument cannot be formatted");
            return 1;
        }
    }
}

template <typename T>
ArgumentHolder MakeArgument(const T& arg) noexcept {
    return {&arg, &DoFormatAction<T>};
}

// Most texts are short, and then a call of the C library costs more than the copy.
inline void CopyCharacters(char* to, const char* from, std::size_t count) noexcept {
    if (count > 32) {
        std::memcpy(to, from, count);
    } else if (count >= 16) { // the two halves may overlap
        std::memcpy(to, from, 16);
        std::memcpy(to + count - 16, from + count - 16, 16);
    } else if (count >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + count - 8, from + count - 8, 8);
    } else if (count >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + count - 4, from + count - 4, 4);
    } else if (count != 0) {
        to[0] = from[0];
        to[count / 2] = from[count / 2];
        to[count - 1] = from[count - 1];
    }
}

// An array of holders with room for no arguments at all.
template <typename... Args>
struct ArgumentArray {
    ArgumentHolder mHolders[sizeof...(Args) + 1];
    static constexpr std::size_t cCount = sizeof...(Args);
    explicit ArgumentArray(const Args&... args) noexcept : mHolders{MakeArgument(args)..., {}} {}
};

} // namespace fmtimpl

// The formatter over a buffer range. Instantiated for char.
template <typename CharT>
class KEFormatterImplT : public KEFormatterBase {
public:
    // A formatter that only counts.
    KEFormatterImplT() = default;
    // Writes at most size - 1 characters and a terminator to buffer; size 0 only counts.
    KEFormatterImplT(CharT* buffer, std::size_t size) noexcept {
        if (buffer && size != 0) {
            mRange.mCurWritePtr = buffer;
            mRange.mLastPtr = buffer + (size - 1);
        }
    }

    // Not inlined, for g++ would then warn of short constant texts that a longer copy could read beyond.
    [[gnu::noinline]] int FmtString(const char* text, const KEFormatSpec& spec) noexcept override;
    int FmtString(const char16_t* text, const KEFormatSpec& spec) noexcept override;
    int FmtString(const wchar_t* text, const KEFormatSpec& spec) noexcept override;
    void PutString(const char* text) noexcept override;
    void PutCharacter(char character) noexcept override;
    // Copies count characters without formatting.
    void PutCharacters(const char* characters, std::size_t count) noexcept {
        const std::size_t written = std::min(count, Room());
        fmtimpl::CopyCharacters(mRange.mCurWritePtr, characters, written);
        mRange.mCurWritePtr += written;
        mRange.mCurLen += count;
    }

protected:
    void FmtIntNumberImpl(const fmtimpl::IntNumber& number, const KEFormatSpec& spec) noexcept override;
    ~KEFormatterImplT() = default;

    void PutTerminator() noexcept;

    fmtimpl::StringBufferRangeData<CharT> mRange;

private:
    // Characters that still fit.
    std::size_t Room() const noexcept {
        return static_cast<std::size_t>(mRange.mLastPtr - mRange.mCurWritePtr);
    }
    void FmtNumberWithSpec(const fmtimpl::IntNumber& number, const KEFormatSpec& spec) noexcept;
    void PutFill(std::uint64_t count, const KEFormatSpec& spec) noexcept;
};

template <typename CharT>
class KEFormatterT final : public KEFormatterImplT<CharT> {
public:
    using KEFormatterImplT<CharT>::KEFormatterImplT;

    // Formats count arguments, writes a terminator if the range has room for it, and returns the length of
    // the whole text, including what did not fit.
    std::size_t FormatArgs(const CharT* format, const fmtimpl::ArgumentHolder* args,
                           std::size_t count) noexcept;
    // Whether the last call has reported a fault of its format string to the system log.
    bool HasFaults() const noexcept { return mHasFaults; }

private:
    bool mHasFaults = false;
};

extern template class KEFormatterImplT<char>;
extern template class KEFormatterT<char>;

using KEFormatter = KEFormatterT<char>;

namespace fmtimpl {
std::string FormatToStdString(const char* format, const ArgumentHolder* args, std::size_t count) noexcept;
}

// Formats into a string; an empty one when memory is short. Each fault of a format string is reported twice,
// unless the text is empty: a long text, or one with faults, is formatted twice.
template <typename CharT, typename... Args>
std::string KEStdStringFormat(const CharT* format, const Args&... args) noexcept {
    const fmtimpl::ArgumentArray<Args...> holders(args...);
    return fmtimpl::FormatToStdString(format, holders.mHolders, holders.cCount);
}

} // namespace kestrelon

#endif
