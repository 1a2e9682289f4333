// Receiving from a network interface what a packet socket sends at the other end of the link.
#include <net/if.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "netif/NetifFixture.h"
#include "netif/PacketReceiver.h"

namespace {

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

TEST_F(NetifReceiveTest, BareFrames) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1", QBXRawHeaderType_None);
    PeerSocket("flw0").Send(MakeTaggedFrame(1518, 1));
    ASSERT_EQ(QBX_WaitForRawFrame(device, 10000), KESTATUS_SUCCESS);
    Bytes buffer(1518);
    std::uint32_t length = 0;
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    ASSERT_EQ(QBX_GetReceivedRawFrame(device, &type, buffer.data(), 1518, &length), KESTATUS_SUCCESS);
    EXPECT_EQ(type, QBXRawFrameType_Data);
    EXPECT_EQ(length, 1518u);
    EXPECT_EQ(buffer, MakeTaggedFrame(1518, 1));
    EXPECT_EQ(QBX_GetReceivedRawFrame(device, &type, buffer.data(), 1518, &length), KESTATUS_NO_DATA);
}

TEST_F(NetifReceiveTest, FramesOfOtherStationsAndJumbos) {
    Shell("ip link set flw0 mtu 9000 && ip link set flw1 mtu 9000");
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    Bytes foreign = MakeFrame(9014, 1);
    foreign[0] = 0x06; // nobody's address
    peer.Send(foreign);
    const auto received = Receive(device);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, foreign);
}

// The time of arrival, not of reading; numbers from 0 on.
TEST_F(NetifReceiveTest, TimesAndNumbers) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    std::uint64_t bounds[6] = {TimeOfDayNow()};
    for (std::uint32_t number = 0; number < 5; ++number) {
        peer.Send(MakeFrame(60, number));
        bounds[number + 1] = TimeOfDayNow();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (std::uint32_t number = 0; number < 5; ++number) {
        const auto received = Receive(device);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->frame, MakeFrame(60, number));
        EXPECT_EQ(received->sequence, number);
        EXPECT_GE(received->time, bounds[number]);
        EXPECT_LE(received->time, bounds[number + 1]);
    }
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
    EXPECT_EQ(QBX_WaitForRawFrame(receiver, 50), KESTATUS_TIMEOUT);
}

// The loopback interface receives what is sent on it; once.
TEST_F(NetifReceiveTest, Loopback) {
    const QBXDeviceHandle receiver = OpenEnabledRx("lo");
    const QBXDeviceHandle sender = OpenTx("lo");
    Send(sender, MakeFrame(1000, 1));
    const auto received = Receive(receiver);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(1000, 1));
    EXPECT_EQ(QBX_WaitForRawFrame(receiver, 50), KESTATUS_TIMEOUT);
    Send(sender, MakeFrame(65550, 2)); // with an MTU of 65536
    const auto longest = Receive(receiver);
    ASSERT_TRUE(longest);
    EXPECT_EQ(longest->frame, MakeFrame(65550, 2));
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

TEST_F(NetifReceiveTest, NothingBeforeEnablingOrAfterDisabling) {
    const QBXDeviceHandle device = OpenRx("flw1");
    const PeerSocket peer("flw0");
    Bytes buffer(2000);
    std::uint32_t length = 0;
    const auto get = [&] { return QBX_GetReceivedRawFrame(device, nullptr, buffer.data(), 2000, &length); };
    peer.Send(MakeFrame(60, 1));
    EXPECT_EQ(QBX_WaitForRawFrame(device, 20), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(get(), KESTATUS_NOT_ENABLED);
    for (std::uint32_t round = 0; round < 3; ++round) {
        EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_TIMEOUT);
        EXPECT_EQ(get(), KESTATUS_NO_DATA);
        peer.Send(MakeFrame(60, 10 + round));
        const auto received = Receive(device);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->frame, MakeFrame(60, 10 + round));
        EXPECT_EQ(received->sequence, 0u);
        peer.Send(MakeFrame(60, 20)); // still in the ring when reception ends
        EXPECT_EQ(QBX_DisableRawRx(device), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_DisableRawRx(device), KESTATUS_SUCCESS);
        peer.Send(MakeFrame(60, 21));
        EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_NOT_ENABLED);
        EXPECT_EQ(get(), KESTATUS_NOT_ENABLED);
    }
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

