// The frame that stands for an external trigger: its bytes, and which of its kind a replay skips.

#include "capture/TriggerFrame.h"

#include <gtest/gtest.h>

#include "ByteList.h"

namespace {

using namespace flowlane;
using namespace testsupport;

const ByteList cAddresses = Concat({ByteList(6, 0), ByteList(6, 0xFF)});
const ByteList cHead = Concat({cAddresses, {0x00, 0x0E, 0x12, 0x34, 0xC0, 0x00}});

ByteList Written(const ByteList& eventData) {
    ByteList frame(triggerframe::cSize, 0xAA);
    triggerframe::Write(frame.data(), View(eventData));
    return frame;
}

ByteList WithLengthField(unsigned char value) {
    return Concat({cAddresses, {0, value}});
}

TEST(TriggerFrameTest, HasAnEthernetHeaderTheMagicAndTheEventData) {
    EXPECT_EQ(Written(Counting(10)), Concat({cHead, Counting(10)}));
}

TEST(TriggerFrameTest, MissingEventDataAreZerosAndMoreAreLeftOut) {
    EXPECT_EQ(Written(Counting(3)), Concat({cHead, Counting(3), ByteList(7, 0)}));
    EXPECT_EQ(Written(Counting(11)), Concat({cHead, Counting(10)}));
}

TEST(TriggerFrameTest, OnlyALengthFieldOf10IsSkipped) {
    EXPECT_TRUE(triggerframe::IsSkipped(View(WithLengthField(10))));
    EXPECT_FALSE(triggerframe::IsSkipped(View(WithLengthField(14))));
    EXPECT_FALSE(triggerframe::IsSkipped(View(Written(Counting(10)))));
}

TEST(TriggerFrameTest, OtherFramesAreNotSkipped) {
    ByteList frame = WithLengthField(10);
    for (std::size_t i = 0; i < cAddresses.size() + 1; ++i) {
        ByteList changed = frame;
        changed[i] ^= 1;
        EXPECT_FALSE(triggerframe::IsSkipped(View(changed))) << i;
    }
    frame.pop_back();
    EXPECT_FALSE(triggerframe::IsSkipped(ExactCopy(frame).View()));
    EXPECT_FALSE(triggerframe::IsSkipped({}));
}

} // namespace
