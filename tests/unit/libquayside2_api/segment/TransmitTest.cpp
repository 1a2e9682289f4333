// Submitting and sending.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "SegmentFixture.h"

namespace {

constexpr std::uint32_t cBatchFrames = 64;

class TransmitTest : public SegmentFixture {
protected:
    static KESTATUS Submit(QBXDeviceHandle device, const Bytes& frame) {
        return QBX_SubmitRawFrame(device, frame.data(), static_cast<std::uint32_t>(frame.size()), nullptr);
    }
    static void Fill(QBXDeviceHandle device) {
        for (std::uint32_t i = 0; i < cBatchFrames; ++i) {
            ASSERT_EQ(Submit(device, MakeFrame(60, static_cast<std::uint8_t>(i))), KESTATUS_SUCCESS);
        }
    }
};

Bytes TaggedFrame(std::size_t length) {
    Bytes frame = MakeFrame(length, 9);
    frame[12] = 0x81;
    frame[13] = 0x00;
    return frame;
}

TEST_F(TransmitTest, Lengths) {
    const QBXDeviceHandle device = OpenTx(1);
    struct Row {
        std::uint32_t length;
        KESTATUS check;
        KESTATUS plain;
        KESTATUS tagged;
    };
    constexpr KESTATUS cOk = KESTATUS_SUCCESS;
    constexpr KESTATUS cBad = KESTATUS_INVALID_LENGTH;
    for (const Row& row : {Row{0, cBad, cBad, cBad}, Row{1, cBad, cBad, cBad}, Row{13, cBad, cBad, cBad},
                           Row{14, cOk, cOk, cOk}, Row{60, cOk, cOk, cOk}, Row{1513, cOk, cOk, cOk},
                           Row{1514, cOk, cOk, cOk}, Row{1515, cOk, cBad, cOk}, Row{1518, cOk, cBad, cOk},
                           Row{1519, cBad, cBad, cBad}, Row{9000, cBad, cBad, cBad}}) {
        EXPECT_EQ(QBX_CheckSubmitRawFrame(device, row.length), row.check) << row.length;
        const Bytes plain = MakeFrame(std::max(row.length, 14u), 1);
        const Bytes tagged = TaggedFrame(std::max(row.length, 14u));
        EXPECT_EQ(QBX_SubmitRawFrame(device, plain.data(), row.length, nullptr), row.plain) << row.length;
        EXPECT_EQ(QBX_SubmitRawFrame(device, tagged.data(), row.length, nullptr), row.tagged) << row.length;
    }
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 0xFFFFFFFF), KESTATUS_INVALID_LENGTH);
    Bytes doubleTagged = TaggedFrame(1518);
    doubleTagged[12] = 0x88;
    doubleTagged[13] = 0xA8;
    EXPECT_EQ(Submit(device, doubleTagged), KESTATUS_INVALID_LENGTH) << "only tag 0x8100 may be longer";
}

TEST_F(TransmitTest, SendWithoutFrames) {
    const QBXDeviceHandle device = OpenTx(1);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA);
    EXPECT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA);
}

TEST_F(TransmitTest, AFullBatchSaysNoSpaceUntilItIsSent) {
    const QBXDeviceHandle device = OpenTx(1);
    Fill(device);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 60), KESTATUS_NO_SPACE);
    EXPECT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_NO_SPACE);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 13), KESTATUS_INVALID_LENGTH)
        << "the length is looked at first";
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 60), KESTATUS_SUCCESS);
    Fill(device);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 60), KESTATUS_NO_SPACE);
}

TEST_F(TransmitTest, WaitForTxResources) {
    const QBXDeviceHandle device = OpenTx(1);
    for (const std::int32_t timeout : {0, 100, -1}) {
        EXPECT_EQ(QBX_WaitForTxResources(device, 0, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames + 1, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, 0xFFFFFFFF, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, 1, timeout), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames, timeout), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames - 1, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS) << "a wait that needs no room sends nothing";
    Fill(device);
    EXPECT_EQ(QBX_WaitForTxResources(device, 1, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA) << "it made room by sending";
}

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

TEST_F(TransmitTest, CloseSendsWhatWasSubmitted) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    ASSERT_EQ(Submit(tx, MakeFrame(100, 1)), KESTATUS_SUCCESS);
    ASSERT_EQ(Submit(tx, MakeFrame(101, 2)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(Receive(rx)->frame, MakeFrame(100, 1));
    EXPECT_EQ(Receive(rx)->frame, MakeFrame(101, 2));
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
    std::optional<Received> received;
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
    std::atomic<int> isWaiting{2};
    std::thread waiter([&] {
        QBX_WaitForTxResources(tx, cBatchFrames, 3000);
        --isWaiting;
    });
    std::thread reader([&] {
        for (int i = 0; i < 150; ++i) {
            Receive(rx);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        --isWaiting;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 60), KESTATUS_NO_SPACE);
        EXPECT_EQ(Submit(tx, MakeFrame(60, 1)), KESTATUS_NO_SPACE);
        EXPECT_EQ(LostFrames(tx), 0u);
    }
    EXPECT_EQ(isWaiting.load(), 2) << "it came after the wait";
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
