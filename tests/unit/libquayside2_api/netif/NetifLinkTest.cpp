// Receiving from an interface that goes down, comes up and is removed.
#include <net/if.h>

#include <chrono>
#include <thread>

#include "netif/NetifFixture.h"
#include "netif/PacketReceiver.h"

namespace {

using namespace testsupport;

class NetifLinkTest : public NetifFixture {
protected:
    // The status of a wait without limit that has begun before the call, if nothing holds this process up.
    template <typename Call>
    static KESTATUS StatusOfWaitDuring(QBXDeviceHandle device, Call&& call) {
        KESTATUS st = KESTATUS_SUCCESS;
        std::thread waiter([&] { st = QBX_WaitForRawFrame(device, -1); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        call();
        waiter.join();
        return st;
    }
};

TEST_F(NetifLinkTest, ALinkThatComesBackGoesOn) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(60, 1));
    Shell("ip link set flw1 down");
    EXPECT_TRUE(Receive(device)); // what came before
    EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_TIMEOUT);
    const std::uint64_t before = ProcessorTime();
    EXPECT_EQ(QBX_WaitForRawFrame(device, 500), KESTATUS_TIMEOUT);
    EXPECT_LT(ProcessorTime() - before, 100'000'000u);
    const KESTATUS st = StatusOfWaitDuring(device, [&] {
        SetLinkUp("flw1");
        peer.Send(MakeFrame(60, 2));
    });
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    const auto received = Receive(device);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 2));
    EXPECT_EQ(received->sequence, 1u);
}

TEST_F(NetifLinkTest, AnInterfaceThatWasDownFromTheBeginning) {
    Shell("ip link set flw1 down");
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    EXPECT_EQ(QBX_WaitForRawFrame(device, 50), KESTATUS_TIMEOUT);
    SetLinkUp("flw1");
    PeerSocket("flw0").Send(MakeFrame(60, 2));
    EXPECT_TRUE(Receive(device));
}

TEST_F(NetifLinkTest, ARemovedInterfaceIsAStatus) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    EXPECT_EQ(StatusOfWaitDuring(device, [] { Shell("ip link del flw1"); }), KESTATUS_DEVICE_REMOVED);
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

TEST_F(NetifLinkTest, FramesOfARemovedInterfaceAreStillTaken) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    const PeerSocket peer("flw0");
    peer.Send(MakeFrame(60, 1));
    peer.Send(MakeFrame(60, 2));
    ASSERT_EQ(QBX_WaitForRawFrame(device, cGenerousTime), KESTATUS_SUCCESS);
    Shell("ip link del flw1");
    EXPECT_TRUE(Receive(device));
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_SUCCESS);
    EXPECT_TRUE(Receive(device));
    EXPECT_EQ(QBX_WaitForRawFrame(device, -1), KESTATUS_DEVICE_REMOVED);
}

// The kernel reports the removal before it hands over the last frames.
TEST_F(NetifLinkTest, TheLastFramesBeforeARemovalAreTaken) {
    quayside2::netif::PacketReceiver receiver;
    // Longer blocks than the library has, so that the interface goes before the frame is handed over.
    ASSERT_EQ(receiver.Create({.blockBytes = 64u << 10, .blockCount = 64, .blockTimeout = 390}),
              KESTATUS_SUCCESS);
    ASSERT_EQ(receiver.Start(if_nametoindex("flw1")), KESTATUS_SUCCESS);
    PeerSocket("flw0").Send(MakeFrame(60, 1));
    Shell("ip link del flw1");
    KESTATUS st = KESTATUS_SUCCESS;
    for (int round = 0; round < 1000 && st == KESTATUS_SUCCESS; ++round) {
        st = receiver.Wait(1'000'000'000);
    }
    EXPECT_EQ(st, KESTATUS_DEVICE_REMOVED);
    EXPECT_TRUE(receiver.HasFrame());
}

// Removed after it went down: the kernel says nothing any more.
TEST_F(NetifLinkTest, AnInterfaceThatIsRemovedWhileDown) {
    const QBXDeviceHandle device = OpenEnabledRx("flw1");
    Shell("ip link set flw1 down");
    EXPECT_EQ(QBX_WaitForRawFrame(device, 300), KESTATUS_TIMEOUT);
    EXPECT_EQ(StatusOfWaitDuring(device, [] { Shell("ip link del flw1"); }), KESTATUS_DEVICE_REMOVED);
}

} // namespace
