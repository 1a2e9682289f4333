#include "KEOsSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "KEOsSocketAddressInfo.h"
#include "log/KELogging.h"

namespace kestrelon {

namespace {

KESTATUS StatusFromErrno(int err) noexcept {
    if (err == EAGAIN) {
        return KESTATUS_WOULD_BLOCK;
    }
    return err != 0 ? KEStatusFromErrno(err) : KESTATUS_FAILED;
}

// KEOutputSystemError with the statuses of a socket. format has one field, for err.
KESTATUS Failure(const KELogMsgHeaderTag& function, const char* format, int err) noexcept {
    KEOutputSystemError(function, format, err);
    return StatusFromErrno(err);
}

// The same for a transfer, which logs its failures on a lower level.
KESTATUS TransferFailure(const KELogMsgHeaderTag& function, const char* format, int err) noexcept {
    KEOutputLogMessage(logger::Global, KEINFO, function, format, err);
    return StatusFromErrno(err);
}

// Warns when st, the result of a step, is a failure; returns st. format has one field, for st.
KESTATUS WarnIfFailed(const KELogMsgHeaderTag& function, const char* format, KESTATUS st) noexcept {
    if (st != KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Global, KEWARN, function, format, KEFormatArgKEStatus(st));
    }
    return st;
}

// Creates a socket for each address until use(address) succeeds. When it never does, the socket is closed and
// the last status returned.
template <typename Use>
KESTATUS UseOneOf(KEOsSocket& socket, const KEOsSocketAddressInfo& addresses,
                  const KELogMsgHeaderTag& function, const Use& use) noexcept {
    const addrinfo* address = addresses.AddressInfo();
    if (!address) {
        return KESTATUS_NO_ADDRESS;
    }
    KESTATUS st = KESTATUS_SUCCESS;
    for (; address; address = address->ai_next) {
        st =
            WarnIfFailed(function, "CreateSocket failed, st={}",
                         socket.CreateSocket(address->ai_family, address->ai_socktype, address->ai_protocol));
        if (st == KESTATUS_SUCCESS) {
            st = use(*address);
        }
        if (st == KESTATUS_SUCCESS) {
            return KESTATUS_SUCCESS;
        }
    }
    socket.CloseSocket();
    return st;
}

// One system call, in non-blocking mode a wait for what it needs, and the call again. transfer() gives the
// call's result.
template <typename Transfer>
KESTATUS TransferData(KEOsSocket& socket, const Transfer& transfer, unsigned int direction,
                      KETimeoutInterval timeout, std::size_t& transferred, const KELogMsgHeaderTag& function,
                      const char* firstFailed, const char* secondFailed) noexcept {
    transferred = 0;
    ssize_t count = transfer();
    if (count < 0) {
        const int err = errno;
        if (err != EAGAIN) {
            return TransferFailure(function, firstFailed, err);
        }
        if (!socket.IsNonBlocking()) {
            return KESTATUS_WOULD_BLOCK;
        }
        const KESTATUS st = socket.WaitUntilIoPossible(direction, timeout);
        if (st != KESTATUS_SUCCESS) {
            return st == KESTATUS_TIMEOUT
                       ? st
                       : KEOutputFailure(logger::Global, function, "WaitUntilIoPossible failed, err={}", st);
        }
        count = transfer();
        if (count < 0) {
            return TransferFailure(function, secondFailed, errno);
        }
    }
    transferred = static_cast<std::size_t>(count);
    return KESTATUS_SUCCESS;
}

} // namespace

