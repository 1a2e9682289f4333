// The parts of the lines about a replay: reasons, times, frames that were not sent.

#include "explanations/ReplayTexts.h"

#include <gtest/gtest.h>

namespace flowlane {
namespace {

TEST(ReplayTextsTest, EveryReasonIsNamed) {
    LeftOutPackets leftOut;
    leftOut.frameSize = 1522;
    EXPECT_EQ(leftOut.Reasons(), "");
    EXPECT_EQ(leftOut.Count(), 0u);
    EXPECT_FALSE(leftOut.IsWorthALine());
    leftOut.statistics.errPacketTruncated = 1;
    leftOut.statistics.errFrameBufferTooSmall = 2;
    leftOut.packets.otherLinkType = 3;
    leftOut.packets.otherTimeUnit = 4;
    leftOut.packets.withoutTime = 5;
    leftOut.packets.obsolete = 6;
    leftOut.packets.withoutInterface = 7;
    leftOut.statistics.errInvalidEnhPacket = 8;
    leftOut.statistics.errInvalidFrameLength = 9;
    leftOut.packets.triggers = 10;
    EXPECT_EQ(
        leftOut.Reasons(),
        "1 cut short by the snap length of the capture, 2 longer than 1522 bytes, 3 not from an Ethernet "
        "interface, 4 with times in neither micro- nor nanoseconds, 5 without a time, 6 in blocks of an "
        "obsolete type, 7 without a valid section and interface, 8 damaged, 9 shorter than an Ethernet "
        "header, 10 for external triggers");
    EXPECT_EQ(leftOut.Count(), 45u);
    EXPECT_TRUE(leftOut.IsWorthALine());
}

TEST(ReplayTextsTest, WhatTheSummaryTellsIsNotToldAgain) {
    LeftOutPackets leftOut;
    leftOut.statistics.errInvalidEnhPacket = 8;
    leftOut.statistics.errInvalidFrameLength = 9;
    leftOut.packets.triggers = 10;
    EXPECT_EQ(leftOut.Count(), 17u);
    EXPECT_FALSE(leftOut.IsWorthALine());
    leftOut.packets.obsolete = 1;
    EXPECT_TRUE(leftOut.IsWorthALine());
}

TEST(ReplayTextsTest, TimesAreInUtc) {
    EXPECT_EQ(TimeText(0), "1970-01-01 00:00:00.000000000");
    EXPECT_EQ(TimeText(1'700'000'000'000'000'005), "2023-11-14 22:13:20.000000005");
    EXPECT_EQ(TimeText(~std::uint64_t{0}), "2554-07-21 23:34:33.709551615");
}

TEST(ReplayTextsTest, FramesThatWereNotSent) {
    EXPECT_EQ(UnsentText(0), "");
    EXPECT_EQ(UnsentText(1), "; 1 frame that was read ahead was not sent");
    EXPECT_EQ(UnsentText(150), "; 150 frames that were read ahead were not sent");
}

} // namespace
} // namespace flowlane
