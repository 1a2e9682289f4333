// Levels of log messages, most severe first. A logger of level G emits a message of level L when L <= G, so
// that a message of level KEALWAYS passes every logger, even one that is off.
#ifndef KESTRELON_KELOGLEVEL_H
#define KESTRELON_KELOGLEVEL_H

#include <cstdint>

namespace kestrelon {

enum KELogLevel : std::int32_t {
    KEOFF = 0,
    KEALWAYS = 0,
    KEFATAL = 1,
    KEERROR = 2,
    KEWARN = 3,
    KEINFO = 4,
    KEVERBOSE = 5,
    KETRACE = 6,
    KEDUMP = 7,
    KEMAXLEVEL = 1000,
};

// "FATAL", "ERROR" or "WARN" for these three levels, "INFO" for every other value.
const char* KEGetLogLevelName(KELogLevel level) noexcept;

} // namespace kestrelon

#endif
