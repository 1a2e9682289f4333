#include "FakeNetwork.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace testsupport {

namespace {

FakeNetwork* sNetwork = nullptr;

// Notes the call and tells whether it is to fail.
bool IsToFail(const char* call) {
    if (!sNetwork) {
        return false;
    }
    sNetwork->mCalls.emplace_back(call);
    if (sNetwork->mFailingCall == call) {
        return true;
    }
    const auto errors = sNetwork->mErrors.find(call);
    if (errors == sNetwork->mErrors.end() || errors->second.empty()) {
        return false;
    }
    sNetwork->mFailure = errors->second.front();
    errors->second.pop_front();
    return sNetwork->mFailure != 0;
}

int FailWithErrno() {
    errno = sNetwork->mFailure;
    return -1;
}

template <typename T>
T TakeFirst(std::deque<T>& values) {
    const T value = values.front();
    values.pop_front();
    return value;
}

} // namespace

FakeNetwork::FakeNetwork() {
    sNetwork = this;
}

FakeNetwork::~FakeNetwork() {
    sNetwork = nullptr;
}

} // namespace testsupport

// The linker's names for a wrapped call and for the real one.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
extern "C" {

using testsupport::sNetwork;

ssize_t __real_send(int fd, const void* data, size_t size, int flags);
int __real_select(int count, fd_set* readSet, fd_set* writeSet, fd_set* errorSet, timeval* timeout);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __real_fcntl(int fd, int command, ...);
int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t length);
int __real_getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result);
void __real_freeaddrinfo(addrinfo* list);
int __real_close(int fd);
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __real_listen(int fd, int backlog);
int __real_accept4(int fd, sockaddr* address, socklen_t* length, int flags);
int __real_shutdown(int fd, int how);
ssize_t __real_recv(int fd, void* data, size_t size, int flags);
int __real_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize,
                       char* service, socklen_t serviceSize, int flags);

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
    if (!sNetwork) {
        return __real_send(fd, data, size, flags);
    }
    sNetwork->mSendFlags = flags;
    ++sNetwork->mSendCalls;
    if (testsupport::IsToFail("send")) {
        return testsupport::FailWithErrno();
    }
    if (!sNetwork->mTakesSends) {
        return __real_send(fd, data, size, flags);
    }
    if (!sNetwork->mSendErrors.empty()) {
        const int error = testsupport::TakeFirst(sNetwork->mSendErrors);
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    sNetwork->mDatagrams.emplace_back(bytes, bytes + size);
    return static_cast<ssize_t>(size - sNetwork->mSendShortBy);
}

int __wrap_select(int count, fd_set* readSet, fd_set* writeSet, fd_set* errorSet, timeval* timeout) {
    if (sNetwork) {
        sNetwork->mSelectTimeouts.push_back(timeout ? std::optional(*timeout) : std::nullopt);
    }
    if (!sNetwork || sNetwork->mSelectResults.empty()) {
        return __real_select(count, readSet, writeSet, errorSet, timeout);
    }
    const int result = testsupport::TakeFirst(sNetwork->mSelectResults);
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

int __wrap_socket(int domain, int type, int protocol) {
    return testsupport::IsToFail("socket") ? testsupport::FailWithErrno()
                                           : __real_socket(domain, type, protocol);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    return testsupport::IsToFail("connect") ? testsupport::FailWithErrno()
                                            : __real_connect(fd, address, length);
}

int __wrap_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    return testsupport::IsToFail("fcntl") ? testsupport::FailWithErrno() : __real_fcntl(fd, command, value);
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    if (testsupport::IsToFail("setsockopt")) {
        return testsupport::FailWithErrno();
    }
    if (sNetwork && level == SOL_SOCKET && name == SO_SNDBUF && length == sizeof(int)) {
        int size = 0;
        std::memcpy(&size, value, sizeof size);
        sNetwork->mSendBufferSizes.push_back(size);
    }
    return __real_setsockopt(fd, level, name, value, length);
}

int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    if (sNetwork) {
        sNetwork->mLastService = service ? service : "(null)";
        sNetwork->mLastHints = hints ? *hints : addrinfo{};
    }
    if (testsupport::IsToFail("getaddrinfo")) {
        return sNetwork->mFailure;
    }
    const int ret = __real_getaddrinfo(node, service, hints, result);
    if (sNetwork && ret == 0) {
        ++sNetwork->mOpenLists;
    }
    return ret;
}

void __wrap_freeaddrinfo(addrinfo* list) {
    if (sNetwork) {
        --sNetwork->mOpenLists;
    }
    __real_freeaddrinfo(list);
}

int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize,
                       char* service, socklen_t serviceSize, int flags) {
    if (testsupport::IsToFail("getnameinfo")) {
        return sNetwork->mFailure;
    }
    if (sNetwork) {
        sNetwork->mLookupFlags = flags;
    }
    return __real_getnameinfo(address, length, host, hostSize, service, serviceSize, flags);
}

int __wrap_close(int fd) {
    // The descriptor is gone even when closing it fails.
    const int result = __real_close(fd);
    return testsupport::IsToFail("close") ? testsupport::FailWithErrno() : result;
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    return testsupport::IsToFail("bind") ? testsupport::FailWithErrno() : __real_bind(fd, address, length);
}

int __wrap_listen(int fd, int backlog) {
    return testsupport::IsToFail("listen") ? testsupport::FailWithErrno() : __real_listen(fd, backlog);
}

int __wrap_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return testsupport::IsToFail("accept") ? testsupport::FailWithErrno()
                                           : __real_accept4(fd, address, length, flags);
}

int __wrap_shutdown(int fd, int how) {
    return testsupport::IsToFail("shutdown") ? testsupport::FailWithErrno() : __real_shutdown(fd, how);
}

ssize_t __wrap_recv(int fd, void* data, size_t size, int flags) {
    return testsupport::IsToFail("recv") ? testsupport::FailWithErrno() : __real_recv(fd, data, size, flags);
}

ssize_t __wrap___recv_chk(int fd, void* data, size_t size, size_t /*bufferSize*/, int flags) {
    return __wrap_recv(fd, data, size, flags);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
