// Delivering from any source of frames: buffers, headers, frames that are left out, and reports of losses.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "common/ReceiveDelivery.h"

namespace {

using quayside2::ReceiveDelivery;
using quayside2::ReceivedFrames;

constexpr std::uint64_t cSecond = 1'000'000'000;
constexpr std::uint32_t cHeader = QBX_RAW_HEADER_2_SIZE;

// Frames that the test puts in, with the losses before them.
class ScriptedFrames : public ReceivedFrames {
public:
    struct Entry {
        Frame frame;
        std::uint32_t lostBefore = 0;
        bool isOverwritten = false; // between Peek and Take
    };

    bool Peek(Frame& frame) noexcept override {
        if (entries.empty()) {
            return false;
        }
        frame = entries.front().frame;
        return true;
    }
    std::uint32_t TakeLoss() noexcept override {
        return std::exchange(entries.empty() ? lostAtTheEnd : entries.front().lostBefore, 0);
    }
    bool Take(std::uint8_t* to) noexcept override {
        const Entry entry = entries.front();
        entries.pop_front();
        if (to) {
            std::memset(to, 0x55, entry.frame.length);
        }
        return !entry.isOverwritten;
    }
    std::uint64_t DeliveryTime(std::uint64_t time) noexcept override { return time + shift; }

    std::deque<Entry> entries;
    std::uint32_t lostAtTheEnd = 0;
    std::uint64_t shift = 0;
};

struct Item {
    KESTATUS st = KESTATUS_SUCCESS;
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    std::uint32_t length = 0;
    std::uint64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    std::uint32_t sequence = 0;
    std::vector<std::uint8_t> buffer;
};

Item Take(ReceiveDelivery& delivery, ReceivedFrames& frames, std::uint32_t bufferSize) {
    Item item;
    item.buffer.assign(bufferSize, 0xEE);
    item.st = delivery.TakeItem(frames, item.type, item.buffer.data(), bufferSize, item.length);
    if (item.st == KESTATUS_SUCCESS && bufferSize >= cHeader) {
        std::memcpy(&item.seconds, item.buffer.data() + QBX_RAW_HEADER_2_SECONDS_OFFSET, 8);
        std::memcpy(&item.nanoseconds, item.buffer.data() + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, 4);
        std::memcpy(&item.sequence, item.buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
    }
    return item;
}

TEST(ReceiveDelivery, WritesTheHeaderAndTheFrameBehindIt) {
    ScriptedFrames frames;
    frames.shift = 3;
    frames.entries.push_back({.frame = {.time = 7 * cSecond + 999'999'996, .length = 20}});
    ReceiveDelivery delivery(true);
    const Item item = Take(delivery, frames, cHeader + 24);
    EXPECT_EQ(item.st, KESTATUS_SUCCESS);
    EXPECT_EQ(item.type, QBXRawFrameType_Data);
    EXPECT_EQ(item.length, cHeader + 20);
    EXPECT_EQ(item.seconds, 7u);
    EXPECT_EQ(item.nanoseconds, 999'999'999u) << "the time that the source has for it";
    EXPECT_EQ(item.sequence, 0u);
    EXPECT_EQ(std::vector<std::uint8_t>(item.buffer.begin() + cHeader, item.buffer.begin() + cHeader + 20),
              std::vector<std::uint8_t>(20, 0x55));
    EXPECT_EQ(item.buffer[cHeader + 20], 0xEE) << "written beyond the frame";
    EXPECT_EQ(Take(delivery, frames, cHeader + 24).st, KESTATUS_NO_DATA);
}

TEST(ReceiveDelivery, ABufferWithoutRoomForTheHeaderTakesNothing) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 1, .length = 20}, .lostBefore = 2});
    ReceiveDelivery delivery(true);
    EXPECT_EQ(Take(delivery, frames, cHeader - 1).st, KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(frames.entries.size(), 1u);
    EXPECT_EQ(delivery.Lost(), 0u) << "nothing was looked at";
    ReceiveDelivery bare(false);
    EXPECT_EQ(Take(bare, frames, 20).st, KESTATUS_SUCCESS) << "no header, no room needed for it";
}

