// A time-out in milliseconds; any negative value waits for ever.
#ifndef KESTRELON_KETIMEOUTINTERVAL_H
#define KESTRELON_KETIMEOUTINTERVAL_H

#include <cstdint>

namespace kestrelon {

using KETimeoutInterval = std::int32_t;

} // namespace kestrelon

#endif
