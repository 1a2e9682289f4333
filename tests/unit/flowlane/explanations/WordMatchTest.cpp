// Which words are near to a misspelled one, and how words are shown in a message.

#include "explanations/WordMatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace flowlane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(WordMatchTest, DistanceCountsFaults) {
    EXPECT_EQ(WordDistance("pcap", "pcap"), 0u);
    EXPECT_EQ(WordDistance("", "pcap"), 4u);
    EXPECT_EQ(WordDistance("pcap", ""), 4u);
    EXPECT_EQ(WordDistance("pcp", "pcap"), 1u);
    EXPECT_EQ(WordDistance("pcapp", "pcap"), 1u);
    EXPECT_EQ(WordDistance("pkap", "pcap"), 1u);
    EXPECT_EQ(WordDistance("pcpa", "pcap"), 1u); // neighbours swapped
    EXPECT_EQ(WordDistance("ts2rtp", "av2rtp"), 2u);
}

TEST(WordMatchTest, UpperAndLowerCaseComeFirst) {
    EXPECT_THAT(NearestWords("PCAP", {"pcap", "pcapx", "xpcap"}), ElementsAre("pcap"));
    EXPECT_THAT(NearestWords("max_kb", {"max_KB", "max_k"}), ElementsAre("max_KB"));
}

TEST(WordMatchTest, StartsAndPartsComeBeforeFaults) {
    EXPECT_THAT(NearestWords("po", {"port_number", "p", "pot"}), ElementsAre("port_number", "pot"));
    EXPECT_THAT(NearestWords("mac", {"mac_address", "source_mac", "macx_y", "max"}),
                ElementsAre("mac_address", "source_mac", "macx_y"));
    EXPECT_THAT(NearestWords("address", {"mac_address", "addresses_x", "readdress"}),
                ElementsAre("mac_address", "addresses_x"));
}

TEST(WordMatchTest, LongerWordsMayHaveMoreFaults) {
    EXPECT_THAT(NearestWords("vx", {"vv", "v"}), IsEmpty());
    EXPECT_THAT(NearestWords("pcxp", {"pcap"}), ElementsAre("pcap"));
    EXPECT_THAT(NearestWords("pxxp", {"pcap"}), IsEmpty());
    EXPECT_THAT(NearestWords("plaxpcxp", {"playpcap"}), ElementsAre("playpcap"));
    EXPECT_THAT(NearestWords("plaxxcxp", {"playpcap"}), IsEmpty());
    EXPECT_THAT(NearestWords("frame_bxffer_xizx", {"frame_buffer_size"}), ElementsAre("frame_buffer_size"));
}

TEST(WordMatchTest, OnlyTheNearestAreFound) {
    EXPECT_THAT(NearestWords("maxxb", {"maxkb", "maxmb", "maaab"}), ElementsAre("maxkb", "maxmb"));
}

TEST(WordMatchTest, NothingIsNearToAnEmptyOrAHugeWord) {
    EXPECT_THAT(NearestWords("", {"pcap", "v", ""}), IsEmpty());
    EXPECT_THAT(NearestWords(std::string(100000, 'p'), {"pcap"}), IsEmpty());
}

TEST(WordMatchTest, ShownTextIsShortAndPrintable) {
    EXPECT_EQ(Quoted("lane-1"), "'lane-1'");
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f\xc3\xa4"), "a?[31m??\xc3\xa4");
    EXPECT_EQ(Printable(std::string(80, 'a')), std::string(80, 'a'));
    EXPECT_EQ(Printable(std::string(81, 'a')), std::string(80, 'a') + "...");
}

TEST(WordMatchTest, WordsAreJoined) {
    EXPECT_EQ(JoinedBy(" or ", {}), "");
    EXPECT_EQ(JoinedBy(" or ", {"a"}), "a");
    EXPECT_EQ(JoinedBy(" or ", {"a", "b"}), "a or b");
    EXPECT_EQ(JoinedBy(" and ", {"a", "b", "c"}), "a, b and c");
}

} // namespace
} // namespace flowlane