TEST(ReceiveDelivery, ReportsALossBeforeTheFirstFrameWithThatFramesTime) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 5 * cSecond, .length = 20}, .lostBefore = 4});
    ReceiveDelivery delivery(true);
    const Item report = Take(delivery, frames, cHeader + 20);
    EXPECT_EQ(report.type, QBXRawFrameType_Idle);
    EXPECT_EQ(report.length, cHeader);
    EXPECT_EQ(report.seconds, 5u);
    EXPECT_EQ(report.sequence, 0u);
    const Item first = Take(delivery, frames, cHeader + 20);
    EXPECT_EQ(first.type, QBXRawFrameType_Data);
    EXPECT_EQ(first.sequence, 5u);
    EXPECT_EQ(delivery.Lost(), 4u);
}

TEST(ReceiveDelivery, ReportsALossThatNoFrameFollows) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 1, .length = 20}});
    frames.lostAtTheEnd = 2;
    ReceiveDelivery delivery(true);
    EXPECT_EQ(Take(delivery, frames, cHeader + 20).type, QBXRawFrameType_Data);
    const Item report = Take(delivery, frames, cHeader + 20);
    EXPECT_EQ(report.type, QBXRawFrameType_Idle);
    EXPECT_EQ(report.sequence, 3u);
    EXPECT_EQ(Take(delivery, frames, cHeader + 20).st, KESTATUS_NO_DATA);
}

TEST(ReceiveDelivery, WithoutHeadersALossIsOnlyCounted) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 1, .length = 20}, .lostBefore = 4});
    frames.lostAtTheEnd = 1;
    ReceiveDelivery delivery(false);
    const Item first = Take(delivery, frames, 20);
    EXPECT_EQ(first.type, QBXRawFrameType_Data);
    EXPECT_EQ(first.length, 20u);
    EXPECT_EQ(Take(delivery, frames, 20).st, KESTATUS_NO_DATA);
    EXPECT_EQ(delivery.Lost(), 5u);
}

TEST(ReceiveDelivery, LeavesOutWhatDoesNotFitOrIsCut) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 1, .length = 20}});
    frames.entries.push_back({.frame = {.time = 2, .length = 21}});
    frames.entries.push_back({.frame = {.time = 3, .length = 10, .isCut = true}});
    frames.entries.push_back({.frame = {.time = 4, .length = 20}});
    ReceiveDelivery delivery(true);
    EXPECT_EQ(Take(delivery, frames, cHeader + 20).sequence, 0u);
    const Item last = Take(delivery, frames, cHeader + 20);
    EXPECT_EQ(last.type, QBXRawFrameType_Data);
    EXPECT_EQ(last.sequence, 3u);
    EXPECT_EQ(delivery.Lost(), 0u) << "reading was not too slow for them";
}

TEST(ReceiveDelivery, AFrameOverwrittenMeanwhileIsNotDelivered) {
    ScriptedFrames frames;
    frames.entries.push_back({.frame = {.time = 1, .length = 20}});
    frames.entries.push_back({.frame = {.time = 2, .length = 20}, .isOverwritten = true});
    frames.entries.push_back({.frame = {.time = 3, .length = 99}, .isOverwritten = true});
    frames.entries.push_back({.frame = {.time = 4, .length = 20}, .lostBefore = 2});
    ReceiveDelivery delivery(true);
    EXPECT_EQ(Take(delivery, frames, cHeader + 20).sequence, 0u);
    EXPECT_EQ(Take(delivery, frames, cHeader + 20).sequence, 3u) << "each loss counted once";
    EXPECT_EQ(delivery.Lost(), 2u);
}

// A call must end in bounded time, even when all that comes is too long.
TEST(ReceiveDelivery, OneCallDoesNotSkipForEver) {
    ScriptedFrames frames;
    constexpr std::uint32_t cFrames = 5000;
    for (std::uint32_t i = 0; i < cFrames; ++i) {
        frames.entries.push_back({.frame = {.time = i, .length = 21}});
    }
    ReceiveDelivery delivery(false);
    EXPECT_EQ(Take(delivery, frames, 20).st, KESTATUS_NO_DATA);
    EXPECT_LT(frames.entries.size(), cFrames);
    EXPECT_GT(frames.entries.size(), 0u);
    std::uint32_t calls = 1;
    for (; !frames.entries.empty() && calls < cFrames; ++calls) {
        EXPECT_EQ(Take(delivery, frames, 20).st, KESTATUS_NO_DATA);
    }
    EXPECT_LT(calls, 10u) << "the next calls go on";
}

} // namespace
