#include "netif/InterfaceLock.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "netif/NetifQuery.h"

namespace quayside2::netif {

namespace {

// A name begins with a zero byte and has no terminator.
struct LockAddress {
    sockaddr_un address = {};
    socklen_t size = 0;

    LockAddress(unsigned interfaceIndex, InterfaceLock::Direction direction) noexcept {
        address.sun_family = AF_UNIX;
        const char* const use = direction == InterfaceLock::Direction::Receive ? "receive" : "transmit";
        const int length = std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1,
                                         "quayside2-interface-%u-%s", interfaceIndex, use);
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(length));
    }
    const sockaddr* Get() const noexcept { return reinterpret_cast<const sockaddr*>(&address); }
};

} // namespace

KESTATUS InterfaceLock::Take(unsigned interfaceIndex, Direction direction) {
    const int error = mSocket.OpenSocket(AF_UNIX, SOCK_DGRAM, 0);
    if (error != 0) {
        return StatusForError(error);
    }
    const LockAddress name(interfaceIndex, direction);
    if (bind(mSocket.Descriptor(), name.Get(), name.size) == 0) {
        return KESTATUS_SUCCESS;
    }
    return errno == EADDRINUSE ? KESTATUS_IN_USE : StatusForError(errno);
}

KESTATUS InterfaceLock::Ask(unsigned interfaceIndex, Direction direction, bool& isTaken) {
    ProcessFile socket;
    const int error = socket.OpenSocket(AF_UNIX, SOCK_DGRAM, 0);
    if (error != 0) {
        return StatusForError(error);
    }
    const LockAddress name(interfaceIndex, direction);
    // ECONNREFUSED means that nobody has the name. With any other error somebody has it.
    isTaken = connect(socket.Descriptor(), name.Get(), name.size) == 0 || errno != ECONNREFUSED;
    return KESTATUS_SUCCESS;
}

} // namespace quayside2::netif
