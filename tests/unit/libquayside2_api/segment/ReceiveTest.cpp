// Receiving what several lanes send.
#include <vector>

#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class ReceiveTest : public SegmentFixture {};

TEST_F(ReceiveTest, EveryOtherPortReceivesOwnFramesAreNot) {
    const QBXDeviceHandle tx = OpenTx(2);
    std::vector<QBXDeviceHandle> receivers;
    for (const unsigned lane : {1u, 3u, 4u}) {
        receivers.push_back(OpenEnabledRx(lane));
    }
    const Bytes frame = MakeFrame(777, 5);
    Send(tx, frame);
    for (const QBXDeviceHandle rx : receivers) {
        const auto received = Receive(rx);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->frame, frame);
        EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    }
    // The port's own frames do not come back to it when it becomes a receiver.
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    const QBXDeviceHandle own = OpenEnabledRx(2);
    EXPECT_EQ(QBX_WaitForRawFrame(own, 0), KESTATUS_TIMEOUT);
}

TEST_F(ReceiveTest, FramesOfSeveralSendersComeInTheOrderOfTheirTimes) {
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    const QBXDeviceHandle senders[] = {OpenTx(1), OpenTx(2), OpenTx(3)};
    std::vector<std::uint8_t> order;
    for (std::uint8_t i = 0; i < 200; ++i) {
        const std::uint8_t sender = static_cast<std::uint8_t>((i * i + i / 3) % 3);
        order.push_back(sender);
        Send(senders[sender], MakeFrame(60, sender));
    }
    std::uint64_t lastTime = 0;
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        const auto received = Receive(rx);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->frame, MakeFrame(60, order[i])) << i;
        EXPECT_EQ(received->sequence, i);
        EXPECT_GE(received->time, lastTime);
        lastTime = received->time;
    }
}

} // namespace
