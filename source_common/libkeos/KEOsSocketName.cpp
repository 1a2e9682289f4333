#include "KEOsSocketName.h"

#include <netdb.h>

#include <exception>

#include "log/KELogging.h"

namespace kestrelon {

namespace {

constexpr socklen_t cNameSize = 1025; // of the longest name that getnameinfo gives, with its terminator

KESTATUS LogFailure(const KELogMsgHeaderTag& function, int ret) noexcept {
    KEOutputLogMessage(logger::Global, KEERROR, function, "getnameinfo failed, ret={}", ret);
    return KESTATUS_INVALID_ADDRESS;
}

KESTATUS SetName(std::string& name, const char* text) noexcept {
    try {
        name = std::string(text);
        return KESTATUS_SUCCESS;
    } catch (const std::exception&) {
        return KESTATUS_NO_MEMORY;
    }
}

} // namespace

KESTATUS KEOsGetSocketHostName(const sockaddr& address, socklen_t length, std::string& name,
                               int flags) noexcept {
    char host[cNameSize];
    const int ret = getnameinfo(&address, length, host, sizeof host, nullptr, 0, flags);
    return ret == 0 ? SetName(name, host) : LogFailure(KE_FUNCTION_TAG, ret);
}

KESTATUS KEOsGetSocketServiceName(const sockaddr& address, socklen_t length, std::string& name,
                                  int flags) noexcept {
    char service[cNameSize];
    const int ret = getnameinfo(&address, length, nullptr, 0, service, sizeof service, flags);
    return ret == 0 ? SetName(name, service) : LogFailure(KE_FUNCTION_TAG, ret);
}

} // namespace kestrelon
