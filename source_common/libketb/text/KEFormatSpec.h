// How one {} replacement field of a format string prints its argument.
#ifndef KESTRELON_KEFORMATSPEC_H
#define KESTRELON_KEFORMATSPEC_H

#include <cstdint>

namespace kestrelon {

// A plain value. All zero means a field without a format spec.
struct KEFormatSpec {
    enum Flags : std::uint32_t {
        Hexadecimal = 0x2,
        AlternateForm = 0x4,  // "#": "0x" in front of hexadecimal digits
        UpperCase = 0x8,      // upper-case hexadecimal digits
        FullWidth = 0x10,     // hexadecimal: leading zeros up to the width of the argument's type
        GroupByEight = 0x20,  // hexadecimal: groups of 8 digits instead of 4; no format letter sets it
        Character = 0x40,     // "c"
        String = 0x80,        // "s"
        HasPrecision = 0x400, // a precision was given; it has no effect
    };

    std::uint32_t mFlags = 0;
    std::uint32_t mWidth = 0;    // minimum field width in characters, 0: none
    char mFillCharacter = 0;     // 0: blank
    char mAlignCharacter = 0;    // one of < > ^ =, 0: default (right)
    char mSignCharacter = 0;     // one of + - blank, 0: none
    char mGroupingCharacter = 0; // , or _, 0: no grouping

    bool Is(Flags flag) const noexcept { return (mFlags & flag) != 0; }
};

} // namespace kestrelon

#endif
