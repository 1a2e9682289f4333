// Sending on a network interface, seen by a packet socket at the other end of the link.
#include <chrono>
#include <thread>

#include "netif/NetifFixture.h"

namespace {

using namespace testsupport;

class NetifTransmitTest : public NetifFixture {};

constexpr KESTATUS cGood = KESTATUS_SUCCESS;
constexpr KESTATUS cBad = KESTATUS_INVALID_LENGTH;

struct LengthRow {
    const char* name;
    unsigned mtu = 1500;
    std::size_t length;
    const char* tag = ""; // or "8100" or "88A8"
    KESTATUS checkStatus = cGood;
    KESTATUS submitStatus = cGood;
};

class NetifTransmitLengthTest : public NetifFixture, public testing::WithParamInterface<LengthRow> {};

TEST_P(NetifTransmitLengthTest, OnlyWhatTheLinkCarries) {
    const LengthRow& row = GetParam();
    Shell("ip link set flw0 mtu " + std::to_string(row.mtu) + " && ip link set flw1 mtu " +
          std::to_string(row.mtu));
    const std::string tag = row.tag;
    const Bytes frame =
        tag.empty()
            ? MakeFrame(row.length, 1)
            : MakeTaggedFrame(row.length, 1, tag == "8100" ? Bytes{0x81, 0, 0, 1} : Bytes{0x88, 0xA8, 0, 1});
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, static_cast<std::uint32_t>(row.length)), row.checkStatus);
    EXPECT_EQ(Submit(device, frame), row.submitStatus);
    EXPECT_EQ(QBX_SendRawFrames(device),
              row.submitStatus == KESTATUS_SUCCESS ? KESTATUS_SUCCESS : KESTATUS_NO_DATA);
    if (row.submitStatus == KESTATUS_SUCCESS) {
        EXPECT_EQ(peer.Receive(), frame); // in its own length: short frames are not padded on this link
    }
    EXPECT_TRUE(peer.IsEmpty());
    EXPECT_EQ(LostFrames(device), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, NetifTransmitLengthTest,
    testing::Values(
        LengthRow{.name = "TooShort", .length = 13, .checkStatus = cBad, .submitStatus = cBad},
        LengthRow{.name = "Shortest", .length = 14}, LengthRow{.name = "MinimumOfTheWire", .length = 60},
        LengthRow{.name = "Longest", .length = 1514},
        LengthRow{.name = "OneMore", .length = 1515, .submitStatus = cBad},
        LengthRow{.name = "FourMore", .length = 1518, .submitStatus = cBad},
        LengthRow{.name = "Tagged", .length = 1515, .tag = "8100"},
        LengthRow{.name = "LongestTagged", .length = 1518, .tag = "8100"},
        LengthRow{.name = "TaggedTooLong",
                  .length = 1519,
                  .tag = "8100",
                  .checkStatus = cBad,
                  .submitStatus = cBad},
        LengthRow{.name = "ServiceTag", .length = 1514, .tag = "88A8"},
        LengthRow{.name = "ServiceTagTooLong", .length = 1515, .tag = "88A8", .submitStatus = cBad},
        LengthRow{.name = "Jumbo", .mtu = 9000, .length = 9014},
        LengthRow{.name = "JumboTagged", .mtu = 9000, .length = 9018, .tag = "8100"},
        LengthRow{.name = "JumboTooLong",
                  .mtu = 9000,
                  .length = 9019,
                  .tag = "8100",
                  .checkStatus = cBad,
                  .submitStatus = cBad},
        LengthRow{.name = "SmallMtu", .mtu = 100, .length = 114},
        LengthRow{
            .name = "SmallMtuTooLong", .mtu = 100, .length = 119, .checkStatus = cBad, .submitStatus = cBad},
        LengthRow{.name = "Huge", .mtu = 65535, .length = 65549}),
    [](const auto& row) { return row.param.name; });

TEST_F(NetifTransmitTest, FramesInOrder) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    std::uint32_t received = 0;
    for (std::uint32_t number = 0; number < 1000; ++number) {
        ASSERT_EQ(Submit(device, MakeFrame(60 + number, number)), KESTATUS_SUCCESS);
        if (number % 50 == 49) {
            ASSERT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
            for (; received <= number; ++received) {
                ASSERT_EQ(peer.Receive(), MakeFrame(60 + received, received)) << received;
            }
        }
    }
    EXPECT_TRUE(peer.IsEmpty());
}

