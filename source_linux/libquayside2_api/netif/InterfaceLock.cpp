#include "netif/InterfaceLock.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "common/ProcessSearch.h"
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
    std::string Name() const { return {address.sun_path + 1, size - offsetof(sockaddr_un, sun_path) - 1}; }
    const sockaddr* Get() const noexcept { return reinterpret_cast<const sockaddr*>(&address); }
};

// The inode of the socket with this abstract name, 0 when there is none. A line of the kernel's list of such
// sockets: address, four numbers, state, inode, and the name behind '@'.
unsigned long long InodeOfSocket(const std::string& name) {
    std::ifstream list("/proc/thread-self/net/unix");
    for (std::string line; std::getline(list, line);) {
        std::istringstream words(line);
        std::string skipped, listedName;
        unsigned long long inode = 0;
        if (words >> skipped >> skipped >> skipped >> skipped >> skipped >> skipped >> inode >> listedName &&
            listedName == "@" + name) {
            return inode;
        }
    }
    return 0;
}

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

std::string InterfaceLock::Holder(unsigned interfaceIndex, Direction direction) {
    const auto inode = InodeOfSocket(LockAddress(interfaceIndex, direction).Name());
    return inode == 0 ? std::string() : ProcessWithOpen("socket:[" + std::to_string(inode) + "]");
}

} // namespace quayside2::netif
