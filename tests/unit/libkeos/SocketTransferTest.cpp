// Waiting on a socket, sending and receiving, in both modes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <thread>
#include <vector>

#include "FakeNetwork.h"
#include "KEOsSocket.h"
#include "LogExpect.h"

namespace {

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

// Two connected stream sockets on loopback.
class SocketTransferTest : public testing::Test {
protected:
    void SetUp() override {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto& generic = reinterpret_cast<const sockaddr&>(address);
        KEOsSocket listener;
        ASSERT_EQ(listener.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
        ASSERT_EQ(listener.Bind(generic, sizeof address), KESTATUS_SUCCESS);
        ASSERT_EQ(listener.Listen(1), KESTATUS_SUCCESS);
        socklen_t length = sizeof address;
        ASSERT_EQ(getsockname(listener.Handle(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        ASSERT_EQ(mSocket.CreateSocket(AF_INET, SOCK_STREAM, 0), KESTATUS_SUCCESS);
        ASSERT_EQ(mSocket.Connect(generic, sizeof address), KESTATUS_SUCCESS);
        ASSERT_EQ(listener.AcceptConnection(mPeer, nullptr, nullptr), KESTATUS_SUCCESS);
        ASSERT_EQ(listener.CloseSocket(), KESTATUS_SUCCESS);
        mNetwork.mCalls.clear();
    }

    KESTATUS Receive(KETimeoutInterval timeout = 0) {
        mCount = 99;
        return mSocket.ReceiveData(mBuffer, sizeof mBuffer, mCount, timeout);
    }
    KESTATUS Send(KETimeoutInterval timeout = 0) {
        mCount = 99;
        return mSocket.SendData("hello", 5, mCount, timeout);
    }

    LogCapture mLog;
    FakeNetwork mNetwork;
    KEOsSocket mSocket;
    KEOsSocket mPeer;
    char mBuffer[16] = {};
    std::size_t mCount = 0;
};

// --- Waiting -------------------------------------------------------------------------------------

struct WaitRow {
    KETimeoutInterval timeout;
    bool isLimited;
    long seconds;
    long microseconds;
};

TEST_F(SocketTransferTest, TimeoutIsConverted) {
    for (const WaitRow& row : {WaitRow{0, true, 0, 0}, WaitRow{1, true, 0, 1000},
                               WaitRow{999, true, 0, 999000}, WaitRow{1000, true, 1, 0},
                               WaitRow{1234, true, 1, 234000}, WaitRow{2147483647, true, 2147483, 647000},
                               WaitRow{-1, false, 0, 0}, WaitRow{-2147483647 - 1, false, 0, 0}}) {
        SCOPED_TRACE(row.timeout);
        mNetwork.mSelectResults = {1};
        EXPECT_EQ(mSocket.WaitUntilIoPossible(0x2, row.timeout), KESTATUS_SUCCESS);
        const std::optional<timeval> timeout = mNetwork.mSelectTimeouts.back();
        ASSERT_EQ(timeout.has_value(), row.isLimited);
        if (timeout) {
            EXPECT_EQ(timeout->tv_sec, row.seconds);
            EXPECT_EQ(timeout->tv_usec, row.microseconds);
        }
    }
}

TEST_F(SocketTransferTest, WaitsForWhatWasAsked) {
    EXPECT_EQ(mSocket.WaitUntilIoPossible(KEOsSocket::IoRead, 0), KESTATUS_TIMEOUT);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(KEOsSocket::IoWrite, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x6, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0, 0), KESTATUS_TIMEOUT);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x1 | 0x8, 0), KESTATUS_TIMEOUT);
    std::size_t sent = 0;
    ASSERT_EQ(mPeer.SendData("x", 1, sent), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(KEOsSocket::IoRead, -1), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketTransferTest, WaitWithoutLimitEndsWhenDataArrive) {
    std::thread sender([this] {
        std::size_t sent = 0;
        EXPECT_EQ(mPeer.SendData("x", 1, sent), KESTATUS_SUCCESS);
    });
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x2, -1), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x2, 0), KESTATUS_SUCCESS) << "not before the data are there";
    sender.join();
    EXPECT_EQ(Receive(), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 1u);
}

TEST_F(SocketTransferTest, FailedWaitIsNotRepeated) {
    mNetwork.mSelectResults = {-EINTR, 1};
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x2, -1), 0xE0010004);
    EXPECT_EQ(mNetwork.mSelectResults.size(), 1u);
    mNetwork.mSelectResults = {-EAGAIN};
    EXPECT_EQ(mSocket.WaitUntilIoPossible(0x2, -1), KESTATUS_WOULD_BLOCK);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=4"),
                            IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=11")));
}

