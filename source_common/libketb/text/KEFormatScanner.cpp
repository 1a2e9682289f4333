#include "text/KEFormatScanner.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdint>
#include <limits>

#include "kert_debug.h"

namespace kestrelon {

using fmtimpl::FormatSpecError;

namespace {

bool IsBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

constexpr std::uint64_t RepeatInWord(char c) noexcept {
    return static_cast<unsigned char>(c) * (std::numeric_limits<std::uint64_t>::max() / 0xFF);
}

// Zero when no byte of word is this character. Otherwise the lowest bit that is set is in the first such
// byte.
constexpr std::uint64_t MarkCharacter(std::uint64_t word, char c) noexcept {
    const std::uint64_t difference = word ^ RepeatInWord(c);
    return (difference - RepeatInWord(1)) & ~difference & RepeatInWord('\x80');
}

// The first bracket, or end. Looks at eight characters at a time, the first one in the lowest byte.
const char* FindBracket(const char* position, const char* end) noexcept {
    while (end - position >= 8) {
        std::uint64_t word = 0;
        for (unsigned i = 0; i < 8; ++i) {
            word |= std::uint64_t{static_cast<unsigned char>(position[i])} << (8 * i);
        }
        if (const std::uint64_t marks = MarkCharacter(word, '{') | MarkCharacter(word, '}')) {
            return position + std::countr_zero(marks) / 8;
        }
        position += 8;
    }
    while (position != end && *position != '{' && *position != '}') {
        ++position;
    }
    return position;
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

void ReadAlignment(const char*& position, KEFormatSpec& spec) noexcept {
    if (position[0] != '\0' && IsAlignment(position[1])) {
        spec.mFillCharacter = position[0];
        spec.mAlignCharacter = position[1];
        position += 2;
    } else if (IsAlignment(position[0])) {
        spec.mFillCharacter = ' ';
        spec.mAlignCharacter = position[0];
        ++position;
    }
}

void ReadSignAndForm(const char*& position, KEFormatSpec& spec) noexcept {
    if (*position == '+' || *position == '-' || *position == ' ') {
        spec.mSignCharacter = *position++;
    }
    if (*position == '#') {
        spec.mFlags |= KEFormatSpec::AlternateForm;
        ++position;
    }
}

void ReadWidth(const char*& position, KEFormatSpec& spec) noexcept {
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
}

void ReadGroupingAndPrecision(const char*& position, KEFormatSpec& spec) noexcept {
    if (*position == ',' || *position == '_') {
        spec.mGroupingCharacter = *position++;
    }
    if (*position == '.') {
        ++position;
        ReadNumber(position);
        spec.mFlags |= KEFormatSpec::HasPrecision;
    }
}

// False for a character that is no type letter.
bool ApplyType(char type, KEFormatSpec& spec) noexcept {
    switch (type) {
    case 'X':
        spec.mFlags |= KEFormatSpec::UpperCase;
        [[fallthrough]];
    case 'x':
        spec.mFlags |= KEFormatSpec::Hexadecimal;
        if (spec.Is(KEFormatSpec::AlternateForm)) {
            spec.mFlags |= KEFormatSpec::FullWidth;
        }
        return true;
    case 'd':
    case 'n':
        spec.mFlags &= ~std::uint32_t{KEFormatSpec::Hexadecimal};
        return true;
    case 'c':
        spec.mFlags |= KEFormatSpec::Character;
        return true;
    case 's':
        spec.mFlags |= KEFormatSpec::String;
        return true;
    case 'e':
    case 'f':
    case 'g':
    case 'E':
    case 'F':
    case 'G':
        return true;
    default:
        return false;
    }
}

} // namespace

FormatSpecError KEFormatScanner::ExtractFormatSpec(const char*& position, KEFormatSpec& spec) noexcept {
    const char* current = position;
    ReadAlignment(current, spec);
    ReadSignAndForm(current, spec);
    ReadWidth(current, spec);
    ReadGroupingAndPrecision(current, spec);
    const char type = *current;
    if (type == '\0' || type == '}' || IsBlank(type)) {
        position = current;
        return type == '\0' ? FormatSpecError::IncompleteSpec : FormatSpecError::Success;
    }
    position = current + 1;
    return ApplyType(type, spec) ? FormatSpecError::Success : FormatSpecError::UnsupportedType;
}

// Its parts are inlined: this is the path of every message.
[[gnu::flatten]] void KEFormatScanner::ScanFormat() noexcept {
    while (*mPosition != '\0') {
        const char c = *mPosition;
        if (c != '{' && c != '}') {
            ScanText();
        } else if (mPosition[1] == c) {
            mFormatter.PutCharacter(c);
            mPosition += 2;
        } else if (c == '{') {
            ScanField();
        } else {
            ScanStrayBracket();
        }
    }
}

void KEFormatScanner::ScanText() noexcept {
    const char* const end = FindBracket(mPosition, mEnd);
    mFormatter.PutCharacters(mPosition, static_cast<std::size_t>(end - mPosition));
    mPosition = end;
}

void KEFormatScanner::ScanStrayBracket() noexcept {
    ReportFault(
        "%s: WARNING: %s: Discarding unexpected closing bracket }. FormatString follows, %u arguments.\n",
        KEModuleName(), mFunction, ArgumentCount());
    // The character behind the bracket is lost too, kept for compatibility.
    mPosition += mPosition[1] != '\0' ? 2 : 1;
}

void KEFormatScanner::ScanField() noexcept {
    ++mPosition;
    mContext.fs = {};
    mIndex = mAutomaticIndex;
    mAreDefaultsSet = false;
    mIsInField = true;
    while (mIsInField && *mPosition != '\0') {
        const char c = *mPosition;
        if (c == '}') {
            CloseField();
        } else if (c == ':') {
            ScanSpec();
        } else if (IsDigit(c)) {
            ScanIndex();
        } else if (IsBlank(c)) {
            ++mPosition;
        } else {
            ScanUnexpected();
        }
    }
}

void KEFormatScanner::ScanIndex() noexcept {
    const std::uint32_t index = ReadNumber(mPosition);
    if (index < mCount) {
        mIndex = index;
    } else {
        ReportFault("%s: ERROR: %s: Index=%u is an invalid index specification. FormatString follows, %u "
                    "arguments.\n",
                    KEModuleName(), mFunction, index, ArgumentCount());
    }
}

void KEFormatScanner::ScanSpec() noexcept {
    ++mPosition;
    if (mIndex < mCount) {
        mArgs[mIndex].mActionFunction(mContext, nullptr);
        mAreDefaultsSet = true;
    }
    switch (ExtractFormatSpec(mPosition, mContext.fs)) {
    case FormatSpecError::Success:
        break;
    case FormatSpecError::IncompleteSpec:
        ReportFault("%s: ERROR: %s: Incomplete format specification. FormatString follows, %u arguments.\n",
                    KEModuleName(), mFunction, ArgumentCount());
        break;
    case FormatSpecError::UnsupportedType:
        ReportFault("%s: WARNING: %s: Ignoring unsupported format specifier %d. FormatString follows, %u "
                    "arguments.\n",
                    KEModuleName(), mFunction, CharacterCode(mPosition[-1]), ArgumentCount());
        break;
    }
}

void KEFormatScanner::ScanUnexpected() noexcept {
    ReportFault("%s: WARNING: %s: Ignoring unexpected character %d within {} replacement field. FormatString "
                "follows, %u arguments.\n",
                KEModuleName(), mFunction, CharacterCode(*mPosition), ArgumentCount());
    ++mPosition;
}

void KEFormatScanner::CloseField() noexcept {
    ++mPosition;
    mIsInField = false;
    if (mIndex >= mCount) {
        ReportFault(
            "%s: ERROR: %s: No argument for {} replacement field. FormatString follows, %u arguments.\n",
            KEModuleName(), mFunction, ArgumentCount());
        return;
    }
    const fmtimpl::ArgumentHolder& argument = mArgs[mIndex];
    if (!mAreDefaultsSet) {
        argument.mActionFunction(mContext, nullptr);
    }
    if (argument.mActionFunction(mContext, argument.mArgPtr) != 0) {
        ReportFault("%s: ERROR: %s: Conversion of argument %u failed. FormatString follows, %u arguments.\n",
                    KEModuleName(), mFunction, static_cast<unsigned>(mIndex), ArgumentCount());
    }
    mAutomaticIndex = mIndex + 1;
    mUsedCount = std::max(mUsedCount, mAutomaticIndex);
}

void KEFormatScanner::ReportLeftovers() noexcept {
    if (mCount > mUsedCount) {
        ReportFault(
            "%s: ERROR: %s: More arguments than {} replacement fields. FormatString follows, %u arguments.\n",
            KEModuleName(), mFunction, ArgumentCount());
    }
    if (mIsInField) {
        ReportFault("%s: ERROR: %s: Missing closing bracket }. FormatString follows, %u arguments.\n",
                    KEModuleName(), mFunction, ArgumentCount());
    }
}

void KEFormatScanner::ReportFault(const char* message, ...) noexcept {
    mHasFaults = true;
    std::va_list args;
    va_start(args, message);
    KEOutputDebugStringV(message, args);
    va_end(args);
    KEOutputDebugString("%s\n", mFormat);
}

} // namespace kestrelon