TEST_F(NetifTransmitTest, AGrownMtuIsSeenAtOnce) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    ASSERT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 4000), KESTATUS_INVALID_LENGTH);
    Shell("ip link set flw0 mtu 4000 && ip link set flw1 mtu 4000");
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 4000), KESTATUS_NO_SPACE); // until the batch is empty
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 4000), KESTATUS_SUCCESS);
    Send(device, MakeFrame(4014, 2));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 1));
    EXPECT_EQ(peer.Receive(), MakeFrame(4014, 2));
}

TEST_F(NetifTransmitTest, AShrunkMtuCostsWhatWasSubmittedAndNoMore) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    for (std::uint32_t number = 0; number < 5; ++number) {
        ASSERT_EQ(Submit(device, MakeFrame(number % 2 == 0 ? 100 : 1514, number)), KESTATUS_SUCCESS);
    }
    Shell("ip link set flw0 mtu 1000");
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    EXPECT_EQ(LostFrames(device), 2u);
    for (const std::uint32_t number : {0u, 2u, 4u}) {
        EXPECT_EQ(peer.Receive(), MakeFrame(100, number));
    }
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 1514), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 1014), KESTATUS_SUCCESS);
}

TEST_F(NetifTransmitTest, ALinkThatIsDownIsSurvivedAndCounted) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    Shell("ip link set flw0 down");
    for (std::uint32_t number = 0; number < 10; ++number) {
        Send(device, MakeFrame(60, number));
    }
    EXPECT_EQ(LostFrames(device), 10u);
    SetLinkUp("flw0");
    Send(device, MakeFrame(60, 99));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 99));
    EXPECT_EQ(LostFrames(device), 10u);
}

TEST_F(NetifTransmitTest, ALinkThatWasDownFromTheBeginning) {
    Shell("ip link set flw0 down");
    const QBXDeviceHandle device = OpenTx("flw0");
    Send(device, MakeFrame(60, 1));
    EXPECT_EQ(LostFrames(device), 1u);
    SetLinkUp("flw0");
    const PeerSocket peer("flw1");
    Send(device, MakeFrame(60, 2));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 2));
    EXPECT_EQ(LostFrames(device), 1u);
}

// The kernel takes the frames and drops them without a word.
TEST_F(NetifTransmitTest, FramesOfALinkWithoutCarrierAreCounted) {
    const QBXDeviceHandle device = OpenTx("flw0");
    Shell("ip link set flw1 down && for i in $(seq 500); do ip -o link show flw0 | grep -q 'state UP' || "
          "exit 0; sleep 0.01; done; exit 1");
    for (std::uint32_t number = 0; number < 10; ++number) {
        Send(device, MakeFrame(60, number));
    }
    EXPECT_EQ(LostFrames(device), 10u);
    SetLinkUp("flw1");
    const PeerSocket peer("flw1");
    Send(device, MakeFrame(60, 99));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 99));
    EXPECT_EQ(LostFrames(device), 10u);
}

// The other end takes no frames of this length: each attempt fails with "no buffer space". Only the first
// frame is tried for a while.
TEST_F(NetifTransmitTest, AnEndThatRefusesFramesHoldsNothingUp) {
    constexpr std::uint32_t cRounds = 1000;
    const PeerSocket peer("flw1");
    Shell("ip link set flw1 mtu 1000");
    const QBXDeviceHandle device = OpenTx("flw0");
    const auto before = std::chrono::steady_clock::now();
    for (std::uint32_t round = 0; round < cRounds; ++round) {
        for (std::uint32_t number = 0; number < 8; ++number) {
            ASSERT_EQ(Submit(device, MakeFrame(1500, number)), KESTATUS_SUCCESS);
        }
        ASSERT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(4));
    EXPECT_EQ(LostFrames(device), cRounds * 8);
    Send(device, MakeFrame(60, 1));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 1));
    EXPECT_EQ(LostFrames(device), cRounds * 8);
}

