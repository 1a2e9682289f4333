#include "log/KELogConfiguration.h"

namespace kestrelon {

KESTATUS KELogConfiguration::ReadLogLevel(const char*, KELogLevel&) {
    return KESTATUS_NOT_AVAILABLE;
}

KESTATUS KELogConfiguration::ReadLogTargetParameter(const char*, const char*, int&) {
    return KESTATUS_NOT_AVAILABLE;
}

KESTATUS KELogConfiguration::ReadLogTargetParameter(const char*, const char*, std::string&) {
    return KESTATUS_NOT_AVAILABLE;
}

const void* KELogConfiguration::GetLogTargetContextInfo() {
    return nullptr;
}

} // namespace kestrelon
