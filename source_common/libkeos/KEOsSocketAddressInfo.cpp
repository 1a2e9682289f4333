#include "KEOsSocketAddressInfo.h"

#include <utility>

#include "kert_string.h"
#include "log/KELogging.h"

namespace kestrelon {

namespace {

addrinfo WildcardHints(int family, int socketType, int flags) noexcept {
    addrinfo hints{};
    hints.ai_flags = flags | AI_PASSIVE;
    hints.ai_family = family;
    hints.ai_socktype = socketType;
    return hints;
}

} // namespace

KESTATUS KEOsSocketAddressInfo::GetAddressInfo(const char* node, const char* service,
                                               const addrinfo* hints) noexcept {
    FreeAddressInfo();
    addrinfo* list = nullptr;
    const int ret = getaddrinfo(node, service, hints, &list);
    mLookupError = ret;
    if (ret != 0) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "getaddrinfo failed, ret={}", ret);
        return KESTATUS_NO_ADDRESS;
    }
    mAddressInfo = list;
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocketAddressInfo::GetAddressInfo(const char* node, std::uint16_t port,
                                               const addrinfo* hints) noexcept {
    char service[32];
    const KESTATUS st = KEStringPrintf(service, sizeof service, "%u", static_cast<unsigned int>(port));
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "KEStringPrintf failed, st={}", st);
    }
    return GetAddressInfo(node, service, hints);
}

KESTATUS KEOsSocketAddressInfo::GetWildcardAddresses(const char* service, int family, int socketType,
                                                     int flags) noexcept {
    const addrinfo hints = WildcardHints(family, socketType, flags);
    return GetAddressInfo(nullptr, service, &hints);
}

KESTATUS KEOsSocketAddressInfo::GetWildcardAddresses(std::uint16_t port, int family, int socketType,
                                                     int flags) noexcept {
    const addrinfo hints = WildcardHints(family, socketType, flags);
    return GetAddressInfo(nullptr, port, &hints);
}

void KEOsSocketAddressInfo::FreeAddressInfo() noexcept {
    if (addrinfo* const list = std::exchange(mAddressInfo, nullptr)) {
        freeaddrinfo(list);
    }
}

} // namespace kestrelon