// Each refused frame between accepted ones is tried for a while, but not for long.
TEST_F(NetifTransmitTest, RefusedFramesBetweenOthers) {
    const PeerSocket peer("flw1");
    Shell("ip link set flw1 mtu 1000");
    const QBXDeviceHandle device = OpenTx("flw0");
    const auto before = std::chrono::steady_clock::now();
    for (std::uint32_t round = 0; round < 10; ++round) {
        ASSERT_EQ(Submit(device, MakeFrame(1500, round)), KESTATUS_SUCCESS);
        Send(device, MakeFrame(60, round));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    EXPECT_EQ(LostFrames(device), 10u);
    for (std::uint32_t round = 0; round < 10; ++round) {
        EXPECT_EQ(peer.Receive(), MakeFrame(60, round));
    }
}

TEST_F(NetifTransmitTest, ARemovedInterfaceIsAStatus) {
    const QBXDeviceHandle device = OpenTx("flw0");
    ASSERT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    Shell("ip link del flw0");
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(LostFrames(device), 1u);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 2000), KESTATUS_DEVICE_REMOVED);
    for (std::uint32_t number = 0; number < 64; ++number) {
        ASSERT_EQ(Submit(device, MakeFrame(60, number)), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(QBX_WaitForTxResources(device, 1, -1), KESTATUS_DEVICE_REMOVED);
    // Another interface of the name is another interface.
    MakeLink();
    ASSERT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(TryOpenTx("flw0"), KESTATUS_SUCCESS);
}

TEST_F(NetifTransmitTest, ARenamedInterfaceGoesOn) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    Shell("ip link set flw0 down && ip link set flw0 name flw5");
    SetLinkUp("flw5");
    Send(device, MakeFrame(60, 1));
    EXPECT_EQ(peer.Receive(), MakeFrame(60, 1));
    Shell("ip link del flw5");
}

// 500 frames of 12 kbit at 20 Mbit/s: 0.3 s of back-pressure.
TEST_F(NetifTransmitTest, ASlowLinkIsWaitedFor) {
    Shell("tc qdisc add dev flw0 root tbf rate 20mbit burst 20kb limit 1mb");
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    std::thread reader([&] {
        for (std::uint32_t number = 0; number < 500; ++number) {
            ASSERT_EQ(peer.Receive(), MakeFrame(1514, number)) << number;
        }
    });
    for (std::uint32_t number = 0; number < 500; ++number) {
        if (QBX_CheckSubmitRawFrame(device, 1514) == KESTATUS_NO_SPACE) {
            EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
        }
        EXPECT_EQ(Submit(device, MakeFrame(1514, number)), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    reader.join();
    EXPECT_EQ(LostFrames(device), 0u);
}

// Sends until the link takes no more. Returns how many frames it took.
std::uint64_t FillLink(QBXDeviceHandle device) {
    std::uint64_t taken = 0;
    for (;;) {
        for (std::uint32_t number = 0; number < 64; ++number) {
            const Bytes frame = MakeFrame(1514, number);
            EXPECT_EQ(QBX_SubmitRawFrame(device, frame.data(), 1514, nullptr), KESTATUS_SUCCESS);
        }
        if (QBX_WaitForTxResources(device, 64, 1) != KESTATUS_SUCCESS) {
            return taken;
        }
        taken += 64;
    }
}

constexpr const char* cStandstill = "tc qdisc add dev flw0 root tbf rate 100bit burst 2kb limit 100mb";

TEST_F(NetifTransmitTest, AStandstillIsBoundedAndCounted) {
    Shell(cStandstill);
    const QBXDeviceHandle device = OpenTx("flw0");
    FillLink(device);
    EXPECT_EQ(LostFrames(device), 0u); // what found no room is still there
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    const auto taken = std::chrono::steady_clock::now() - before;
    EXPECT_GT(taken, std::chrono::milliseconds(900));
    EXPECT_LT(taken, std::chrono::seconds(10));
    EXPECT_GT(LostFrames(device), 0u);
    EXPECT_LE(LostFrames(device), 64u);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA);
}

TEST_F(NetifTransmitTest, WaitingCostsNoProcessorTime) {
    Shell(cStandstill);
    const QBXDeviceHandle device = OpenTx("flw0");
    FillLink(device);
    const std::uint64_t before = ProcessorTime();
    EXPECT_EQ(QBX_WaitForTxResources(device, 64, 500), KESTATUS_TIMEOUT);
    EXPECT_LT(ProcessorTime() - before, 100'000'000u);
}

// They come while the wait goes on: it ends with the closing, and with nothing else.
TEST_F(NetifTransmitTest, OtherCallsDoNotWaitForAThreadThatWaitsAndClosingWakesIt) {
    Shell(cStandstill);
    const QBXDeviceHandle device = OpenTx("flw0");
    FillLink(device);
    KESTATUS st = KESTATUS_SUCCESS;
    std::thread waiter([&] { st = QBX_WaitForTxResources(device, 64, -1); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // so that it waits
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(LostFrames(device), 0u);
        EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 13), KESTATUS_INVALID_LENGTH);
        Submit(device, MakeFrame(60, 1));
    }
    EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
    waiter.join();
    EXPECT_EQ(st, KESTATUS_INVALID_HANDLE);
}

} // namespace
