// Receiving from a network interface what a packet socket sends at the other end of the link.
#include <net/if.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "netif/NetifFixture.h"
#include "netif/PacketReceiver.h"

namespace {

using namespace testsupport;

class NetifReceiveTest : public NetifFixture {};

struct BytesRow {
    const char* name;
    Bytes frame;
};

class NetifReceiveBytesTest : public NetifFixture, public testing::WithParamInterface<BytesRow> {};

// The kernel takes the outer tag out where its type is 0x8100 or 0x88A8, and leaves others in the frame.
TEST_P(NetifReceiveBytesTest, AsTheyWereSent) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    PeerSocket("flw0").Send(GetParam().frame);
    const auto received = Receive(device);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->type, QBXRawFrameType_Data);
    EXPECT_EQ(received->frame, GetParam().frame);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, NetifReceiveBytesTest,
    testing::Values(BytesRow{"Shortest", MakeFrame(14, 1)}, BytesRow{"Short", MakeFrame(59, 2)},
                    BytesRow{"Longest", MakeFrame(1514, 3)},
                    BytesRow{"CustomerTag", MakeTaggedFrame(1518, 4)},
                    BytesRow{"CustomerTagZero", MakeTaggedFrame(100, 5, {0x81, 0x00, 0x00, 0x00})},
                    BytesRow{"ServiceTag", MakeTaggedFrame(100, 6, {0x88, 0xA8, 0xFF, 0xFF})},
                    BytesRow{"ServiceAndCustomerTag",
                             MakeTaggedFrame(100, 7, {0x88, 0xA8, 0x10, 0x02, 0x81, 0x00, 0x30, 0x04})},
                    BytesRow{"TwoCustomerTags",
                             MakeTaggedFrame(100, 8, {0x81, 0x00, 0x10, 0x02, 0x81, 0x00, 0x30, 0x04})},
                    BytesRow{"OldTagType", MakeTaggedFrame(100, 9, {0x91, 0x00, 0x10, 0x02})},
                    BytesRow{"ShortestTagged", MakeTaggedFrame(20, 10)}),
    [](const auto& row) { return row.param.name; });

TEST_F(NetifReceiveTest, FramesOfOtherStationsAndJumbos) {
    Shell("ip link set flw0 mtu 9000 && ip link set flw1 mtu 9000");
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    Bytes foreign = MakeFrame(9014, 1);
    foreign[0] = 0x06; // nobody's address
    peer.Send(foreign);
    const auto received = Receive(device, 9014);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, foreign);
}

TEST_F(NetifReceiveTest, OwnTransmissionsAreNotReceived) {
    const QBXDeviceHandle receiver = OpenEnabledRx("flw0");
    const QBXDeviceHandle sender = OpenTx("flw0");
    Send(sender, MakeFrame(60, 1));
    PeerSocket("flw0").Send(MakeFrame(60, 2)); // of another program of this machine
    PeerSocket("flw1").Send(MakeFrame(60, 3));
    const auto received = Receive(receiver);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 3));
    EXPECT_EQ(received->sequence, 0u);
    PeerSocket("flw1").Send(MakeFrame(60, 4));
    const auto next = Receive(receiver);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->frame, MakeFrame(60, 4));
    EXPECT_EQ(next->sequence, 1u) << "something came in between";
}

// The loopback interface receives what is sent on it; once.
TEST_F(NetifReceiveTest, Loopback) {
    const QBXDeviceHandle receiver = OpenEnabledRx("lo");
    const QBXDeviceHandle sender = OpenTx("lo");
    Send(sender, MakeFrame(1000, 1));
    const auto received = Receive(receiver);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(1000, 1));
    Send(sender, MakeFrame(65550, 2)); // with an MTU of 65536
    const auto longest = Receive(receiver, 65550);
    ASSERT_TRUE(longest);
    EXPECT_EQ(longest->frame, MakeFrame(65550, 2));
    EXPECT_EQ(longest->sequence, 1u) << "the first one came twice";
}

TEST_F(NetifReceiveTest, ABridgeReceives) {
    Shell("ip link add flwbr type bridge && ip link set flw1 master flwbr && ip link set flwbr up");
    const QBXDeviceHandle receiver = OpenEnabledRx("flwbr");
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    const auto received = Receive(receiver);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 1));
    Shell("ip link del flwbr");
}

