// Who sends and who receives on an interface: one holder for each direction.
//
// The lock is the name of a socket in the abstract name space. It belongs to the network namespace, as the
// interface does. The kernel frees it when its holder dies, however that happens.
#ifndef QUAYSIDE2_NETIF_INTERFACELOCK_H
#define QUAYSIDE2_NETIF_INTERFACELOCK_H

#include <string>

#include "common/ProcessFile.h"
#include "kestatus.h"

namespace quayside2::netif {

class InterfaceLock {
public:
    enum class Direction { Receive, Transmit };

    // KESTATUS_IN_USE when somebody holds it, in this or another process.
    [[nodiscard]] KESTATUS Take(unsigned interfaceIndex, Direction direction);

    // Asks whether somebody holds it, without taking it: nobody else is refused meanwhile.
    [[nodiscard]] static KESTATUS Ask(unsigned interfaceIndex, Direction direction, bool& isTaken);

    // The process that holds it, as ProcessSearch gives it; empty when it is not known.
    static std::string Holder(unsigned interfaceIndex, Direction direction);

private:
    ProcessFile mSocket;
};

} // namespace quayside2::netif

#endif
