// Which names belong to a numbered set of files, and how their numbers are told.

#include "explanations/CaptureFileNumbers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TemporaryFolder.h"

namespace flowlane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::TemporaryFolder;

TEST(CaptureFileNumbersTest, NamesAsTheProgramMakesThem) {
    const auto number = [](const std::string& name) { return NumberInFileName(name, "a_b", ".pcapng"); };
    EXPECT_EQ(number("a_b_00001.pcapng"), 1u);
    EXPECT_EQ(number("a_b_00000.pcapng"), 0u);
    EXPECT_EQ(number("a_b_123456.pcapng"), 123456u);
    EXPECT_EQ(number("a_b_4294967295.pcapng"), 4294967295u);
    for (const char* name : {"a_b.pcapng", "a_b_.pcapng", "a_b_1.pcapng", "a_b_000001.pcapng",
                             "a_b_00001.pcap", "x_00001.pcapng", "a_b_0000x.pcapng", "a_b_00001x.pcapng",
                             "a_b_4294967296.pcapng", "a_b_-0001.pcapng", ""}) {
        EXPECT_EQ(number(name), std::nullopt) << name;
    }
}

TEST(CaptureFileNumbersTest, NumbersInAFolder) {
    const TemporaryFolder folder;
    for (const char* name :
         {"a_00010.pcapng", "a_00002.pcapng", "a_00001.pcap", "b_00003.pcapng", "a.pcapng"}) {
        folder.Write(name, "");
    }
    EXPECT_THAT(FileNumbersOnDisk(folder / ".", "a", ".pcapng"), ElementsAre(2, 10));
    EXPECT_THAT(FileNumbersOnDisk(folder / "missing", "a", ".pcapng"), IsEmpty());
}

TEST(CaptureFileNumbersTest, Ranges) {
    EXPECT_EQ(RangesText({}), "");
    EXPECT_EQ(RangesText({7}), "7");
    EXPECT_EQ(RangesText({1, 2, 3, 5, 7, 8}), "1-3, 5, 7-8");
    EXPECT_EQ(RangesText({1, 3, 5, 7, 9}), "1, 3, 5, 7, 9");
    EXPECT_EQ(RangesText({1, 3, 5, 7, 9, 11}), "1, 3, 5, 7, 9, ...");
}

} // namespace
} // namespace flowlane
