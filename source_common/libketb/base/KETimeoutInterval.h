// A time-out in milliseconds. Any negative value waits without limit.
#ifndef KESTRELON_KETIMEOUTINTERVAL_H
#define KESTRELON_KETIMEOUTINTERVAL_H

#include <cstdint>

namespace kestrelon {

using KETimeoutInterval = std::int32_t;

} // namespace kestrelon

#endif
