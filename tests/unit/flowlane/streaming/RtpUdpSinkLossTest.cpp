// What the RTP/UDP sink says of datagrams that do not arrive, and of a host that is not found.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "FakeNetwork.h"
#include "streaming/RtpUdpSink.h"

namespace flowlane {
namespace {

constexpr KESTATUS cRefused = KEStatusFromErrno(ECONNREFUSED);
constexpr KESTATUS cUnreachable = KEStatusFromErrno(ENETUNREACH);

// A port of the loopback interface on which nobody listens.
std::uint16_t ClosedPort() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
    close(descriptor);
    return ntohs(address.sin_port);
}

class RtpUdpSinkLossTest : public testing::Test {
protected:
    RtpUdpSinkLossTest() {
        EXPECT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", ClosedPort(), 0, true), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    }

    KESTATUS SendOnePacket() {
        EXPECT_EQ(mSink.DeliverTSPacket(TSPacket()), KESTATUS_SUCCESS);
        return mSink.SendDeliveredPackets();
    }

    testsupport::FakeNetwork mNetwork;
    RtpUdpSink mSink;
};

TEST_F(RtpUdpSinkLossTest, RefusalsAreCountedApart) {
    mNetwork.mTakesSends = true;
    mNetwork.mSendErrors = {ECONNREFUSED, ENETUNREACH, ECONNREFUSED};
    EXPECT_EQ(SendOnePacket(), cRefused);
    EXPECT_EQ(SendOnePacket(), cUnreachable);
    EXPECT_EQ(SendOnePacket(), cRefused);
    EXPECT_EQ(mSink.QuerryStatistics().errSendFailed, 3u);
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsRefused, 2u);
    ASSERT_EQ(mSink.StartSink(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsRefused, 0u);
}

TEST_F(RtpUdpSinkLossTest, DatagramThatIsLeftAtTheEndIsDropped) {
    mNetwork.mTakesSends = true;
    mNetwork.mSendErrors = {ENETUNREACH};
    EXPECT_EQ(SendOnePacket(), cUnreachable);
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 0u);
    mSink.StopSink();
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 1u);
    EXPECT_EQ(mSink.QuerryStatistics().errSendFailed, 1u);
    mSink.StopSink();
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 1u);
}

TEST_F(RtpUdpSinkLossTest, NothingIsLostWhenAllWasSent) {
    mNetwork.mTakesSends = true;
    mNetwork.mSendErrors = {ENETUNREACH};
    EXPECT_EQ(SendOnePacket(), cUnreachable);
    EXPECT_EQ(SendOnePacket(), KESTATUS_SUCCESS);
    mSink.StopSink();
    EXPECT_EQ(mSink.QuerryStatistics().errUdpPacketsDropped, 0u);
}

// The refusal of the last datagram comes back when there is nothing more to send.
TEST_F(RtpUdpSinkLossTest, LateRefusalIsSeenAtTheEnd) {
    EXPECT_EQ(SendOnePacket(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.QuerryStatistics().errSendFailed, 0u);
    mSink.StopSink();
    const RtpUdpSink::Statistics stats = mSink.QuerryStatistics();
    EXPECT_EQ(stats.errSendFailed, 1u);
    EXPECT_EQ(stats.errUdpPacketsRefused, 1u);
    EXPECT_EQ(stats.errUdpPacketsDropped, 1u);
    EXPECT_EQ(stats.lastSendFailure, cRefused);
}

TEST(RtpUdpSinkStopTest, WorksWithoutHavingBeenCreated) {
    RtpUdpSink sink;
    sink.StopSink();
    EXPECT_EQ(sink.QuerryStatistics().errUdpPacketsDropped, 0u);
}

TEST_F(RtpUdpSinkLossTest, KeepsWhyTheHostWasNotFound) {
    EXPECT_EQ(mSink.LookupError(), 0);
    // A label of more than 63 characters fails without a query.
    EXPECT_EQ(mSink.CreateRtpUdpSink(std::string(64, 'a').c_str(), 1, 0, true), KESTATUS_NO_ADDRESS);
    EXPECT_NE(mSink.LookupError(), 0);
    EXPECT_EQ(mSink.CreateRtpUdpSink("127.0.0.1", 1, 0, true), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.LookupError(), 0);
}

} // namespace
} // namespace flowlane
