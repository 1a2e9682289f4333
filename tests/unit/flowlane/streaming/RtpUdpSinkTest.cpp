// The RTP/UDP sink: the datagrams it sends byte by byte, sends that fail, and its creation.

#include "streaming/RtpUdpSink.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "FakeNetwork.h"
#include "LogCapture.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t cPort = 50999; // nothing is sent there: the fake network takes the datagrams

class RtpUdpSinkTest : public testing::Test {
protected:
    void CreateAndStart(bool rtpHeaderContained = true) {
        ASSERT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", cPort, 0, rtpHeaderContained), KESTATUS_SUCCESS);
        ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
        mNetwork.mTakesSends = true;
        mLog.Clear();
    }

    static Bytes PacketData(unsigned ordinal) {
        Bytes data(TSPacket::cSize);
        data[0] = TSPacket::cSyncByte;
        for (std::size_t i = 1; i < data.size(); ++i) {
            data[i] = static_cast<std::uint8_t>(ordinal * 31 + i);
        }
        return data;
    }

    // Delivers the packet with the next ordinal.
    KESTATUS Deliver() {
        TSPacket packet;
        const Bytes data = PacketData(mNextOrdinal++);
        std::memcpy(packet.mData, data.data(), data.size());
        return mSink.DeliverTSPacket(packet);
    }
    void Deliver(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
        }
    }

    static Bytes Payload(unsigned firstOrdinal, unsigned count) {
        Bytes bytes;
        bytes.reserve(std::size_t{count} * TSPacket::cSize);
        for (unsigned i = 0; i < count; ++i) {
            const Bytes data = PacketData(firstOrdinal + i);
            bytes.insert(bytes.end(), data.begin(), data.end());
        }
        return bytes;
    }
    static Bytes Datagram(unsigned sequenceNumber, unsigned firstOrdinal, unsigned count) {
        Bytes bytes = {0x80,
                       0x21,
                       static_cast<std::uint8_t>(sequenceNumber >> 8),
                       static_cast<std::uint8_t>(sequenceNumber),
                       0,
                       0,
                       0,
                       0,
                       0,
                       0,
                       0,
                       0};
        const Bytes payload = Payload(firstOrdinal, count);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }

    FakeNetwork mNetwork;
    LogCapture mLog;
    RtpUdpSink mSink;
    unsigned mNextOrdinal = 0;
};

TEST_F(RtpUdpSinkTest, SevenPacketsMakeADatagramOf1328Bytes) {
    CreateAndStart();
    Deliver(6);
    EXPECT_THAT(mNetwork.mDatagrams, IsEmpty());
    Deliver(1);
    ASSERT_EQ(mNetwork.mDatagrams.size(), 1u);
    EXPECT_EQ(mNetwork.mDatagrams[0].size(), 1328u);
    EXPECT_EQ(mNetwork.mDatagrams[0], Datagram(0, 0, 7));
    Deliver(7);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 7), Datagram(1, 7, 7)));
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 2u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(RtpUdpSinkTest, EndOfABatchSendsWhatThereIs) {
    CreateAndStart();
    for (unsigned count = 1; count <= 6; ++count) {
        const unsigned first = mNextOrdinal;
        Deliver(count);
        ASSERT_EQ(mNetwork.mDatagrams.size(), count - 1);
        EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
        ASSERT_EQ(mNetwork.mDatagrams.size(), count);
        EXPECT_EQ(mNetwork.mDatagrams.back(), Datagram(count - 1, first, count));
    }
    EXPECT_EQ(mNetwork.mDatagrams[0].size(), 200u);
}

TEST_F(RtpUdpSinkTest, EndOfAnEmptyBatchSendsNothing) {
    CreateAndStart();
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    Deliver(7);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mSendCalls, 1u);
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 1u);
}