TEST_F(SocketTransferTest, DescriptorThatSelectCannotTake) {
    KEOsSocket socket;
    EXPECT_EQ(socket.WaitUntilIoPossible(0x2, 0), 0xE0010009);
    // A descriptor that is too large for select.
    ASSERT_EQ(socket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    const int high = fcntl(socket.Handle(), F_DUPFD_CLOEXEC, FD_SETSIZE);
    if (high == -1) {
        GTEST_FAIL() << "the limit of open files is below 1025";
    }
    std::vector<int> filler;
    filler.reserve(FD_SETSIZE);
    for (int descriptor = dup(high); descriptor < FD_SETSIZE; descriptor = dup(high)) {
        filler.push_back(descriptor);
    }
    KEOsSocket highSocket;
    EXPECT_EQ(highSocket.CreateSocket(AF_INET, SOCK_DGRAM, 0), KESTATUS_SUCCESS);
    EXPECT_GE(highSocket.Handle(), FD_SETSIZE);
    EXPECT_EQ(highSocket.WaitUntilIoPossible(0x4, 0), 0xE0010009);
    for (const int descriptor : filler) {
        close(descriptor);
    }
    close(high);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=9"),
                            IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=9")));
}

// --- Transfers in blocking mode ------------------------------------------------------------------

TEST_F(SocketTransferTest, DataArriveInBothDirections) {
    EXPECT_EQ(Send(), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 5u);
    std::size_t received = 0;
    EXPECT_EQ(mPeer.ReceiveData(mBuffer, 3, received), KESTATUS_SUCCESS);
    EXPECT_EQ(received, 3u);
    EXPECT_STREQ(mBuffer, "hel");
    std::size_t sent = 0;
    EXPECT_EQ(mPeer.SendData("answer", 6, sent), KESTATUS_SUCCESS);
    EXPECT_EQ(Receive(), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 6u);
    EXPECT_STREQ(mBuffer, "answer");
}

TEST_F(SocketTransferTest, FlagsReachTheCalls) {
    std::size_t count = 0;
    ASSERT_EQ(mPeer.SendData("x", 1, count, 0, MSG_DONTROUTE), KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mSendFlags, MSG_DONTROUTE | MSG_NOSIGNAL);
    EXPECT_EQ(mSocket.ReceiveData(mBuffer, 1, count, 0, MSG_PEEK), KESTATUS_SUCCESS);
    EXPECT_EQ(mSocket.ReceiveData(mBuffer, 1, count, 0, MSG_DONTWAIT), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(mSocket.ReceiveData(mBuffer, 1, count, 0, MSG_DONTWAIT), KESTATUS_WOULD_BLOCK);
}

TEST_F(SocketTransferTest, OrderlyEndIsASuccessOfNoBytes) {
    ASSERT_EQ(mPeer.CloseSocket(), KESTATUS_SUCCESS);
    EXPECT_EQ(Receive(), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketTransferTest, TimeoutOptionOfABlockingSocket) {
    const timeval limit = {0, 1000};
    ASSERT_EQ(mSocket.SetSocketOption(SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), KESTATUS_SUCCESS);
    EXPECT_EQ(Receive(50), 0xE000000A);
    EXPECT_EQ(mCount, 0u);
    mNetwork.mErrors["send"] = {EAGAIN};
    EXPECT_EQ(Send(50), 0xE000000A);
    EXPECT_EQ(mCount, 0u);
    EXPECT_THAT(mNetwork.mSelectTimeouts, IsEmpty());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketTransferTest, ShortSendIsNotContinued) {
    mNetwork.mTakesSends = true;
    mNetwork.mSendShortBy = 2;
    EXPECT_EQ(Send(), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 3u);
    EXPECT_EQ(mNetwork.mSendCalls, 1u);
}

TEST_F(SocketTransferTest, SendingToAClosedConnectionIsAStatus) {
    ASSERT_EQ(mPeer.CloseSocket(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSocket.Shutdown(SHUT_WR), KESTATUS_SUCCESS);
    EXPECT_EQ(Send(), 0xE0010020); // EPIPE, and the process has not been ended by SIGPIPE
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEINFO, "SendData", "send(1) failed, err=32")));
}

TEST_F(SocketTransferTest, OtherFailuresAreInformation) {
    mNetwork.mErrors["recv"] = {ECONNRESET};
    EXPECT_EQ(Receive(), 0xE0010068);
    EXPECT_EQ(mCount, 0u);
    mNetwork.mErrors["send"] = {ECONNREFUSED};
    EXPECT_EQ(Send(), 0xE001006F);
    EXPECT_EQ(mCount, 0u);
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEINFO, "ReceiveData", "recv(1) failed, err=104"),
                                             IsMessageOf(KEINFO, "SendData", "send(1) failed, err=111")));
}

// --- Transfers in non-blocking mode --------------------------------------------------------------

