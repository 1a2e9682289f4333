// Questions about one Linux network interface, asked by its index, so that a rename changes nothing.
//
// From any thread. socket is any open socket of the interface's network namespace.
#ifndef QUAYSIDE2_NETIF_NETIFQUERY_H
#define QUAYSIDE2_NETIF_NETIFQUERY_H

#include <cstdint>
#include <string>

#include "kestatus.h"

namespace quayside2::netif {

// The status for an errno value of a packet socket: KESTATUS_DEVICE_REMOVED when it means that the interface
// is gone, KESTATUS_ADMIN_PRIVILEGES_REQUIRED when a privilege is missing, KESTATUS_NO_MEMORY.
[[nodiscard]] KESTATUS StatusForError(int error) noexcept;

// Largest frame without its 14-byte header, in bytes.
[[nodiscard]] KESTATUS QueryMtu(int socket, unsigned index, std::uint32_t& mtu) noexcept;

// Whether the interface is up and has a carrier.
[[nodiscard]] KESTATUS QueryIsLinkUp(int socket, unsigned index, bool& isUp) noexcept;

// The word of QBX_PROPERTY_STATE for a handle that sends or receives: "link down", "removed" or "in use".
[[nodiscard]] KESTATUS QueryStateInUse(unsigned index, std::string& state);

// The driver of the interface and its bus, "virtio_net (0000:00:03.0)" for example. Empty when the driver
// does not say.
std::string QueryDriver(int socket, const std::string& name);

} // namespace quayside2::netif

#endif
