#include "values/KEDateTime.h"

#include <cstdio>

namespace kestrelon {

int KEDateTime::FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const noexcept {
    // Fields beyond their natural range take a digit more than usual: 1023 milliseconds, the year 65535.
    char text[sizeof "65535-15-31 31:63:63.1023"];
    static_cast<void>(std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%03u", Year(), Month(),
                                    Day(), Hours(), Minutes(), Seconds(), Milliseconds()));
    return fmt.FmtString(text, spec);
}

} // namespace kestrelon