TEST_F(RtpUdpSinkTest, WithoutHeaderADatagramIsThePacketsAlone) {
    CreateAndStart(false);
    Deliver(8);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Payload(0, 7), Payload(7, 1)));
    EXPECT_EQ(mNetwork.mDatagrams[0].size(), 1316u);
}

TEST_F(RtpUdpSinkTest, SequenceNumberWraps) {
    CreateAndStart();
    for (unsigned i = 0; i <= 65537; ++i) {
        Deliver(1);
        ASSERT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
        ASSERT_EQ(mNetwork.mDatagrams[i], Datagram(i & 0xFFFF, i, 1));
    }
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 65538u);
}

TEST_F(RtpUdpSinkTest, StartBeginsAnew) {
    CreateAndStart();
    Deliver(8);
    mNetwork.mSendErrors = {ECONNREFUSED};
    EXPECT_NE(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    mSink.StopSink();
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 1u);
    EXPECT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    const RtpUdpSink::Statistics stats = mSink.QuerryStatistics();
    EXPECT_EQ(stats.infUdpPacketsSent, 0u);
    EXPECT_EQ(stats.errSendFailed, 0u);
    EXPECT_EQ(stats.errUdpPacketsDropped, 0u);
    EXPECT_EQ(stats.lastSendFailure, KESTATUS_SUCCESS);
    mNetwork.mDatagrams.clear();
    Deliver(7);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 8, 7)));
}

TEST_F(RtpUdpSinkTest, WorksWithoutStart) {
    ASSERT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", cPort, 0, true), KESTATUS_SUCCESS);
    mNetwork.mTakesSends = true;
    Deliver(7);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 7)));
}

// --- Sends that fail -----------------------------------------------------------------------------

constexpr KESTATUS cRefused = 0xE001006F;
const char* const cRefusedText = "st=0xe001006f(";

TEST_F(RtpUdpSinkTest, FailedDatagramStaysAndIsTriedOnceMore) {
    CreateAndStart();
    Deliver(6);
    mNetwork.mSendErrors = {ECONNREFUSED};
    EXPECT_EQ(Deliver(), cRefused);
    EXPECT_EQ(mLog.CountContaining(KEERROR, std::string("SendData failed, ") + cRefusedText), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, std::string("SendUdpPacket failed, ") + cRefusedText), 1u);
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 0u);

    Deliver(1); // the full datagram is sent first
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 7)));
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 7), Datagram(1, 7, 1)));
    const RtpUdpSink::Statistics stats = mSink.QuerryStatistics();
    EXPECT_EQ(stats.infUdpPacketsSent, 2u);
    EXPECT_EQ(stats.errSendFailed, 1u);
    EXPECT_EQ(stats.errUdpPacketsDropped, 0u);
    EXPECT_EQ(stats.lastSendFailure, cRefused);
}

TEST_F(RtpUdpSinkTest, DatagramThatFailsTwiceIsDroppedAndItsNumberReused) {
    CreateAndStart();
    Deliver(13);
    mNetwork.mSendErrors = {ECONNREFUSED, ENETUNREACH};
    EXPECT_EQ(Deliver(), cRefused);
    EXPECT_EQ(Deliver(), 0xE0010065); // the new packet is kept
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 1u);
    EXPECT_EQ(mSink.QuerryStatistics().lastSendFailure, 0xE0010065);
    Deliver(6);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 7), Datagram(1, 14, 7)));
    EXPECT_EQ(mLog.CountContaining(KEERROR, "SendUdpPacket failed, st="), 2u);
}

TEST_F(RtpUdpSinkTest, BatchThatFailsGrowsWithTheNext) {
    CreateAndStart();
    Deliver(2);
    mNetwork.mSendErrors = {ECONNREFUSED};
    EXPECT_EQ(mSink.SendDeliveredPackets(), cRefused);
    EXPECT_EQ(mLog.CountContaining(KEERROR, std::string("SendUdpPacket failed, ") + cRefusedText), 1u);
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 0u);
    Deliver(3);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 0, 5)));
}

