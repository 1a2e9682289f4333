// One socket: creation, options, connections, failures, and the first address of several that works.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "FakeNetwork.h"
#include "KEOsSocket.h"
#include "KEOsSocketAddressInfo.h"
#include "LogExpect.h"

namespace {

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

sockaddr_in LoopbackAddress(std::uint16_t port = 0) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr& AsSocketAddress(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr&>(address);
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

// The address of a bound socket.
sockaddr_in AddressOf(const KEOsSocket& socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    EXPECT_EQ(getsockname(socket.Handle(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    return address;
}

class SocketTest : public testing::Test {
protected:
    // A listening socket on loopback.
    void Listen() {
        ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
        const sockaddr_in any = LoopbackAddress();
        ASSERT_EQ(mSocket.Bind(AsSocketAddress(any), sizeof any), KESTATUS_SUCCESS);
        ASSERT_EQ(mSocket.Listen(4), KESTATUS_SUCCESS);
    }
    KESTATUS ConnectTo(KEOsSocket& client, const sockaddr_in& address) {
        EXPECT_EQ(client.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
        return client.Connect(AsSocketAddress(address), sizeof address);
    }

    LogCapture mLog;
    FakeNetwork mNetwork;
    KEOsSocket mSocket;
};

TEST_F(SocketTest, NewObjectHoldsNoSocket) {
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_FALSE(mSocket.IsNonBlocking());
    EXPECT_EQ(mSocket.CloseSocket(), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mCalls, IsEmpty());
}

TEST_F(SocketTest, CreatedSocketIsClosedOnExec) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(fcntl(mSocket.Handle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(mSocket.Handle(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(SocketTest, CreatingClosesTheOldSocketFirst) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(mSocket.EnableNonBlockingMode(true), KESTATUS_SUCCESS);
    mNetwork.mCalls.clear();
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("close", "socket"));
    EXPECT_FALSE(mSocket.IsNonBlocking());
    // None is held when there is no new one.
    const int old = mSocket.Handle();
    mNetwork.mErrors["socket"] = {EMFILE};
    EXPECT_EQ(mSocket.CreateSocket(AF_INET, SOCK_STREAM, 0), 0xE0010018);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_FALSE(IsOpen(old));
}

TEST_F(SocketTest, DestructorCloses) {
    auto socket = std::make_unique<KEOsSocket>();
    ASSERT_EQ(socket->CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    const int descriptor = socket->Handle();
    EXPECT_TRUE(IsOpen(descriptor));
    socket.reset();
    EXPECT_FALSE(IsOpen(descriptor));
}

TEST_F(SocketTest, FailedCloseForgetsTheSocketAllTheSame) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    mNetwork.mErrors["close"] = {EIO};
    EXPECT_EQ(mSocket.CloseSocket(), 0xE0010005);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEERROR, "CloseSocket", "socket failed, err=5")));
    EXPECT_EQ(mSocket.CloseSocket(), KESTATUS_SUCCESS);
}

TEST_F(SocketTest, NonBlockingModeSwitchesAndRecords) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(fcntl(mSocket.Handle(), F_SETFL, O_ASYNC), 0); // other flags stay
    EXPECT_EQ(mSocket.EnableNonBlockingMode(true), KESTATUS_SUCCESS);
    EXPECT_TRUE(mSocket.IsNonBlocking());
    EXPECT_EQ(fcntl(mSocket.Handle(), F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK | O_ASYNC);
    EXPECT_EQ(mSocket.EnableNonBlockingMode(false), KESTATUS_SUCCESS);
    EXPECT_FALSE(mSocket.IsNonBlocking());
    EXPECT_EQ(fcntl(mSocket.Handle(), F_GETFL) & (O_NONBLOCK | O_ASYNC), O_ASYNC);
}

TEST_F(SocketTest, NonBlockingModeIsRecordedOnlyOnSuccess) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    mNetwork.mErrors["fcntl"] = {EBADF};
    EXPECT_EQ(mSocket.EnableNonBlockingMode(true), 0xE0010009);
    mNetwork.mErrors["fcntl"] = {0, EPERM};
    EXPECT_EQ(mSocket.EnableNonBlockingMode(true), 0xE0010001);
    EXPECT_FALSE(mSocket.IsNonBlocking());
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "EnableNonBlockingMode", "fcntl(get) failed, err=9"),
                            IsMessageOf(KEERROR, "EnableNonBlockingMode", "fcntl(set) failed, err=1")));
}

TEST_F(SocketTest, OptionReachesTheSocket) {
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    const int on = 1;
    EXPECT_EQ(mSocket.SetSocketOption(SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), KESTATUS_SUCCESS);
    int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(mSocket.Handle(), SOL_SOCKET, SO_REUSEADDR, &value, &length), 0);
    EXPECT_NE(value, 0);
}

