// Receiving: delivery, the receive header, waiting and being stopped.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "SegmentFixture.h"

namespace {

class ReceiveTest : public SegmentFixture {
protected:
    // Runs a wait without limit on another thread, lets it fall asleep, and returns its status after the
    // action.
    template <typename Action>
    static KESTATUS StatusOfWaitAfter(QBXDeviceHandle device, Action&& action) {
        std::atomic<KESTATUS> status{KESTATUS_PENDING};
        std::thread waiter([&] { status.store(QBX_WaitForRawFrame(device, -1)); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(status.load(), KESTATUS_PENDING);
        action();
        waiter.join();
        return status.load();
    }
};

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

TEST_F(ReceiveTest, FramesOfEveryLengthArriveUnchanged) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    for (std::size_t length = 14; length <= 1514; ++length) {
        const Bytes frame = MakeFrame(length, static_cast<std::uint8_t>(length));
        Send(tx, frame);
        const auto received = Receive(rx);
        ASSERT_TRUE(received) << length;
        ASSERT_EQ(received->frame, frame) << length;
    }
    Bytes tagged = MakeFrame(1518, 3);
    tagged[12] = 0x81;
    tagged[13] = 0x00;
    Send(tx, tagged);
    EXPECT_EQ(Receive(rx)->frame, tagged);
}

TEST_F(ReceiveTest, HeaderHasTheTimeOfDayAndCountsFromZero) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_REALTIME, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1000000000u +
               static_cast<std::uint64_t>(time.tv_nsec);
    };
    for (std::uint32_t i = 0; i < 20; ++i) {
        const Bytes frame = MakeFrame(64, 1);
        ASSERT_EQ(QBX_SubmitRawFrame(tx, frame.data(), 64, nullptr), KESTATUS_SUCCESS);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const std::uint64_t before = now();
        ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
        const std::uint64_t after = now();
        const auto received = Receive(rx);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->sequence, i);
        EXPECT_LT(received->nanoseconds, 1000000000u);
        const std::uint64_t stamp = received->seconds * 1000000000u + received->nanoseconds;
        EXPECT_GE(stamp, before) << "the time of sending, not of submitting";
        EXPECT_LE(stamp, after);
    }
}

TEST_F(ReceiveTest, WithoutHeaderTheBufferHoldsTheBareFrame) {
    const QBXDeviceHandle rx = OpenEnabledRx(1, QBXRawHeaderType_None);
    const QBXDeviceHandle tx = OpenTx(2);
    const Bytes frame = MakeFrame(100, 8);
    Send(tx, frame);
    ASSERT_EQ(QBX_WaitForRawFrame(rx, 10000), KESTATUS_SUCCESS);
    Bytes buffer(100);
    std::uint32_t length = 0;
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    ASSERT_EQ(QBX_GetReceivedRawFrame(rx, &type, buffer.data(), 100, &length), KESTATUS_SUCCESS);
    EXPECT_EQ(type, QBXRawFrameType_Data);
    EXPECT_EQ(length, 100u);
    EXPECT_EQ(buffer, frame);
    length = 77;
    EXPECT_EQ(QBX_GetReceivedRawFrame(rx, &type, buffer.data(), 100, &length), KESTATUS_NO_DATA);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(type, QBXRawFrameType_Unknown);
}

TEST_F(ReceiveTest, AFrameTooLongForTheBufferIsSkippedAndCounted) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    for (const std::size_t length : {60u, 61u, 1000u, 60u}) {
        Send(tx, MakeFrame(length, static_cast<std::uint8_t>(length)));
    }
    Bytes buffer(QBX_RAW_HEADER_2_SIZE + 60 + 4, 0xEE);
    std::vector<std::uint32_t> sequences;
    std::uint32_t length = 0;
    while (QBX_GetReceivedRawFrame(rx, nullptr, buffer.data(), QBX_RAW_HEADER_2_SIZE + 60, &length) ==
           KESTATUS_SUCCESS) {
        EXPECT_EQ(length, QBX_RAW_HEADER_2_SIZE + 60u);
        std::uint32_t sequence = 0;
        std::memcpy(&sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
        sequences.push_back(sequence);
    }
    EXPECT_EQ(sequences, (std::vector<std::uint32_t>{0, 3}));
    EXPECT_EQ(Bytes(buffer.end() - 4, buffer.end()), Bytes(4, 0xEE)) << "written beyond the buffer";
}

