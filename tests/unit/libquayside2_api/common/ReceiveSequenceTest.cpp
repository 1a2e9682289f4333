// The numbers of what a receive handle delivers.
#include <gtest/gtest.h>

#include "common/ReceiveSequence.h"

namespace {

using quayside2::ReceiveSequence;

TEST(ReceiveSequence, CountsItemsAndLosses) {
    ReceiveSequence sequence;
    EXPECT_FALSE(sequence.IsIdleDue(true));
    EXPECT_FALSE(sequence.IsIdleDue(false));
    EXPECT_EQ(sequence.Take(), 0u);
    sequence.Lose(3);
    EXPECT_FALSE(sequence.IsIdleDue(true)) << "the frame shows it";
    EXPECT_TRUE(sequence.IsIdleDue(false));
    EXPECT_EQ(sequence.Take(), 4u);
    EXPECT_FALSE(sequence.IsIdleDue(false)) << "told";
    sequence.Skip();
    EXPECT_EQ(sequence.Take(), 6u);
    EXPECT_EQ(sequence.Lost(), 3u) << "what is skipped was not lost by slowness";
}

TEST(ReceiveSequence, ALossBeforeTheFirstItemIsToldByTheSecond) {
    ReceiveSequence sequence;
    sequence.Lose(5);
    EXPECT_TRUE(sequence.IsIdleDue(true));
    EXPECT_EQ(sequence.Take(), 0u);
    EXPECT_FALSE(sequence.IsIdleDue(true));
    EXPECT_EQ(sequence.Take(), 6u);
    sequence.Lose(1);
    sequence.Start();
    EXPECT_FALSE(sequence.IsIdleDue(false));
    EXPECT_EQ(sequence.Take(), 0u);
    EXPECT_EQ(sequence.Lost(), 6u) << "of the handle, not of an enabling";
}

TEST(ReceiveSequence, BeginsAgainAt0After32Bits) {
    ReceiveSequence sequence;
    EXPECT_EQ(sequence.Take(), 0u);
    sequence.Lose(0xFFFFFFFE);
    EXPECT_EQ(sequence.Take(), 0xFFFFFFFFu);
    EXPECT_EQ(sequence.Take(), 0u);
    sequence.Lose(2);
    EXPECT_EQ(sequence.Take(), 3u);
    EXPECT_EQ(sequence.Lost(), 0x100000000u);
}

} // namespace
