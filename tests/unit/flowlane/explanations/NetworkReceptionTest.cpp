// The lines about the stream that av2rtp has received.

#include "explanations/NetworkReception.h"

#include <gtest/gtest.h>

namespace flowlane {
namespace {

TEST(NetworkReceptionTest, GoodStreamNeedsNoWords) {
    AvtpSource::Statistics stats;
    stats.infFramesTaken = 100;
    stats.infAvtpPacketsReceived = 50;
    stats.infTsPacketsDelivered = 350;
    stats.infOtherProtocol = 50;
    EXPECT_EQ(WordsForNothingForwarded(stats, "lane-2"), "");
    EXPECT_EQ(WordsForGaps(stats), "");
    EXPECT_EQ(WordsForDamage(stats), "");
}

TEST(NetworkReceptionTest, NoFrameAtAll) {
    EXPECT_EQ(
        WordsForNothingForwarded({}, "lane-2"),
        "No frame has come to the device 'lane-2'. Check the sender, or choose another device with -n.");
    EXPECT_EQ(WordsForNothingForwarded({}, ""),
              "No frame has come to the device. Check the sender, or choose another device with -n.");
}

TEST(NetworkReceptionTest, FramesThatWereIgnored) {
    AvtpSource::Statistics stats;
    stats.infFramesTaken = 1;
    stats.infOtherSender = 1;
    EXPECT_EQ(WordsForNothingForwarded(stats, "eth0"), "No stream for this receiver has come to the device "
                                                       "'eth0'. Of 1 frame: 1 not from the sender of -m.");
    stats = {.infAvtpPacketsReceived = 7,
             .infTsPacketsDelivered = 0,
             .infFramesTaken = 28,
             .infOtherDestination = 1,
             .infOtherSender = 2,
             .infOtherUniqueId = 3,
             .infOtherProtocol = 4,
             .infOtherFormat = 5,
             .errGaps = 9,
             .errFramesDamaged = 6};
    EXPECT_EQ(
        WordsForNothingForwarded(stats, "eth0"),
        "No stream for this receiver has come to the device 'eth0'. Of 28 frames: 1 for another receiver, "
        "2 not from the sender of -m, 3 without the ID of -u, 4 of other protocols, 5 without a transport "
        "stream, 6 damaged, 7 without a whole packet.");
    EXPECT_EQ(WordsForGaps(stats), "");
    EXPECT_EQ(WordsForDamage(stats), "");
}

TEST(NetworkReceptionTest, GapsAndDamage) {
    AvtpSource::Statistics stats;
    stats.infTsPacketsDelivered = 1;
    stats.errGaps = 1;
    stats.errFramesDamaged = 1;
    EXPECT_EQ(WordsForGaps(stats),
              "The received stream has 1 gap: frames were lost on the way, the sender has started again, or "
              "streams are mixed (choose one with -m or -u).");
    EXPECT_EQ(WordsForDamage(stats), "1 damaged frame was left out of the stream.");
    stats.errGaps = 2;
    stats.errFramesDamaged = 3;
    EXPECT_EQ(WordsForGaps(stats).rfind("The received stream has 2 gaps: ", 0), 0u);
    EXPECT_EQ(WordsForDamage(stats), "3 damaged frames were left out of the stream.");
}

} // namespace
} // namespace flowlane