TEST_F(ReceiveTest, ABufferWithoutRoomForTheHeaderTakesNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    Send(tx, MakeFrame(60, 1));
    std::uint8_t buffer[QBX_RAW_HEADER_2_SIZE];
    std::uint32_t length = 0;
    for (const std::uint32_t size : {0u, 1u, QBX_RAW_HEADER_2_SIZE - 1u}) {
        EXPECT_EQ(QBX_GetReceivedRawFrame(rx, nullptr, buffer, size, &length), KESTATUS_BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(Receive(rx)->frame, MakeFrame(60, 1));
}

TEST_F(ReceiveTest, NothingOldIsDelivered) {
    const QBXDeviceHandle tx = OpenTx(2);
    Send(tx, MakeFrame(60, 1));
    const QBXDeviceHandle rx = OpenRx(1);
    Send(tx, MakeFrame(60, 2));
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, -1), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(Get(rx), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    EXPECT_EQ(Get(rx), KESTATUS_NO_DATA);
    Send(tx, MakeFrame(60, 3));
    const auto received = Receive(rx);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 3));
    EXPECT_EQ(received->sequence, 0u);
}

TEST_F(ReceiveTest, DisableDiscardsAndEnableStartsAnew) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS) << "enabling twice";
    Send(tx, MakeFrame(60, 1));
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS) << "without effect on what has come";
    EXPECT_EQ(Receive(rx)->frame, MakeFrame(60, 1));
    Send(tx, MakeFrame(60, 2));
    EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS) << "disabling twice";
    EXPECT_EQ(Get(rx), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 1000), KESTATUS_NOT_ENABLED);
    Send(tx, MakeFrame(60, 3));
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(Get(rx), KESTATUS_NO_DATA);
    Send(tx, MakeFrame(60, 4));
    const auto received = Receive(rx);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(60, 4));
    EXPECT_EQ(received->sequence, 0u) << "numbers start with each enabling";
}

TEST_F(ReceiveTest, WaitTimesOut) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    for (const int milliseconds : {0, 1, 30, 250}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(QBX_WaitForRawFrame(rx, milliseconds), KESTATUS_TIMEOUT);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(milliseconds));
    }
}

TEST_F(ReceiveTest, AWaitEndsWithAFrame) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    EXPECT_EQ(StatusOfWaitAfter(rx, [&] { Send(tx, MakeFrame(60, 1)); }), KESTATUS_SUCCESS);
    EXPECT_EQ(Receive(rx)->frame, MakeFrame(60, 1)) << "waiting takes nothing";
}

TEST_F(ReceiveTest, DisableEndsAWait) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    EXPECT_EQ(StatusOfWaitAfter(rx, [&] { QBX_DisableRawRx(rx); }), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
    const auto restart = [&] {
        QBX_DisableRawRx(rx);
        QBX_EnableRawRx(rx);
    };
    EXPECT_EQ(StatusOfWaitAfter(rx, restart), KESTATUS_NOT_ENABLED) << "stopped meanwhile, though enabled";
}

TEST_F(ReceiveTest, CloseEndsAWait) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    EXPECT_EQ(StatusOfWaitAfter(rx, [&] { EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS); }),
              KESTATUS_INVALID_HANDLE);
    EXPECT_EQ(TryOpenRx(1), KESTATUS_SUCCESS);
}

// A waiting receiver also looks up by itself now and then; being woken is much sooner than that.
TEST_F(ReceiveTest, WaitsEndAtOnce) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const QBXDeviceHandle tx = OpenTx(2);
    const auto medianDelay = [&](auto&& action) {
        std::vector<std::chrono::steady_clock::duration> delays;
        for (int i = 0; i < 15; ++i) {
            EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
            std::chrono::steady_clock::time_point woken;
            std::thread waiter([&] {
                QBX_WaitForRawFrame(rx, -1);
                woken = std::chrono::steady_clock::now();
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(15)); // so that it sleeps
            const auto start = std::chrono::steady_clock::now();
            action();
            waiter.join();
            delays.push_back(woken - start);
            while (Get(rx) == KESTATUS_SUCCESS) {
            }
        }
        std::nth_element(delays.begin(), delays.begin() + 7, delays.end());
        return delays[7];
    };
    constexpr auto cSoon = std::chrono::milliseconds(40);
    EXPECT_LT(medianDelay([&] { Send(tx, MakeFrame(60, 1)); }), cSoon);
    EXPECT_LT(medianDelay([&] { QBX_DisableRawRx(rx); }), cSoon);
}

TEST_F(ReceiveTest, AnIdleWaitCostsNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    const std::clock_t before = std::clock();
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 1000), KESTATUS_TIMEOUT);
    EXPECT_LT(static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC, 0.1);
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
        const std::uint64_t time = received->seconds * 1000000000u + received->nanoseconds;
        EXPECT_GE(time, lastTime);
        lastTime = time;
    }
}

} // namespace
