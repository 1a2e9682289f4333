// Which words are near to a misspelled one.

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

TEST(WordMatchTest, TheNearestNamesComeFirst) {
    EXPECT_THAT(NearestFirst({}, "eth0"), IsEmpty());
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "nowhere"), ElementsAre(0, 1, 2));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "LANE-2"), ElementsAre(1, 0, 2));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "eht0"), ElementsAre(2, 0, 1));
    EXPECT_THAT(NearestFirst({"lane-1", "eth01", "eth0"}, "eht0"), ElementsAre(2, 1, 0));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "et"), ElementsAre(2, 0, 1));
    EXPECT_THAT(NearestFirst({"lane-1", "lane-2", "eth0"}, "eth0.100"), ElementsAre(0, 1, 2));
    // All letters of a short name are wrong.
    EXPECT_THAT(NearestFirst({"eth0", "lo"}, "xy"), ElementsAre(0, 1));
    // The name of a device in use may be unknown.
    EXPECT_THAT(NearestFirst({"", "ab"}, "ab"), ElementsAre(1, 0));
}

} // namespace
} // namespace flowlane