TEST_F(NetifReceiveTest, FramesLongerThanTheBufferAreMissing) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    for (const std::size_t length : {100u, 101u, 100u, 200u, 1514u, 99u}) {
        peer.Send(MakeFrame(length, 1));
    }
    peer.Send(MakeTaggedFrame(101, 1));
    peer.Send(MakeTaggedFrame(100, 1));
    std::this_thread::sleep_for(
        std::chrono::milliseconds(100)); // all are handed over, or a report may come between
    std::string seen;
    Bytes buffer(116);
    while (seen.size() < 40 && QBX_WaitForRawFrame(device, 10000) == KESTATUS_SUCCESS) {
        std::uint32_t length = 0;
        std::uint32_t sequence = 0;
        while (QBX_GetReceivedRawFrame(device, nullptr, buffer.data(), 116, &length) == KESTATUS_SUCCESS) {
            std::memcpy(&sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
            seen += std::to_string(sequence) + ":" + std::to_string(length) + " ";
        }
        if (sequence == 7) {
            break;
        }
    }
    EXPECT_EQ(seen, "0:116 2:116 5:115 7:116 ");
}

// Nothing follows that could show the loss, so a header alone does.
TEST_F(NetifReceiveTest, ALossAtTheEndIsReported) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(60, 1));
    ASSERT_TRUE(Receive(device));
    peer.Send(MakeFrame(61, 2));
    peer.Send(MakeFrame(61, 3));
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // both are handed over
    const auto report = Receive(device, 76);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->type, QBXRawFrameType_Idle);
    EXPECT_EQ(report->frame, Bytes());
    EXPECT_EQ(report->sequence, 3u); // 1 and 2 are missing, 3 is the report
    EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_TIMEOUT);
    peer.Send(MakeFrame(60, 4));
    const auto next = Receive(device);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, QBXRawFrameType_Data);
    EXPECT_EQ(next->sequence, 4u);
}

// A reader compares with the first number that it gets: it has to stand before the gap.
TEST_F(NetifReceiveTest, ALossAtTheBeginningIsReported) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(61, 1));
    peer.Send(MakeFrame(61, 2));
    peer.Send(MakeFrame(60, 3));
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // all are handed over
    const auto report = Receive(device, 76);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->type, QBXRawFrameType_Idle);
    EXPECT_EQ(report->sequence, 0u);
    const auto next = Receive(device, 76);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, QBXRawFrameType_Data);
    EXPECT_EQ(next->frame, MakeFrame(60, 3));
    EXPECT_EQ(next->sequence, 3u);
    EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_TIMEOUT);
}

TEST_F(NetifReceiveTest, ABufferWithoutRoomForTheHeader) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    ASSERT_EQ(QBX_WaitForRawFrame(device, 10000), KESTATUS_SUCCESS);
    Bytes buffer(15);
    std::uint32_t length = 0;
    EXPECT_EQ(QBX_GetReceivedRawFrame(device, nullptr, buffer.data(), 15, &length),
              KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_TRUE(Receive(device));
}

class NetifDropTest : public NetifFixture, public testing::WithParamInterface<QBXRawHeaderType> {};

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
    const std::uint32_t header = GetParam() == QBXRawHeaderType_2 ? QBX_RAW_HEADER_2_SIZE : 0;
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

INSTANTIATE_TEST_SUITE_P(Headers, NetifDropTest, testing::Values(QBXRawHeaderType_2, QBXRawHeaderType_None),
                         [](const auto& row) {
                             return row.param == QBXRawHeaderType_2 ? "WithHeader" : "Bare";
                         });

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

class NetifWakeTest : public NetifFixture {
protected:
    // What a thread that waits without limit gets, and how long after the call it does.
    template <typename Call>
    KESTATUS WaitWhile(QBXDeviceHandle device, Call&& call, std::chrono::milliseconds& delay) {
        KESTATUS st = KESTATUS_SUCCESS;
        std::chrono::steady_clock::time_point woken;
        std::thread waiter([&] {
            st = QBX_WaitForRawFrame(device, -1);
            woken = std::chrono::steady_clock::now();
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const auto called = std::chrono::steady_clock::now();
        call();
        waiter.join();
        delay = std::chrono::duration_cast<std::chrono::milliseconds>(woken - called);
        return st;
    }
};

TEST_F(NetifWakeTest, DisablingWakes) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    std::chrono::milliseconds shortest = std::chrono::hours(1);
    for (int round = 0; round < 5; ++round) {
        std::chrono::milliseconds delay{};
        EXPECT_EQ(WaitWhile(
                      device, [&] { QBX_DisableRawRx(device); }, delay),
                  KESTATUS_NOT_ENABLED);
        shortest = std::min(shortest, delay);
        EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(50));
}

TEST_F(NetifWakeTest, DisablingAndEnablingAgainWakesToo) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    std::chrono::milliseconds delay{};
    const KESTATUS st = WaitWhile(
        device,
        [&] {
            QBX_DisableRawRx(device);
            QBX_EnableRawRx(device);
        },
        delay);
    EXPECT_EQ(st, KESTATUS_NOT_ENABLED);
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    EXPECT_TRUE(Receive(device));
}

