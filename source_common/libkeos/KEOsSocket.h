// One socket. It owns its descriptor, which is closed on exec, and returns a status instead of errno.
//
// Every system call that fails is logged, and its errno becomes the status: EAGAIN gives
// KESTATUS_WOULD_BLOCK, any other 0xE0010000 | errno. The object stays usable after any failure. No call is
// repeated after EINTR.
//
// One thread may send while another receives and a third shuts the connection down. All else is for one
// thread at a time.
#ifndef KESTRELON_KEOSSOCKET_H
#define KESTRELON_KEOSSOCKET_H

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

#include "base/KETimeoutInterval.h"
#include "kestatus.h"

namespace kestrelon {

class KEOsSocketAddressInfo;

using KEOsSocketHandle = std::int32_t;

class KEOsSocket {
public:
    static constexpr KEOsSocketHandle InvalidSocket = -1;

    // What WaitUntilIoPossible waits for.
    static constexpr unsigned int IoRead = 0x2;
    static constexpr unsigned int IoWrite = 0x4;

    KEOsSocket() = default;
    ~KEOsSocket() { CloseSocket(); }
    KEOsSocket(const KEOsSocket&) = delete;
    KEOsSocket& operator=(const KEOsSocket&) = delete;

    // Closes the socket held so far, then makes one in blocking mode. None is held after a failure.
    [[nodiscard]] KESTATUS CreateSocket(int domain, int type, int protocol) noexcept;
    // Success when none is held. The status may be ignored: a failure is logged, and no socket is held after
    // it either.
    KESTATUS CloseSocket() noexcept;

    // A new socket blocks until this is called.
    [[nodiscard]] KESTATUS EnableNonBlockingMode(bool enable) noexcept;
    // length: of the value in bytes.
    [[nodiscard]] KESTATUS SetSocketOption(int level, int name, const void* value, socklen_t length) noexcept;

    [[nodiscard]] KESTATUS Connect(const sockaddr& address, socklen_t length) noexcept;
    [[nodiscard]] KESTATUS Bind(const sockaddr& address, socklen_t length) noexcept;
    [[nodiscard]] KESTATUS Listen(int backlog) noexcept;
    // Gives the new connection, in blocking mode, to connection, which closes what it held before. A failure
    // leaves connection as it is. address and length as for accept; both may be null.
    [[nodiscard]] KESTATUS AcceptConnection(KEOsSocket& connection, sockaddr* address,
                                            socklen_t* length) noexcept;
    // how: SHUT_RD, SHUT_WR or SHUT_RDWR.
    [[nodiscard]] KESTATUS Shutdown(int how) noexcept;

    // Creates a socket for each entry, in the order of the list, until one connects. Each failure is logged.
    // When no entry connects, no socket is held and the last status is returned. KESTATUS_NO_ADDRESS for an
    // empty list, which leaves the socket as it is.
    [[nodiscard]] KESTATUS ConnectToOneOf(const KEOsSocketAddressInfo& addresses) noexcept;
    // The same with Bind; reuseAddress sets SO_REUSEADDR first.
    [[nodiscard]] KESTATUS BindToOneOf(const KEOsSocketAddressInfo& addresses, bool reuseAddress) noexcept;

    // Waits until the socket is ready. what is IoRead, IoWrite or both. A negative timeout waits without
    // limit; KESTATUS_TIMEOUT when the time has passed. The status of EBADF without a socket, and for a
    // descriptor that is too large for select.
    [[nodiscard]] KESTATUS WaitUntilIoPossible(unsigned int what, KETimeoutInterval timeout) noexcept;

    // Transfer the bytes of one system call. received and sent are the number of bytes, 0 after a failure. A
    // short count is a success. So is the orderly end of a connection, with received 0.
    //
    // In non-blocking mode timeout limits the wait for data or for room; after the wait the call is tried
    // once more. KESTATUS_TIMEOUT, without a message, when the time has passed. In blocking mode timeout is
    // not used; KESTATUS_WOULD_BLOCK when a time-out set as a socket option has passed. flags as for recv and
    // send. Sending to a closed connection gives a status, never a signal.
    [[nodiscard]] KESTATUS ReceiveData(void* buffer, std::size_t size, std::size_t& received,
                                       KETimeoutInterval timeout = 0, int flags = 0) noexcept;
    [[nodiscard]] KESTATUS SendData(const void* data, std::size_t size, std::size_t& sent,
                                    KETimeoutInterval timeout = 0, int flags = 0) noexcept;

    // For select, getsockname and the like; InvalidSocket when none is held. It still belongs to the socket.
    KEOsSocketHandle Handle() const noexcept { return mSocket; }
    // As EnableNonBlockingMode has set it last.
    bool IsNonBlocking() const noexcept { return mIsNonBlocking; }

private:
    KEOsSocketHandle mSocket = InvalidSocket;
    bool mIsNonBlocking = false;
};

} // namespace kestrelon

#endif