TEST_F(SocketTest, AcceptedConnectionReplacesWhatTheObjectHeld) {
    Listen();
    KEOsSocket client;
    ASSERT_EQ(ConnectTo(client, AddressOf(mSocket)), KESTATUS_SUCCESS);
    KEOsSocket connection;
    ASSERT_EQ(connection.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    ASSERT_EQ(connection.EnableNonBlockingMode(true), KESTATUS_SUCCESS);
    const int old = connection.Handle();
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    ASSERT_EQ(mSocket.AcceptConnection(connection, reinterpret_cast<sockaddr*>(&peer), &length),
              KESTATUS_SUCCESS);
    EXPECT_FALSE(IsOpen(old));
    EXPECT_NE(connection.Handle(), old);
    EXPECT_FALSE(connection.IsNonBlocking());
    EXPECT_EQ(fcntl(connection.Handle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(peer.sin_port, AddressOf(client).sin_port);

    std::size_t count = 0;
    EXPECT_EQ(client.SendData("hello", 5, count), KESTATUS_SUCCESS);
    char text[8] = {};
    EXPECT_EQ(connection.ReceiveData(text, sizeof text, count), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 5u);
    EXPECT_STREQ(text, "hello");
}

TEST_F(SocketTest, FailedAcceptLeavesTheObjectAlone) {
    Listen();
    KEOsSocket connection;
    ASSERT_EQ(connection.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    const int held = connection.Handle();
    mNetwork.mErrors["accept"] = {EAGAIN};
    EXPECT_EQ(mSocket.AcceptConnection(connection, nullptr, nullptr), KESTATUS_WOULD_BLOCK);
    EXPECT_EQ(connection.Handle(), held);
    EXPECT_TRUE(IsOpen(held));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "AcceptConnection", "accept failed, err=11")));
}

TEST_F(SocketTest, ShutdownEndsTheConnection) {
    Listen();
    KEOsSocket client;
    ASSERT_EQ(ConnectTo(client, AddressOf(mSocket)), KESTATUS_SUCCESS);
    KEOsSocket connection;
    ASSERT_EQ(mSocket.AcceptConnection(connection, nullptr, nullptr), KESTATUS_SUCCESS);
    EXPECT_EQ(client.Shutdown(SHUT_WR), KESTATUS_SUCCESS);
    char byte = 0;
    std::size_t received = 9;
    EXPECT_EQ(connection.ReceiveData(&byte, 1, received), KESTATUS_SUCCESS);
    EXPECT_EQ(received, 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

// --- Failures of one system call -----------------------------------------------------------------

struct FailureRow {
    const char* call;
    const char* function;
    const char* text;
    std::function<KESTATUS(KEOsSocket&)> operation;
};

class SocketFailureTest : public SocketTest, public testing::WithParamInterface<FailureRow> {};

TEST_P(SocketFailureTest, IsLoggedAndMapped) {
    const FailureRow& row = GetParam();
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
    struct {
        int error;
        KESTATUS status;
    } const cErrors[] = {{EAGAIN, KESTATUS_WOULD_BLOCK}, {EINTR, 0xE0010004}, {ECONNREFUSED, 0xE001006F}};
    for (const auto& [error, status] : cErrors) {
        mLog.Clear();
        mNetwork.mErrors[row.call] = {error};
        EXPECT_EQ(row.operation(mSocket), status);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(IsMessageOf(KEERROR, row.function, row.text + std::to_string(error))));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, SocketFailureTest,
    testing::Values(FailureRow{"socket", "CreateSocket", "socket failed, err=",
                               [](KEOsSocket& socket) {
                                   return socket.CreateSocket(AF_INET, SOCK_STREAM, 0);
                               }},
                    FailureRow{"setsockopt", "SetSocketOption", "setsockopt failed, err=",
                               [](KEOsSocket& socket) {
                                   const int on = 1;
                                   return socket.SetSocketOption(SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
                               }},
                    FailureRow{"connect", "Connect", "connect failed, err=",
                               [](KEOsSocket& socket) {
                                   const sockaddr_in address = LoopbackAddress(1);
                                   return socket.Connect(AsSocketAddress(address), sizeof address);
                               }},
                    FailureRow{"bind", "Bind", "bind failed, err=",
                               [](KEOsSocket& socket) {
                                   const sockaddr_in address = LoopbackAddress();
                                   return socket.Bind(AsSocketAddress(address), sizeof address);
                               }},
                    FailureRow{"listen", "Listen",
                               "listen failed, err=", [](KEOsSocket& socket) { return socket.Listen(1); }},
                    FailureRow{"shutdown", "Shutdown", "shutdown failed, err=",
                               [](KEOsSocket& socket) { return socket.Shutdown(SHUT_RDWR); }}),
    [](const auto& row) { return std::string(row.param.function); });

// --- One of several addresses --------------------------------------------------------------------

// For a numeric address without a socket type the list has three entries: stream, datagram and raw.
class SocketListTest : public SocketTest {
protected:
    void SetUp() override {
        ASSERT_EQ(mAddresses.GetAddressInfo("127.0.0.1", std::uint16_t{0}, nullptr), KESTATUS_SUCCESS);
        ASSERT_TRUE(mAddresses.AddressInfo()->ai_next);
        mNetwork.mCalls.clear();
    }

    int TypeOfSocket() const {
        int type = 0;
        socklen_t length = sizeof type;
        EXPECT_EQ(getsockopt(mSocket.Handle(), SOL_SOCKET, SO_TYPE, &type, &length), 0);
        return type;
    }

    KEOsSocketAddressInfo mAddresses;
};

TEST_F(SocketListTest, EmptyListLeavesNoSocket) {
    const KEOsSocketAddressInfo none;
    EXPECT_EQ(mSocket.ConnectToOneOf(none), KESTATUS_NO_ADDRESS);
    EXPECT_EQ(mSocket.BindToOneOf(none, true), KESTATUS_NO_ADDRESS);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_THAT(mNetwork.mCalls, IsEmpty());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketListTest, EmptyListLeavesAnOpenSocketAlone) {
    const KEOsSocketAddressInfo none;
    ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.ConnectToOneOf(none), KESTATUS_NO_ADDRESS);
    EXPECT_TRUE(IsOpen(mSocket.Handle()));
}

TEST_F(SocketListTest, BindsToTheFirst) {
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, false), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("socket", "bind"));
    EXPECT_EQ(TypeOfSocket(), SOCK_STREAM);
    EXPECT_NE(AddressOf(mSocket).sin_port, 0);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketListTest, ReusesTheAddressIfAsked) {
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, true), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("socket", "setsockopt", "bind"));
    int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(mSocket.Handle(), SOL_SOCKET, SO_REUSEADDR, &value, &length), 0);
    EXPECT_NE(value, 0);
}

