// How long a file plays, from its first and its last clock reference.

#include "streaming/TSFileDuration.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "TemporaryFolder.h"
#include "streaming/TSStream.h"

namespace flowlane {
namespace {

using namespace std::chrono_literals;
using testsupport::StreamFile;
using testsupport::TSStream;

constexpr std::uint64_t cPCREnd = std::uint64_t{1} << 33;

std::optional<TSPacketDuration> Duration(const TSStream& stream) {
    const StreamFile file(stream);
    return FindTSFileDuration(file.Path());
}

TEST(TSFileDurationTest, IsTheTimeBetweenTheOutermostReferences) {
    EXPECT_EQ(
        Duration(TSStream().OnePID().Plain(3).PCR(90000).Plain(2).PCR(95000).Bad().PCR(180000).Plain(9)), 1s);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(0).PCR(90000).PartialPacket(100)), 1s);
}

TEST(TSFileDurationTest, GoesOnWhereTheClockStartsAgain) {
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(cPCREnd - 90000).PCR(90000)), 2s);
}

TEST(TSFileDurationTest, IsUnknownWithoutTwoReferencesOrWhenTheLastIsNotLater) {
    EXPECT_EQ(Duration(TSStream().OnePID()), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().Plain(10)), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(5)), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(5).Plain().PCR(5)), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(90000).PCR(180000).PCR(0)), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().BadPCR(0).BadPCR(90000)), std::nullopt);
}

TEST(TSFileDurationTest, IsThatOfTheFirstClock) {
    // The last reference is on another PID than the first.
    EXPECT_EQ(Duration(TSStream().PCR(0).Plain(15).PCR(90000).PCR(450000)), 1s);
}

// The look is limited, at the head and at the tail.
TEST(TSFileDurationTest, LooksOnlyAtTheHeadAndTheTail) {
    EXPECT_EQ(Duration(TSStream().OnePID().Plain(9999).PCR(0).PCR(90000)), 1s);
    EXPECT_EQ(Duration(TSStream().OnePID().Plain(10000).PCR(0).PCR(90000)), std::nullopt);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(0).Plain(5000).PCR(90000).Plain(9999)), 1s);
    EXPECT_EQ(Duration(TSStream().OnePID().PCR(0).Plain(5000).PCR(90000).Plain(10000)), std::nullopt);
}

TEST(TSFileDurationTest, IsUnknownForWhatIsNoRegularFile) {
    const testsupport::TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(FindTSFileDuration(folder / "pipe"), std::nullopt); // it does not wait either
    EXPECT_EQ(FindTSFileDuration(folder.Path()), std::nullopt);
    EXPECT_EQ(FindTSFileDuration(folder / "missing"), std::nullopt);
    EXPECT_EQ(FindTSFileDuration("/dev/zero"), std::nullopt);
}

} // namespace
} // namespace flowlane