KESTATUS KEOsSocket::CreateSocket(int domain, int type, int protocol) noexcept {
    CloseSocket();
    const int descriptor = socket(domain, type | SOCK_CLOEXEC, protocol);
    if (descriptor == -1) {
        return Failure(KE_FUNCTION_TAG, "socket failed, err={}", errno);
    }
    mSocket = descriptor;
    mIsNonBlocking = false;
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::CloseSocket() noexcept {
    const KEOsSocketHandle descriptor = std::exchange(mSocket, InvalidSocket);
    if (descriptor != InvalidSocket && close(descriptor) != 0) {
        return Failure(KE_FUNCTION_TAG, "socket failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::EnableNonBlockingMode(bool enable) noexcept {
    const int flags = fcntl(mSocket, F_GETFL);
    if (flags == -1) {
        return Failure(KE_FUNCTION_TAG, "fcntl(get) failed, err={}", errno);
    }
    if (fcntl(mSocket, F_SETFL, enable ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == -1) {
        return Failure(KE_FUNCTION_TAG, "fcntl(set) failed, err={}", errno);
    }
    mIsNonBlocking = enable;
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::SetSocketOption(int level, int name, const void* value, socklen_t length) noexcept {
    if (setsockopt(mSocket, level, name, value, length) != 0) {
        return Failure(KE_FUNCTION_TAG, "setsockopt failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::Connect(const sockaddr& address, socklen_t length) noexcept {
    if (connect(mSocket, &address, length) != 0) {
        return Failure(KE_FUNCTION_TAG, "connect failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::Bind(const sockaddr& address, socklen_t length) noexcept {
    if (bind(mSocket, &address, length) != 0) {
        return Failure(KE_FUNCTION_TAG, "bind failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::Listen(int backlog) noexcept {
    if (listen(mSocket, backlog) != 0) {
        return Failure(KE_FUNCTION_TAG, "listen failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::AcceptConnection(KEOsSocket& connection, sockaddr* address, socklen_t* length) noexcept {
    const int descriptor = accept4(mSocket, address, length, SOCK_CLOEXEC);
    if (descriptor == -1) {
        return Failure(KE_FUNCTION_TAG, "accept failed, err={}", errno);
    }
    connection.CloseSocket();
    connection.mSocket = descriptor;
    connection.mIsNonBlocking = false;
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::Shutdown(int how) noexcept {
    if (shutdown(mSocket, how) != 0) {
        return Failure(KE_FUNCTION_TAG, "shutdown failed, err={}", errno);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::ConnectToOneOf(const KEOsSocketAddressInfo& addresses) noexcept {
    const KELogMsgHeaderTag& function = KE_FUNCTION_TAG;
    const auto connectTo = [&](const addrinfo& address) {
        return WarnIfFailed(function, "Connect failed, st={}", Connect(*address.ai_addr, address.ai_addrlen));
    };
    return UseOneOf(*this, addresses, function, connectTo);
}

KESTATUS KEOsSocket::BindToOneOf(const KEOsSocketAddressInfo& addresses, bool reuseAddress) noexcept {
    const KELogMsgHeaderTag& function = KE_FUNCTION_TAG;
    const auto bindTo = [&](const addrinfo& address) {
        if (reuseAddress) {
            const std::int32_t on = 1;
            const KESTATUS st = WarnIfFailed(function, "EnableReuseAddress failed, st={}",
                                             SetSocketOption(SOL_SOCKET, SO_REUSEADDR, &on, sizeof on));
            if (st != KESTATUS_SUCCESS) {
                return st;
            }
        }
        return WarnIfFailed(function, "Bind failed, st={}", Bind(*address.ai_addr, address.ai_addrlen));
    };
    return UseOneOf(*this, addresses, function, bindTo);
}

KESTATUS KEOsSocket::WaitUntilIoPossible(unsigned int what, KETimeoutInterval timeout) noexcept {
    // A set has no room for other descriptors.
    if (mSocket < 0 || mSocket >= FD_SETSIZE) {
        return Failure(KE_FUNCTION_TAG, "select failed, err={}", EBADF);
    }
    fd_set readSet;
    fd_set writeSet;
    FD_ZERO(&readSet);
    FD_ZERO(&writeSet);
    if ((what & IoRead) != 0) {
        FD_SET(mSocket, &readSet);
    }
    if ((what & IoWrite) != 0) {
        FD_SET(mSocket, &writeSet);
    }
    timeval limit = {timeout / 1000, (timeout % 1000) * 1000};
    const int count = select(mSocket + 1, &readSet, &writeSet, nullptr, timeout < 0 ? nullptr : &limit);
    if (count < 0) {
        return Failure(KE_FUNCTION_TAG, "select failed, err={}", errno);
    }
    return count == 0 ? KESTATUS_TIMEOUT : KESTATUS_SUCCESS;
}

KESTATUS KEOsSocket::ReceiveData(void* buffer, std::size_t size, std::size_t& received,
                                 KETimeoutInterval timeout, int flags) noexcept {
    const auto receive = [&] { return recv(mSocket, buffer, size, flags); };
    return TransferData(*this, receive, IoRead, timeout, received, KE_FUNCTION_TAG, "recv(1) failed, err={}",
                        "recv(2) failed, err={}");
}

KESTATUS KEOsSocket::SendData(const void* data, std::size_t size, std::size_t& sent,
                              KETimeoutInterval timeout, int flags) noexcept {
    const auto sendOnce = [&] { return send(mSocket, data, size, flags | MSG_NOSIGNAL); };
    return TransferData(*this, sendOnce, IoWrite, timeout, sent, KE_FUNCTION_TAG, "send(1) failed, err={}",
                        "send(2) failed, err={}");
}

} // namespace kestrelon
