// Packets and their clock references, the queue of packets, and what a sink and the clock promise.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <type_traits>

#include "streaming/SinkBase.h"
#include "streaming/SourceBase.h"
#include "streaming/TSPacketQueue.h"
#include "streaming/TSStream.h"

using namespace flowlane;
using namespace testsupport;

TEST(TSPacketTest, IsZeroAtFirst) {
    const TSPacket packet;
    EXPECT_TRUE(std::all_of(std::begin(packet.mData), std::end(packet.mData),
                            [](std::uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(sizeof packet.mData, 188u);
    EXPECT_EQ(packet.mDeliverTime.time_since_epoch().count(), 0);
    EXPECT_FALSE(packet.HasSyncByte());
    EXPECT_FALSE(packet.HasPCR());
}

TEST(TSPacketTest, FindsThePCR) {
    struct Case {
        std::uint8_t byte3, byte4, byte5;
        bool hasPCR;
    };
    const Case cases[] = {
        {0x20, 1, 0x10, true}, // the length need not cover the PCR
        {0x30, 7, 0x10, true},     {0x3F, 183, 0xFF, true},
        {0xFF, 255, 0x1F, true},   {0x10, 7, 0x10, false}, // no adaptation field
        {0xDF, 7, 0x10, false},    {0x30, 0, 0x10, false}, // an empty one
        {0x30, 7, 0x00, false},    {0x30, 7, 0xEF, false}, // no PCR in it
        {0x00, 0x00, 0x00, false},
    };
    for (const Case& c : cases) {
        for (const std::uint8_t pid :
             {std::uint8_t{0x00}, std::uint8_t{0x1F}, std::uint8_t{0xFF}}) { // on any PID
            TSPacket packet;
            packet.mData[0] = 0x47;
            packet.mData[1] = pid;
            packet.mData[2] = pid;
            packet.mData[3] = c.byte3;
            packet.mData[4] = c.byte4;
            packet.mData[5] = c.byte5;
            EXPECT_EQ(packet.HasPCR(), c.hasPCR)
                << unsigned{c.byte3} << " " << unsigned{c.byte4} << " " << unsigned{c.byte5};
        }
    }
}

TEST(TSPacketTest, FindsTheDiscontinuityIndicator) {
    struct Case {
        std::uint8_t byte3, byte4, byte5;
        bool hasDiscontinuity;
    };
    const Case cases[] = {
        {0x20, 1, 0x80, true},   {0x30, 7, 0x90, true},
        {0xFF, 255, 0xFF, true}, {0x10, 7, 0x80, false}, // no adaptation field
        {0x30, 0, 0x80, false},                          // an empty one
        {0x30, 7, 0x7F, false},  {0x00, 0, 0x00, false},
    };
    for (const Case& c : cases) {
        TSPacket packet;
        packet.mData[3] = c.byte3;
        packet.mData[4] = c.byte4;
        packet.mData[5] = c.byte5;
        EXPECT_EQ(packet.HasDiscontinuity(), c.hasDiscontinuity)
            << unsigned{c.byte3} << " " << unsigned{c.byte4} << " " << unsigned{c.byte5};
    }
}

TEST(TSPacketTest, ReadsThePID) {
    TSPacket packet;
    packet.mData[1] = 0xFF;
    packet.mData[2] = 0xA5;
    EXPECT_EQ(packet.PID(), 0x1FA5u);
    packet.mData[1] = 0xE0;
    EXPECT_EQ(packet.PID(), 0xA5u);
}

TEST(TSPacketTest, TimeBetweenPCRsGoesTheShorterWayRound) {
    using namespace std::chrono_literals;
    constexpr std::uint64_t cEnd = std::uint64_t{1} << 33;
    EXPECT_EQ(TSPacketDurationBetweenPCRs(90000, 180000), 1s);
    EXPECT_EQ(TSPacketDurationBetweenPCRs(180000, 90000), -1s);
    EXPECT_EQ(TSPacketDurationBetweenPCRs(cEnd - 45000, 45000), 1s);
    EXPECT_EQ(TSPacketDurationBetweenPCRs(45000, cEnd - 45000), -1s);
    EXPECT_EQ(TSPacketDurationBetweenPCRs(7, 7), 0s);
}

TEST(TSPacketTest, ReadsThePCRBase) {
    struct Case {
        std::uint8_t bytes[6];
        std::uint64_t ticks;
    };
    const Case cases[] = {
        {{0, 0, 0, 0, 0, 0}, 0},
        {{0, 0, 0, 0, 0x80, 0}, 1},
        {{0, 0, 0, 0, 0x7F, 0xFF}, 0}, // reserved bits and extension
        {{0, 0, 0, 1, 0, 0}, 2},
        {{0x80, 0, 0, 0, 0, 0}, 0x100000000},
        {{0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF}, 0x2468ACF1},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0}, 0x1FFFFFFFF},
    };
    for (const Case& c : cases) {
        TSPacket packet;
        std::copy(std::begin(c.bytes), std::end(c.bytes), packet.mData + 6);
        EXPECT_EQ(packet.PCR(), c.ticks);
    }
}

TEST(TSPacketTest, ConvertsTicksToNanoseconds) {
    const std::pair<std::uint64_t, std::int64_t> cases[] = {
        {0, 0},
        {1, 11111},
        {8, 88888},
        {9, 100000},
        {10, 111111},
        {89999, 999988888},
        {90000, 1000000000},
        {(std::uint64_t{1} << 33) - 1, 95443717677777}, // 8589934591 * 100000 / 9
    };
    for (const auto& [ticks, nanoseconds] : cases) {
        EXPECT_EQ(TSPacketDurationFromPCR(ticks).count(), nanoseconds) << ticks;
    }
    static_assert(std::is_same_v<TSPacketDuration::rep, std::int64_t>);
}

TEST(TSPacketTest, TheTestsStreamsHaveTheirPCRs) {
    for (const std::uint64_t ticks : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0x123456789}}) {
        TSPacket packet;
        const auto bytes = TSStream::PacketBytes({ticks, true}, 0x01020304);
        std::copy(bytes.begin(), bytes.end(), packet.mData);
        EXPECT_TRUE(packet.HasSyncByte());
        EXPECT_TRUE(packet.HasPCR());
        EXPECT_EQ(packet.PCR(), ticks);
        EXPECT_EQ(TSStream::OrdinalOf(packet), 0x01020304u);
    }
}