TEST_F(RtpUdpSinkTest, SendThatWouldBlockIsNoFailure) {
    CreateAndStart();
    mNetwork.mSendErrors = {EAGAIN};
    mNetwork.mSelectResults = {0};
    Deliver(7);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "SendData timed out, packet is dropped"}));
    EXPECT_THAT(mNetwork.mDatagrams, IsEmpty());
    EXPECT_EQ(mSink.QuerryStatistics().errSendFailed, 1u);
    EXPECT_EQ(mSink.QuerryStatistics().lastSendFailure, KESTATUS_TIMEOUT);
    // The retry would block as well.
    mNetwork.mSendErrors = {EAGAIN};
    mNetwork.mSelectResults = {0};
    Deliver(1);
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 1u);
    EXPECT_EQ(mLog.Messages().size(), 2u);
    Deliver(6);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Datagram(0, 7, 7)));
}

TEST_F(RtpUdpSinkTest, RoomThatIsGoneAgainIsNoFailureEither) {
    CreateAndStart();
    mNetwork.mSendErrors = {EAGAIN, EAGAIN};
    mNetwork.mSelectResults = {1};
    Deliver(7);
    EXPECT_EQ(mLog.Count(KEWARN, "SendData timed out, packet is dropped"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, ""), 0u);
    EXPECT_EQ(mSink.QuerryStatistics().lastSendFailure, KESTATUS_WOULD_BLOCK);
}

TEST_F(RtpUdpSinkTest, FailedWaitIsAFailure) {
    CreateAndStart();
    Deliver(6);
    mNetwork.mSendErrors = {EAGAIN};
    mNetwork.mSelectResults = {-EINTR};
    EXPECT_EQ(Deliver(), 0xE0010004);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "SendData failed, st=0xe0010004("), 1u);
}

TEST_F(RtpUdpSinkTest, ShortSendIsReportedAndCounted) {
    CreateAndStart();
    mNetwork.mSendShortBy = 28;
    Deliver(7);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEWARN, "unexpected length 1300, exp. 1328"}));
    EXPECT_EQ(mSink.QuerryStatistics().infUdpPacketsSent, 1u);
    mNetwork.mSendShortBy = 0;
    Deliver(7);
    EXPECT_EQ(mNetwork.mDatagrams.back(), Datagram(1, 7, 7));
}

// All sequences of six good, failed or blocked sends. The address sanitizer watches the buffer. What is sent
// is whole, in order and numbered without a gap.
TEST_F(RtpUdpSinkTest, NoSequenceOfFailuresBreaksTheStream) {
    constexpr int cOutcomes[] = {0, ECONNREFUSED, EAGAIN};
    for (unsigned sequence = 0; sequence < 729; ++sequence) { // 3 to the power of 6
        RtpUdpSink sink;
        ASSERT_EQ(sink.CreateRtpUdpSink("127.0.0.1", cPort, 0, true), KESTATUS_SUCCESS);
        ASSERT_EQ(sink.StartSink(), KESTATUS_SUCCESS);
        mNetwork.mTakesSends = true;
        mNetwork.mDatagrams.clear();
        mNetwork.mSendErrors.clear();
        mNetwork.mSelectResults.clear();
        for (unsigned i = 0, rest = sequence; i < 6; ++i, rest /= 3) {
            mNetwork.mSendErrors.push_back(cOutcomes[rest % 3]);
            if (cOutcomes[rest % 3] == EAGAIN) {
                mNetwork.mSelectResults.push_back(0);
            }
        }
        TSPacket packet;
        unsigned ordinal = 0;
        for (unsigned round = 0; round < 12; ++round) {
            // What the calls return does not matter here.
            for (unsigned i = 0; i < 1 + (sequence + round * 5) % 9; ++i) {
                std::memcpy(packet.mData, PacketData(ordinal++).data(), TSPacket::cSize);
                static_cast<void>(sink.DeliverTSPacket(packet));
            }
            static_cast<void>(sink.SendDeliveredPackets());
        }
        unsigned next = 0;
        for (unsigned i = 0; i < mNetwork.mDatagrams.size(); ++i) {
            const Bytes& datagram = mNetwork.mDatagrams[i];
            const auto count = static_cast<unsigned>((datagram.size() - 12) / TSPacket::cSize);
            ASSERT_TRUE(count >= 1 && count <= 7) << sequence;
            while (next < ordinal && datagram != Datagram(i, next, count)) {
                ++next; // it was dropped
            }
            ASSERT_LT(next, ordinal) << sequence;
            next += count;
        }
        EXPECT_EQ(next, ordinal) << "everything is sent once sends succeed again, sequence " << sequence;
        mNetwork.mTakesSends = false;
    }
}

