// Several threads on the same handles: the thread sanitizer watches.
#include <atomic>
#include <chrono>
#include <thread>

#include "SanitizedBuild.h"
#include "SegmentFixture.h"
#include "lane_frame.h"

namespace {

using namespace testsupport;

constexpr std::uint32_t cFrames = cSanitizedBuild ? 20000 : 100000;

class ConcurrencyTest : public SegmentFixture {};

TEST_F(ConcurrencyTest, TwoSendingThreadsAndTwoReceivingThreads) {
    const QBXDeviceHandle tx = OpenTx(1);
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    std::atomic<std::uint32_t> taken{0};
    std::atomic<std::uint32_t> torn{0};
    const auto send = [&](std::uint32_t run) {
        for (std::uint32_t i = 0; i < cFrames; ++i) {
            std::uint8_t frame[LANE_FRAME_MAX];
            const std::uint32_t length = LaneFrameLength(run, i);
            LaneFrameFill(frame, length, run, i);
            KESTATUS st = KESTATUS_SUCCESS;
            while ((st = QBX_SubmitRawFrame(tx, frame, length, nullptr)) == KESTATUS_NO_SPACE) {
                st = QBX_SendRawFrames(tx);
                EXPECT_TRUE(st == KESTATUS_SUCCESS || st == KESTATUS_NO_DATA) << st;
            }
            EXPECT_EQ(st, KESTATUS_SUCCESS);
        }
        QBX_SendRawFrames(tx);
    };
    const auto receive = [&] {
        while (QBX_WaitForRawFrame(rx, -1) == KESTATUS_SUCCESS) {
            std::uint8_t buffer[QBX_RAW_HEADER_2_SIZE + LANE_FRAME_MAX];
            std::uint32_t length = 0;
            while (QBX_GetReceivedRawFrame(rx, nullptr, buffer, sizeof buffer, &length) == KESTATUS_SUCCESS) {
                std::uint32_t run = 0;
                std::uint32_t number = 0;
                torn += LaneFrameCheck(buffer + QBX_RAW_HEADER_2_SIZE, length - QBX_RAW_HEADER_2_SIZE, &run,
                                       &number) != 0
                            ? 0
                            : 1;
                ++taken;
            }
        }
    };
    std::thread receivers[] = {std::thread(receive), std::thread(receive)};
    std::thread senders[] = {std::thread(send, 1), std::thread(send, 2)};
    for (std::thread& sender : senders) {
        sender.join();
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (taken.load() < 2 * cFrames && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS);
    for (std::thread& receiver : receivers) {
        receiver.join();
    }
    EXPECT_EQ(taken.load(), 2 * cFrames);
    EXPECT_EQ(torn.load(), 0u);
}

// Frames from three senders reach a fourth port complete, each sender's in order.
TEST_F(ConcurrencyTest, ThreeSendersAtOnce) {
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    std::vector<std::jthread> senders;
    for (unsigned lane = 1; lane <= 3; ++lane) {
        senders.emplace_back([tx = OpenTx(lane), lane] {
            for (std::uint32_t i = 0; i < cFrames; ++i) {
                std::uint8_t frame[LANE_FRAME_MAX];
                const std::uint32_t length = LaneFrameLength(lane, i);
                LaneFrameFill(frame, length, lane, i);
                EXPECT_EQ(QBX_SubmitRawFrame(tx, frame, length, nullptr), KESTATUS_SUCCESS);
                if (i % 40 == 39 || i == cFrames - 1) {
                    EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
                }
            }
        });
    }
    std::uint32_t next[4] = {};
    for (std::uint32_t i = 0; i < 3 * cFrames; ++i) {
        const auto received = Receive(rx);
        std::uint32_t run = 0;
        std::uint32_t number = 0;
        ASSERT_TRUE(received) << i;
        ASSERT_EQ(received->sequence, i) << "nothing is lost while everyone lives";
        ASSERT_NE(LaneFrameCheck(received->frame.data(), static_cast<std::uint32_t>(received->frame.size()),
                                 &run, &number),
                  0);
        ASSERT_TRUE(run >= 1 && run <= 3);
        ASSERT_EQ(number, next[run]++);
    }
}

TEST_F(ConcurrencyTest, OnlyOneOfManyClosesSucceeds) {
    for (int round = 0; round < 200; ++round) {
        const QBXDeviceHandle device = OpenControl(1);
        std::atomic<int> closed{0};
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] { closed += QBX_CloseDevice(device) == KESTATUS_SUCCESS ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(closed.load(), 1);
    }
}

TEST_F(ConcurrencyTest, EnumeratingFromManyThreads) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 500; ++round) {
                const Enumeration list;
                EXPECT_EQ(list.count, 4u);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
