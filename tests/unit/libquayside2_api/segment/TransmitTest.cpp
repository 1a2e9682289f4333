// Sending to lanes whose receivers are slow, stand still or are not there.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class TransmitTest : public SegmentFixture {};

TEST_F(TransmitTest, WaitingForResourcesLosesNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    // The receiver does not read, so the ring fills up; the wait must end in time and keep the frames.
    std::uint32_t sent = 0;
    KESTATUS st = KESTATUS_SUCCESS;
    while (sent < 100000 && (st = QBX_WaitForTxResources(tx, 1, 0)) == KESTATUS_SUCCESS) {
        ASSERT_EQ(Submit(tx, MakeFrame(1500, static_cast<std::uint8_t>(sent))), KESTATUS_SUCCESS);
        ++sent;
    }
    ASSERT_EQ(st, KESTATUS_TIMEOUT);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 60), KESTATUS_NO_SPACE);
    for (std::uint32_t i = 0; i < sent; ++i) {
        if (i == 1000) { // there is room now
            EXPECT_EQ(QBX_WaitForTxResources(tx, 1, 1000), KESTATUS_SUCCESS);
        }
        const auto received = Receive(rx);
        ASSERT_TRUE(received) << i;
        ASSERT_EQ(received->sequence, i);
        ASSERT_EQ(received->frame, MakeFrame(1500, static_cast<std::uint8_t>(i)));
    }
    EXPECT_EQ(Get(rx), KESTATUS_NO_DATA);
}

TEST_F(TransmitTest, NobodyListeningCostsNoTime) {
    const QBXDeviceHandle tx = OpenTx(1);
    const QBXDeviceHandle rx = OpenRx(2); // not enabled
    EXPECT_NE(rx, 0u);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 500; ++i) { // 48 MB, many times the ring
        for (std::uint32_t j = 0; j < cBatchFrames; ++j) {
            ASSERT_EQ(Submit(tx, MakeFrame(1514, 1)), KESTATUS_SUCCESS);
        }
        ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
    }
    // One wait for a receiver for each 64 KiB would make this a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(TransmitTest, AStoppedReceiverIsWaitedForOnce) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    EXPECT_NE(rx, 0u);
    const QBXDeviceHandle tx = OpenTx(1);
    const auto start = std::chrono::steady_clock::now();
    constexpr std::uint32_t cFlushes = 300; // 29 MB
    for (std::uint32_t i = 0; i < cFlushes; ++i) {
        for (std::uint32_t j = 0; j < cBatchFrames; ++j) {
            ASSERT_EQ(Submit(tx, MakeFrame(1514, static_cast<std::uint8_t>(j))), KESTATUS_SUCCESS);
        }
        ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(100)) << "it was not waited for at all";
    // Waiting 100 ms for each block would take 40 s.
    EXPECT_LT(taken, std::chrono::seconds(15));
    // It has lost the oldest, gets the rest whole, and the numbers tell.
    std::uint32_t frames = 0;
    std::optional<Item> received;
    std::uint32_t previous = 0;
    const auto first = TakeItem(rx);
    ASSERT_TRUE(first && first->type == QBXRawFrameType_Idle) << "its loss comes before the first frame";
    while (QBX_WaitForRawFrame(rx, 0) == KESTATUS_SUCCESS && (received = Receive(rx))) {
        ASSERT_EQ(received->frame,
                  MakeFrame(1514, static_cast<std::uint8_t>((received->sequence - 1) % cBatchFrames)));
        ASSERT_TRUE(frames == 0 || received->sequence == previous + 1);
        previous = received->sequence;
        ++frames;
    }
    EXPECT_EQ(previous, cFlushes * cBatchFrames); // the idle item has a number of its own
    EXPECT_GE(frames, 2000u);
    EXPECT_LT(frames, cFlushes * cBatchFrames);
}

// A receiver that takes a frame now and then is waited for; nobody else waits with the waiting thread.
TEST_F(TransmitTest, OtherCallsDoNotWaitForAWaitingThread) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    while (QBX_WaitForTxResources(tx, 1, 0) == KESTATUS_SUCCESS) {
        ASSERT_EQ(Submit(tx, MakeFrame(1500, 1)), KESTATUS_SUCCESS);
    }
    std::atomic<bool> isChecked{false};
    std::atomic<bool> isWaiting{true};
    std::thread waiter([&] {
        EXPECT_EQ(QBX_WaitForTxResources(tx, cBatchFrames, cGenerousTime), KESTATUS_SUCCESS);
        isWaiting = false;
    });
    // Moves often enough to be waited for, and too slowly to make room; at the end it takes everything.
    std::thread reader([&] {
        while (isWaiting) {
            EXPECT_TRUE(Receive(rx));
            if (!isChecked) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // so that it waits
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 60), KESTATUS_NO_SPACE);
        EXPECT_EQ(Submit(tx, MakeFrame(60, 1)), KESTATUS_NO_SPACE);
        EXPECT_EQ(LostFrames(tx), 0u);
    }
    EXPECT_TRUE(isWaiting) << "it came after the wait";
    isChecked = true;
    waiter.join();
    reader.join();
}

// Two threads wait for room in one batch; both get it, and every frame goes out once.
TEST_F(TransmitTest, TwoThreadsWaitForRoom) {
    constexpr std::uint32_t cFramesEach = 20000;
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    const auto send = [&](std::uint8_t tag) {
        for (std::uint32_t i = 0; i < cFramesEach; ++i) {
            const Bytes frame = MakeFrame(1000, tag);
            while (Submit(tx, frame) == KESTATUS_NO_SPACE) {
                ASSERT_EQ(QBX_WaitForTxResources(tx, 1, -1), KESTATUS_SUCCESS);
            }
        }
    };
    std::thread one(send, 1);
    std::thread other(send, 2);
    const std::uint32_t left = cBatchFrames; // at most: nobody sends the last ones
    std::uint32_t counts[3] = {};
    for (std::uint32_t i = 0; i < 2 * cFramesEach - left; ++i) {
        const auto received = Receive(rx);
        ASSERT_TRUE(received) << i;
        ASSERT_EQ(received->sequence, i);
        ++counts[received->frame == MakeFrame(1000, 1) ? 1 : received->frame == MakeFrame(1000, 2) ? 2 : 0];
    }
    one.join();
    other.join();
    EXPECT_EQ(counts[0], 0u);
    QBX_SendRawFrames(tx);
    while (const auto item = TakeItem(rx)) {
        ++counts[item->frame == MakeFrame(1000, 1) ? 1 : 2];
    }
    EXPECT_EQ(counts[1], cFramesEach);
    EXPECT_EQ(counts[2], cFramesEach);
}

} // namespace