TEST(TSPacketQueueTest, IsFirstInFirstOut) {
    TSPacket packets[3];
    TSPacketQueue queue;
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_EQ(queue.Head(), nullptr);
    EXPECT_EQ(queue.Tail(), nullptr);
    EXPECT_EQ(queue.RemoveHead(), nullptr);
    EXPECT_EQ(queue.Count(), 0u);
    for (std::uint32_t i = 0; i < 3; ++i) {
        queue.Append(packets[i]);
        EXPECT_EQ(queue.Count(), i + 1);
        EXPECT_EQ(queue.Head(), &packets[0]);
        EXPECT_EQ(queue.Tail(), &packets[i]);
    }
    for (TSPacket& packet : packets) {
        EXPECT_EQ(queue.RemoveHead(), &packet);
        EXPECT_EQ(packet.mListEntry.mList, nullptr);
    }
    EXPECT_TRUE(queue.IsEmpty());
}

TEST(TSPacketQueueTest, ReleasesToThePoolFromItsHead) {
    TSPacketPool pool;
    ASSERT_EQ(pool.AllocatePool(4), KESTATUS_SUCCESS);
    TSPacketQueue queue;
    while (TSPacket* packet = pool.GetItem()) {
        queue.Append(*packet);
    }
    queue.ReleaseToPoolUntil(5);
    EXPECT_EQ(queue.Count(), 4u);
    queue.ReleaseToPoolUntil(1);
    EXPECT_EQ(queue.Head()->mIndex, 3u);
    EXPECT_EQ(pool.CurrentCount(), 3u);
    queue.ReleaseToPoolUntil(0);
    EXPECT_TRUE(queue.IsEmpty());
    for (std::uint32_t i = 0; i < 4; ++i) { // in the order in which they were queued
        TSPacket* packet = pool.GetItem();
        EXPECT_EQ(packet->mIndex, i);
        packet->ReleaseToPool();
    }
}

TEST(SinkBaseTest, OffersNothingByItself) {
    struct PlainSink final : SinkBase {
        KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
        void StopSink() override {}
    } sink;
    EXPECT_EQ(sink.DeliverTSPacket(TSPacket()), KESTATUS_NOT_SUPPORTED);
    EXPECT_EQ(sink.SendDeliveredPackets(), KESTATUS_NOT_SUPPORTED);
}

TEST(PipelineClockTest, TheSystemClockIsTheSteadyClock) {
    PipelineClock& clock = PipelineClock::System();
    const auto before = std::chrono::steady_clock::now();
    const auto now = clock.Now();
    const auto after = std::chrono::steady_clock::now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
    clock.Sleep(20);
    EXPECT_GE(std::chrono::steady_clock::now() - after, std::chrono::milliseconds(20));
    EXPECT_EQ(&clock, &PipelineClock::System());
}