class SocketNonBlockingTest : public SocketTransferTest {
protected:
    void SetUp() override {
        SocketTransferTest::SetUp();
        ASSERT_EQ(mSocket.EnableNonBlockingMode(true), KESTATUS_SUCCESS);
        mNetwork.mCalls.clear();
    }
};

TEST_F(SocketNonBlockingTest, TimeoutIsSilent) {
    EXPECT_EQ(Receive(50), 0xE0000003);
    EXPECT_EQ(mCount, 0u);
    ASSERT_EQ(mNetwork.mSelectTimeouts.size(), 1u);
    EXPECT_EQ(mNetwork.mSelectTimeouts[0]->tv_usec, 50000);
    mNetwork.mErrors["send"] = {EAGAIN};
    mNetwork.mSelectResults = {0};
    EXPECT_EQ(Send(), 0xE0000003);
    EXPECT_EQ(mCount, 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketNonBlockingTest, FullBufferTimesOut) {
    std::vector<char> much(1 << 20);
    KESTATUS st = KESTATUS_SUCCESS;
    for (int i = 0; i < 1000 && st == KESTATUS_SUCCESS; ++i) {
        st = mSocket.SendData(much.data(), much.size(), mCount);
    }
    EXPECT_EQ(st, KESTATUS_TIMEOUT);
    EXPECT_EQ(mCount, 0u);
}

TEST_F(SocketNonBlockingTest, DataThatArriveDuringTheWaitAreTaken) {
    std::size_t sent = 0;
    ASSERT_EQ(mPeer.SendData("abc", 3, sent), KESTATUS_SUCCESS);
    mNetwork.mCalls.clear();
    mNetwork.mErrors["recv"] = {EAGAIN};
    EXPECT_EQ(Receive(-1), KESTATUS_SUCCESS);
    EXPECT_EQ(mCount, 3u);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("recv", "recv"));
    EXPECT_FALSE(mNetwork.mSelectTimeouts.at(0).has_value());

    mNetwork.mCalls.clear();
    mNetwork.mErrors["send"] = {EAGAIN};
    EXPECT_EQ(Send(1000), KESTATUS_SUCCESS); // the real wait is for room, of which there is plenty
    EXPECT_EQ(mCount, 5u);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("send", "send"));
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketNonBlockingTest, FailedWaitIsTold) {
    mNetwork.mErrors["recv"] = {EAGAIN};
    mNetwork.mSelectResults = {-EINTR};
    EXPECT_EQ(Receive(50), 0xE0010004);
    EXPECT_EQ(mCount, 0u);
    mNetwork.mErrors["send"] = {EAGAIN};
    mNetwork.mSelectResults = {-EAGAIN};
    EXPECT_EQ(Send(50), KESTATUS_WOULD_BLOCK);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=4"),
                            IsMessageOf(KEERROR, "ReceiveData",
                                        "WaitUntilIoPossible failed, err=0xe0010004(KESTATUS_LINUX_EINTR)"),
                            IsMessageOf(KEERROR, "WaitUntilIoPossible", "select failed, err=11"),
                            IsMessageOf(KEERROR, "SendData",
                                        "WaitUntilIoPossible failed, err=0xe000000a(KESTATUS_WOULD_BLOCK)")));
}

TEST_F(SocketNonBlockingTest, OnlyOneRetryIsMade) {
    mNetwork.mErrors["recv"] = {EAGAIN, EAGAIN};
    mNetwork.mSelectResults = {1, 1};
    EXPECT_EQ(Receive(50), KESTATUS_WOULD_BLOCK);
    EXPECT_EQ(mCount, 0u);
    mNetwork.mErrors["recv"] = {EAGAIN, ECONNRESET};
    EXPECT_EQ(Receive(50), 0xE0010068);
    mNetwork.mErrors["send"] = {EAGAIN, EAGAIN};
    mNetwork.mSelectResults = {1, 1};
    EXPECT_EQ(Send(50), KESTATUS_WOULD_BLOCK);
    mNetwork.mErrors["send"] = {EAGAIN, EPIPE};
    EXPECT_EQ(Send(50), 0xE0010020);
    EXPECT_EQ(mCount, 0u);
    EXPECT_THAT(mLog.Messages(), ElementsAre(IsMessageOf(KEINFO, "ReceiveData", "recv(2) failed, err=11"),
                                             IsMessageOf(KEINFO, "ReceiveData", "recv(2) failed, err=104"),
                                             IsMessageOf(KEINFO, "SendData", "send(2) failed, err=11"),
                                             IsMessageOf(KEINFO, "SendData", "send(2) failed, err=32")));
}

// The object's own record of the mode decides, not the descriptor's flag.
TEST_F(SocketTransferTest, ModeIsTheRecordedOne) {
    ASSERT_EQ(fcntl(mSocket.Handle(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(Receive(1000), KESTATUS_WOULD_BLOCK);
    EXPECT_THAT(mNetwork.mSelectTimeouts, IsEmpty());
}

} // namespace
