// A date and a time of day in 64 bits, without a time zone.
#ifndef KESTRELON_KEDATETIME_H
#define KESTRELON_KEDATETIME_H

#include <cstdint>

#include "text/KEFormatter.h"

namespace kestrelon {

// A plain value. The fields are not checked: a month of 15 prints as 15.
class KEDateTime {
public:
    unsigned Milliseconds() const noexcept { return Field(0, 10); }
    unsigned Seconds() const noexcept { return Field(10, 6); }
    unsigned Minutes() const noexcept { return Field(16, 6); }
    unsigned Hours() const noexcept { return Field(22, 5); }
    unsigned Day() const noexcept { return Field(27, 5); }   // of the month, from 1
    unsigned Month() const noexcept { return Field(32, 4); } // from 1
    unsigned Year() const noexcept { return Field(36, 16); }

    // 2024-03-07 09:05:01.042
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const noexcept;

    std::uint64_t mDateTime = 0; // the fields above from bit 0 on; the 12 highest bits are not used

private:
    unsigned Field(unsigned firstBit, unsigned bits) const noexcept {
        return static_cast<unsigned>(mDateTime >> firstBit) & ((1u << bits) - 1);
    }
};
static_assert(sizeof(KEDateTime) == 8);

} // namespace kestrelon

#endif
