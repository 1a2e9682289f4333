// An IPv4 address that can be printed.
#ifndef KESTRELON_KEIPV4ADDRESS_H
#define KESTRELON_KEIPV4ADDRESS_H

#include <cstddef>

#include "text/KEFormatter.h"
#include "values/TNetAddress.h"

namespace kestrelon {

// A plain value.
class KEIpv4Address {
public:
    static constexpr std::size_t cSize = 4;

    // Four decimal numbers separated by ".".
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const noexcept;

    TNET_IPv4Address mIpv4Addr{}; // network order
};
static_assert(sizeof(KEIpv4Address) == KEIpv4Address::cSize);

} // namespace kestrelon

#endif