// --- Creation ------------------------------------------------------------------------------------

struct CreateFailure {
    const char* name;
    const char* call;
    int failure;
    const char* step;
    KESTATUS status;
};

class RtpUdpSinkCreateTest : public RtpUdpSinkTest, public testing::WithParamInterface<CreateFailure> {};

TEST_P(RtpUdpSinkCreateTest, FailedStepIsReportedAndReturned) {
    const CreateFailure& row = GetParam();
    mNetwork.mFailingCall = row.call;
    mNetwork.mFailure = row.failure;
    EXPECT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", cPort, 5000, true), row.status);
    EXPECT_EQ(mLog.CountContaining(KEERROR, std::string(row.step) + " failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "ConfigureSocket failed, st="), 1u);
    EXPECT_EQ(mNetwork.mOpenLists, 0u);

    // The sink can still be created.
    mNetwork.mFailingCall.clear();
    mLog.Clear();
    CreateAndStart(false);
    Deliver(7);
    EXPECT_THAT(mNetwork.mDatagrams, ElementsAre(Payload(0, 7)));
}

INSTANTIATE_TEST_SUITE_P(Steps, RtpUdpSinkCreateTest,
                         testing::Values(CreateFailure{.name = "Resolve",
                                                       .call = "getaddrinfo",
                                                       .failure = EAI_NONAME,
                                                       .step = "GetAddressInfo",
                                                       .status = KESTATUS_NO_ADDRESS},
                                         CreateFailure{.name = "HostName",
                                                       .call = "getnameinfo",
                                                       .failure = EAI_FAMILY,
                                                       .step = "KEOsGetSocketHostName",
                                                       .status = KESTATUS_INVALID_ADDRESS},
                                         CreateFailure{.name = "Socket",
                                                       .call = "socket",
                                                       .failure = EMFILE,
                                                       .step = "CreateSocket",
                                                       .status = 0xE0010018},
                                         CreateFailure{.name = "Connect",
                                                       .call = "connect",
                                                       .failure = ENETUNREACH,
                                                       .step = "Connect",
                                                       .status = 0xE0010065},
                                         CreateFailure{.name = "NonBlocking",
                                                       .call = "fcntl",
                                                       .failure = EBADF,
                                                       .step = "EnableNonBlockingMode",
                                                       .status = 0xE0010009},
                                         CreateFailure{.name = "SendBuffer",
                                                       .call = "setsockopt",
                                                       .failure = ENOMEM,
                                                       .step = "SetSendBufferSize",
                                                       .status = 0xE001000C}),
                         [](const auto& row) { return row.param.name; });

TEST_F(RtpUdpSinkTest, CreationTakesItsStepsInOrder) {
    ASSERT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", cPort, 4096, true), KESTATUS_SUCCESS);
    EXPECT_THAT(mNetwork.mCalls, ElementsAre("getaddrinfo", "getnameinfo", "socket", "connect", "fcntl",
                                             "fcntl", "setsockopt"));
    EXPECT_THAT(mNetwork.mSendBufferSizes, ElementsAre(4096));
    EXPECT_EQ(mNetwork.mLookupFlags, 17);
    EXPECT_EQ(mNetwork.mOpenLists, 0u);
    EXPECT_EQ(mSink.SocketAddress(), "127.0.0.1");
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(RtpUdpSinkTest, SendBufferSizeZeroLeavesTheSystems) {
    CreateAndStart();
    EXPECT_THAT(mNetwork.mCalls, testing::Not(testing::Contains("setsockopt")));
}

TEST_F(RtpUdpSinkTest, UnresolvableName) {
    // A label of more than 63 characters fails without a query.
    EXPECT_EQ(mSink.CreateRtpUdpSink(std::string(64, 'a').c_str(), cPort, 0, true), KESTATUS_NO_ADDRESS);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "getaddrinfo failed, ret=-"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "GetAddressInfo failed, st=0xe0000025(KESTATUS_NO_ADDRESS)"), 1u);
}

TEST_F(RtpUdpSinkTest, TextOfAnIPv6Address) {
    ASSERT_EQ(mSink.CreateRtpUdpSink("0:0::0:1", cPort, 0, true), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SocketAddress(), "::1");
}

// --- A real receiver -----------------------------------------------------------------------------

class LoopbackReceiver {
public:
    LoopbackReceiver() : mSocket(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        EXPECT_EQ(getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        mPort = ntohs(address.sin_port);
    }
    ~LoopbackReceiver() { close(mSocket); }
    LoopbackReceiver(const LoopbackReceiver&) = delete;
    LoopbackReceiver& operator=(const LoopbackReceiver&) = delete;

    Bytes Receive() const {
        Bytes bytes(2000);
        const ssize_t size = recv(mSocket, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    std::uint16_t mPort = 0;

private:
    int mSocket;
};

TEST_F(RtpUdpSinkTest, RealDatagramsArrive) {
    const LoopbackReceiver receiver;
    ASSERT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", receiver.mPort, 0, true), KESTATUS_SUCCESS);
    ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    Deliver(9);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(receiver.Receive(), Datagram(0, 0, 7));
    EXPECT_EQ(receiver.Receive(), Datagram(1, 7, 2));
    EXPECT_THAT(receiver.Receive(), IsEmpty());
}

TEST_F(RtpUdpSinkTest, AReceiverThatIsGoneIsOnlyAStatus) {
    std::uint16_t port = 0;
    {
        const LoopbackReceiver receiver;
        port = receiver.mPort;
    }
    ASSERT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", port, 0, true), KESTATUS_SUCCESS);
    ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    unsigned refused = 0;
    for (unsigned i = 0; i < 200; ++i) {
        const KESTATUS st = Deliver();
        ASSERT_TRUE(st == KESTATUS_SUCCESS || st == cRefused);
        refused += st == cRefused ? 1 : 0;
    }
    EXPECT_GT(refused, 0u);
    EXPECT_EQ(mSink.QuerryStatistics().errSendFailed, refused);
}

// Another thread reads the statistics while the first failure is counted. It never sees the count without the
// status.
TEST_F(RtpUdpSinkTest, ACountedFailureHasItsStatus) {
    CreateAndStart();
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
        Deliver(1);
        mNetwork.mSendErrors = {ECONNREFUSED};
        std::atomic<bool> isLooking{false};
        std::atomic<bool> isOver{false};
        RtpUdpSink::Statistics seen;
        std::thread onlooker([&] {
            do {
                seen = mSink.QuerryStatistics();
                if (!isLooking.exchange(true)) {
                    isLooking.notify_one();
                }
            } while (seen.errSendFailed == 0 && !isOver.load());
        });
        isLooking.wait(false);
        EXPECT_NE(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
        isOver.store(true);
        onlooker.join();
        if (seen.errSendFailed != 0) {
            ASSERT_EQ(seen.lastSendFailure, KEStatusFromErrno(ECONNREFUSED)) << i;
        }
    }
}

} // namespace