// An interface that stands on another one.
TEST_F(NetifReceiveTest, AMacvlanReceivesAndSends) {
    const std::string answer =
        ShellOutput("ip link add link flw1 name flwmac type macvlan mode bridge 2>&1 || true");
    if (answer.find("Unknown device type") != std::string::npos) {
        GTEST_SKIP() << "this kernel has no macvlan";
    }
    Shell("ip link set flwmac up");
    const QBXDeviceHandle receiver = OpenEnabledRx("flwmac");
    const QBXDeviceHandle sender = OpenTx("flwmac");
    const PeerSocket peer("flw0");
    Bytes frame = MakeFrame(60, 1);
    std::fill_n(frame.begin(), 6, std::uint8_t{0xFF});
    peer.Send(frame);
    const auto received = Receive(receiver);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, frame);
    Send(sender, MakeFrame(1514, 2));
    EXPECT_EQ(peer.Receive(), MakeFrame(1514, 2));
    EXPECT_EQ(State("flwmac"), "in use");
    Shell("ip link del flwmac");
}

// How many users want all frames of an interface.
int Promiscuity(const std::string& name) {
    const std::string text = ShellOutput("ip -d -o link show " + name);
    const std::string label = "promiscuity ";
    return std::stoi(text.substr(text.find(label) + label.size()));
}

TEST_F(NetifReceiveTest, PromiscuousWhileEnabled) {
    const QBXDeviceHandle device = OpenRx("flw1");
    EXPECT_EQ(Promiscuity("flw1"), 0);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    EXPECT_EQ(Promiscuity("flw1"), 1);
    EXPECT_EQ(QBX_DisableRawRx(device), KESTATUS_SUCCESS);
    EXPECT_EQ(Promiscuity("flw1"), 0);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
    EXPECT_EQ(Promiscuity("flw1"), 0);
}

class NetifDropTest : public NetifFixture, public testing::WithParamInterface<Use> {};

// A reader that does not read: what the ring cannot hold is dropped by the kernel, and counted to the frame.
TEST_P(NetifDropTest, DroppedFramesAreCountedToTheFrame) {
    constexpr std::uint32_t cSent = 64 * 1500;
    const QBXDeviceHandle receiver = OpenEnabledRx("flw1", GetParam());
    const QBXDeviceHandle sender = OpenTx("flw0");
    for (std::uint32_t number = 0; number < cSent; ++number) {
        Bytes frame = MakeFrame(1514, 0);
        std::memcpy(frame.data() + 14, &number, 4);
        ASSERT_EQ(Submit(sender, frame), KESTATUS_SUCCESS);
        if (number % 64 == 63) {
            ASSERT_EQ(QBX_SendRawFrames(sender), KESTATUS_SUCCESS);
        }
    }
    const std::uint32_t header = GetParam() == Use::Rx ? QBX_RAW_HEADER_2_SIZE : 0;
    Bytes buffer(2000);
    std::uint32_t frames = 0;
    std::uint32_t idles = 0;
    std::uint32_t sequence = 0;
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    std::uint32_t length = 0;
    while (QBX_WaitForRawFrame(receiver, 300) == KESTATUS_SUCCESS) {
        while (QBX_GetReceivedRawFrame(receiver, &type, buffer.data(), 2000, &length) == KESTATUS_SUCCESS) {
            std::memcpy(&sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
            if (type == QBXRawFrameType_Idle) {
                ++idles;
                continue;
            }
            std::uint32_t number = 0;
            std::memcpy(&number, buffer.data() + header + 14, 4);
            ASSERT_EQ(number, frames); // the oldest are kept
            ++frames;
        }
    }
    EXPECT_GT(frames, 20000u);
    EXPECT_LT(frames, cSent);
    EXPECT_EQ(LostFrames(receiver), cSent - frames);
    if (header != 0) {
        EXPECT_EQ(idles, 1u);
        EXPECT_EQ(sequence, cSent); // the report's own number
        Send(sender, MakeFrame(60, 1));
        const auto next = Receive(receiver);
        ASSERT_TRUE(next);
        EXPECT_EQ(next->sequence, cSent + 1);
    } else {
        EXPECT_EQ(idles, 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Headers, NetifDropTest, testing::Values(Use::Rx, Use::BareRx),
                         [](const auto& row) { return row.param == Use::Rx ? "WithHeader" : "Bare"; });

// At a trickle every block holds one frame: the reader may sleep for as long as there are blocks.
TEST_F(NetifReceiveTest, ATrickleOutlivesAStalledReader) {
    const QBXDeviceHandle receiver = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    for (std::uint32_t number = 0; number < 200; ++number) {
        peer.Send(MakeFrame(60, number));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    for (std::uint32_t number = 0; number < 200; ++number) {
        const auto received = Receive(receiver);
        ASSERT_TRUE(received);
        ASSERT_EQ(received->frame, MakeFrame(60, number));
        ASSERT_EQ(received->sequence, number);
    }
}

} // namespace
