#include "commands/BuildTime.h"

namespace flowlane {

const char* BuildDate() noexcept {
    return __DATE__;
}

const char* BuildTimeOfDay() noexcept {
    return __TIME__;
}

} // namespace flowlane
