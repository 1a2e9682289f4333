// The addresses of a host and a service. An object owns one list of getaddrinfo.
//
// A lookup may ask name servers and blocks for as long as they take. One thread at a time per object.
#ifndef KESTRELON_KEOSSOCKETADDRESSINFO_H
#define KESTRELON_KEOSSOCKETADDRESSINFO_H

#include <netdb.h>

#include <cstdint>

#include "kestatus.h"

namespace kestrelon {

class KEOsSocketAddressInfo {
public:
    KEOsSocketAddressInfo() = default;
    ~KEOsSocketAddressInfo() { FreeAddressInfo(); }
    KEOsSocketAddressInfo(const KEOsSocketAddressInfo&) = delete;
    KEOsSocketAddressInfo& operator=(const KEOsSocketAddressInfo&) = delete;

    // A lookup replaces the list. node, service and hints as for getaddrinfo. When it fails, the list is
    // empty and the status is KESTATUS_NO_ADDRESS; the log has the reason.
    [[nodiscard]] KESTATUS GetAddressInfo(const char* node, const char* service,
                                          const addrinfo* hints) noexcept;
    // port in host byte order.
    [[nodiscard]] KESTATUS GetAddressInfo(const char* node, std::uint16_t port,
                                          const addrinfo* hints) noexcept;

    // The addresses to bind a server's socket to. family: AF_...; socketType: SOCK_...; flags: AI_...
    [[nodiscard]] KESTATUS GetWildcardAddresses(const char* service, int family, int socketType,
                                                int flags) noexcept;
    [[nodiscard]] KESTATUS GetWildcardAddresses(std::uint16_t port, int family, int socketType,
                                                int flags) noexcept;

    // The error of getaddrinfo (EAI_...) of the last lookup, 0 when it has succeeded.
    int LookupError() const noexcept { return mLookupError; }

    // The head of the list, null when it is empty. It belongs to this object and is valid until the next
    // lookup.
    const addrinfo* AddressInfo() const noexcept { return mAddressInfo; }

private:
    void FreeAddressInfo() noexcept;

    addrinfo* mAddressInfo = nullptr;
    int mLookupError = 0;
};

} // namespace kestrelon

#endif
