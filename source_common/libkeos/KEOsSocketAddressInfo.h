// The addresses that a host and a service stand for: owns one list of getaddrinfo.
//
// Lookups may ask name servers and block for as long as those take. One thread at a time per object.
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

    // A lookup replaces the list; node, service and hints as for getaddrinfo. When it fails the list is
    // empty, the status is KESTATUS_NO_ADDRESS, and the message tells the reason.
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

    // The head of the list, null when it is empty. It stays this object's, until the next lookup.
    const addrinfo* AddressInfo() const noexcept { return mAddressInfo; }

private:
    void FreeAddressInfo() noexcept;

    addrinfo* mAddressInfo = nullptr;
};

} // namespace kestrelon

#endif
