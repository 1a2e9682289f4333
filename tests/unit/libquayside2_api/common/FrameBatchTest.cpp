// The queue of submitted frames: order, places that come round again, and places that grow.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "common/FrameBatch.h"

namespace {

using quayside2::FrameBatch;

// A frame of this length whose bytes are the tag.
void Add(FrameBatch& batch, std::uint32_t length, std::uint8_t tag) {
    const std::vector<std::uint8_t> frame(length, tag);
    batch.Add(frame.data(), length);
}

void ExpectFrame(const FrameBatch& batch, std::uint32_t number, std::uint32_t length, std::uint8_t tag) {
    const FrameBatch::Frame frame = batch.At(number);
    ASSERT_EQ(frame.length, length);
    EXPECT_EQ(std::vector<std::uint8_t>(frame.data, frame.data + length),
              std::vector<std::uint8_t>(length, tag));
}

TEST(FrameBatch, KeepsTheOrderWhenItsPlacesComeRoundAgain) {
    FrameBatch batch;
    batch.SetMaxFrameBytes(100);
    EXPECT_TRUE(batch.IsEmpty());
    std::uint8_t next = 0;
    std::uint8_t oldest = 0;
    for (std::uint32_t round = 0; round < 20; ++round) {
        while (batch.FreeFrames() != 0) {
            Add(batch, 14 + next % 87u, next);
            ++next;
        }
        EXPECT_EQ(batch.FrameCount(), FrameBatch::cMaxFrames);
        const std::uint32_t removed = 1 + round * 3;
        for (std::uint32_t number = 0; number < removed; ++number) {
            ExpectFrame(batch, number, 14 + oldest % 87u, oldest);
            ++oldest;
        }
        batch.RemoveFirst(removed);
        EXPECT_EQ(batch.FreeFrames(), removed);
        ExpectFrame(batch, 0, 14 + oldest % 87u, oldest);
    }
}

TEST(FrameBatch, PlacesGrowWhenItIsEmpty) {
    FrameBatch batch;
    EXPECT_EQ(batch.MaxFrameBytes(), 0u);
    batch.SetMaxFrameBytes(60);
    Add(batch, 60, 1);
    batch.RemoveFirst(1);
    EXPECT_TRUE(batch.IsEmpty());
    batch.SetMaxFrameBytes(9018);
    EXPECT_EQ(batch.MaxFrameBytes(), 9018u);
    for (std::uint8_t tag = 0; tag < FrameBatch::cMaxFrames; ++tag) {
        Add(batch, 9018, tag);
    }
    for (std::uint8_t tag = 0; tag < FrameBatch::cMaxFrames; ++tag) {
        ExpectFrame(batch, tag, 9018, tag);
    }
}

} // namespace