TEST_F(SocketListTest, EachFailedStepGoesOnToTheNextEntry) {
    mNetwork.mErrors["socket"] = {EMFILE};
    mNetwork.mErrors["connect"] = {0};
    EXPECT_EQ(mSocket.ConnectToOneOf(mAddresses), KESTATUS_SUCCESS);
    EXPECT_EQ(TypeOfSocket(), SOCK_DGRAM);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "CreateSocket", "socket failed, err=24"),
                            IsMessageOf(KEWARN, "ConnectToOneOf",
                                        "CreateSocket failed, st=0xe0010018(KESTATUS_LINUX_EMFILE)")));

    mLog.Clear();
    mNetwork.mErrors["connect"] = {ENOENT};
    EXPECT_EQ(mSocket.ConnectToOneOf(mAddresses), KESTATUS_SUCCESS);
    EXPECT_EQ(TypeOfSocket(), SOCK_DGRAM);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "Connect", "connect failed, err=2"),
                            IsMessageOf(KEWARN, "ConnectToOneOf",
                                        "Connect failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)")));
}

TEST_F(SocketListTest, EachFailedStepOfBindingGoesOnToo) {
    mNetwork.mErrors["socket"] = {EMFILE};
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, true), KESTATUS_SUCCESS);
    EXPECT_EQ(TypeOfSocket(), SOCK_DGRAM);
    mNetwork.mErrors["setsockopt"] = {EPERM};
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, true), KESTATUS_SUCCESS);
    EXPECT_EQ(TypeOfSocket(), SOCK_DGRAM);
    mNetwork.mErrors["bind"] = {ENOENT};
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, true), KESTATUS_SUCCESS);
    EXPECT_EQ(TypeOfSocket(), SOCK_DGRAM);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(
            IsMessageOf(KEERROR, "CreateSocket", "socket failed, err=24"),
            IsMessageOf(KEWARN, "BindToOneOf", "CreateSocket failed, st=0xe0010018(KESTATUS_LINUX_EMFILE)"),
            IsMessageOf(KEERROR, "SetSocketOption", "setsockopt failed, err=1"),
            IsMessageOf(KEWARN, "BindToOneOf",
                        "EnableReuseAddress failed, st=0xe0010001(KESTATUS_LINUX_EPERM)"),
            IsMessageOf(KEERROR, "Bind", "bind failed, err=2"),
            IsMessageOf(KEWARN, "BindToOneOf", "Bind failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)")));
}

