// The Linux network interfaces that carry Ethernet frames, by packet sockets (packet(7)).
//
// Opening one to send or receive needs CAP_NET_RAW; listing them and reading their properties needs nothing.
#ifndef QUAYSIDE2_NETIF_NETIFBACKEND_H
#define QUAYSIDE2_NETIF_NETIFBACKEND_H

#include "common/DeviceBackend.h"

namespace quayside2::netif {

class NetifBackend : public DeviceBackend {
public:
    // The Ethernet interfaces of this network namespace by interface index, the loopback interface last. None
    // when the kernel does not list them, for example in a sandbox.
    [[nodiscard]] KESTATUS Enumerate(DeviceInstances& instances) const override;
};

} // namespace quayside2::netif

#endif
