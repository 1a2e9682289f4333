#include "values/KEIpv4Address.h"

#include <cstdint>
#include <cstdio>

namespace kestrelon {

int KEIpv4Address::FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const noexcept {
    char text[sizeof "255.255.255.255"];
    const std::uint8_t(&ip)[cSize] = mIpv4Addr.ip;
    static_cast<void>(std::snprintf(text, sizeof text, "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]));
    return fmt.FmtString(text, spec);
}

} // namespace kestrelon