TEST_F(SocketListTest, WhenAllFailTheLastStatusCounts) {
    const addrinfo* last = mAddresses.AddressInfo();
    std::size_t count = 1;
    for (; last->ai_next; last = last->ai_next) {
        ++count;
    }
    ASSERT_EQ(count, 3u);
    mNetwork.mErrors["socket"] = {0, 0, EPROTONOSUPPORT};
    mNetwork.mErrors["connect"] = {ENOENT, ECONNREFUSED};
    EXPECT_EQ(mSocket.ConnectToOneOf(mAddresses), 0xE001005D);
    EXPECT_EQ(mSocket.Handle(), -1);

    mNetwork.mErrors["socket"] = {0, EMFILE, EMFILE};
    mNetwork.mErrors["bind"] = {ENOENT};
    EXPECT_EQ(mSocket.BindToOneOf(mAddresses, false), 0xE0010018);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_EQ(mLog.CountContaining(KEWARN, ""), 6u);
}

TEST_F(SocketListTest, SocketOfTheLastFailedEntryIsClosed) {
    KEOsSocketAddressInfo one;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    ASSERT_EQ(one.GetAddressInfo("127.0.0.1", std::uint16_t{0}, &hints), KESTATUS_SUCCESS);
    mNetwork.mErrors["bind"] = {EADDRINUSE};
    EXPECT_EQ(mSocket.BindToOneOf(one, false), 0xE0010062);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_EQ(mNetwork.mCalls.back(), "close");
    mNetwork.mErrors["connect"] = {ECONNREFUSED};
    EXPECT_EQ(mSocket.ConnectToOneOf(one), 0xE001006F);
    EXPECT_EQ(mSocket.Handle(), -1);
    EXPECT_EQ(mNetwork.mCalls.back(), "close");
}

} // namespace