TEST_F(NetifWakeTest, ClosingWakes) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    std::chrono::milliseconds delay{};
    EXPECT_EQ(WaitWhile(
                  device, [&] { QBX_CloseDevice(device); }, delay),
              KESTATUS_INVALID_HANDLE);
}

TEST_F(NetifWakeTest, AFrameWakes) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    std::chrono::milliseconds delay{};
    EXPECT_EQ(WaitWhile(
                  device, [&] { peer.Send(MakeFrame(60, 1)); }, delay),
              KESTATUS_SUCCESS);
}

TEST_F(NetifWakeTest, ALinkThatComesBackGoesOn) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(60, 1));
    std::chrono::milliseconds delay{};
    Shell("ip link set flw1 down");
    EXPECT_TRUE(Receive(device)); // what came before
    EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_TIMEOUT);
    const std::uint64_t before = ProcessorTime();
    EXPECT_EQ(QBX_WaitForRawFrame(device, 1000), KESTATUS_TIMEOUT);
    EXPECT_LT(ProcessorTime() - before, 200'000'000u);
    const KESTATUS st = WaitWhile(
        device,
        [&] {
            SetLinkUp("flw1");
            peer.Send(MakeFrame(60, 2));
        },
        delay);
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    const auto received = Receive(device);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 2));
    EXPECT_EQ(received->sequence, 1u);
}

TEST_F(NetifWakeTest, AnInterfaceThatWasDownFromTheBeginning) {
    Shell("ip link set flw1 down");
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    EXPECT_EQ(QBX_WaitForRawFrame(device, 50), KESTATUS_TIMEOUT);
    SetLinkUp("flw1");
    PeerSocket("flw0").Send(MakeFrame(60, 2));
    EXPECT_TRUE(Receive(device));
}

TEST_F(NetifWakeTest, ARemovedInterfaceIsAStatus) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    std::chrono::milliseconds delay{};
    EXPECT_EQ(WaitWhile(
                  device, [] { Shell("ip link del flw1"); }, delay),
              KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(QBX_DisableRawRx(device), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_NOT_ENABLED);
    MakeLink();
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_DEVICE_REMOVED); // another one of the same name
    const QBXDeviceHandle again = OpenEnabledRx("flw1");
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    EXPECT_TRUE(Receive(again));
}

TEST_F(NetifWakeTest, FramesOfARemovedInterfaceAreStillTaken) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(60, 1));
    peer.Send(MakeFrame(60, 2));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Shell("ip link del flw1");
    EXPECT_TRUE(Receive(device));
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_SUCCESS);
    EXPECT_TRUE(Receive(device));
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_DEVICE_REMOVED);
}

// The kernel tells of the removal before it hands over the last frames.
TEST_F(NetifWakeTest, TheLastFramesBeforeARemovalAreTaken) {
    quayside2::netif::PacketReceiver receiver;
    ASSERT_EQ(receiver.Create({64u << 10, 64, 200}), KESTATUS_SUCCESS);
    ASSERT_EQ(receiver.Start(if_nametoindex("flw1")), KESTATUS_SUCCESS);
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    Shell("ip link del flw1");
    KESTATUS st = KESTATUS_SUCCESS;
    while (st == KESTATUS_SUCCESS && !receiver.HasFrame()) {
        st = receiver.Wait(1'000'000'000);
    }
    EXPECT_EQ(st, KESTATUS_DEVICE_REMOVED);
    EXPECT_TRUE(receiver.HasFrame());
}

// Removed after it went down: the kernel says nothing any more.
TEST_F(NetifWakeTest, AnInterfaceThatIsRemovedWhileDown) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    Shell("ip link set flw1 down");
    EXPECT_EQ(QBX_WaitForRawFrame(device, 600), KESTATUS_TIMEOUT);
    std::chrono::milliseconds delay{};
    EXPECT_EQ(WaitWhile(
                  device, [] { Shell("ip link del flw1"); }, delay),
              KESTATUS_DEVICE_REMOVED);
}

// The limit is far above what it should be; it finds a loop that does not sleep.
TEST_F(NetifWakeTest, WaitingCostsNoProcessorTime) {
    for (const QBXRawHeaderType type : {QBXRawHeaderType_2, QBXRawHeaderType_None}) {
        const QBXDeviceHandle device = OpenEnabledRx("flw1", type);
        const std::uint64_t before = ProcessorTime();
        EXPECT_EQ(QBX_WaitForRawFrame(device, 1500), KESTATUS_TIMEOUT);
        EXPECT_LT(ProcessorTime() - before, 100'000'000u);
        QBX_CloseDevice(device);
    }
}

} // namespace
