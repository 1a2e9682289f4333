// Network addresses as plain bytes in wire order.
#ifndef KESTRELON_TNETADDRESS_H
#define KESTRELON_TNETADDRESS_H

#include <cstdint>

namespace kestrelon {

struct TNET_EthernetMacAddress {
    std::uint8_t mac[6]; // first byte on the wire first

    friend bool operator==(const TNET_EthernetMacAddress&, const TNET_EthernetMacAddress&) = default;
};
static_assert(sizeof(TNET_EthernetMacAddress) == 6);

struct TNET_IPv4Address {
    std::uint8_t ip[4]; // network order

    friend bool operator==(const TNET_IPv4Address&, const TNET_IPv4Address&) = default;
};
static_assert(sizeof(TNET_IPv4Address) == 4);

} // namespace kestrelon

#endif
