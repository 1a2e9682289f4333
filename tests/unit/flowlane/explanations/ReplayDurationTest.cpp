// How long a recording is: the first packet from the start of a file, the last one from its end.

#include "explanations/ReplayDuration.h"

#include <gtest/gtest.h>

#include <chrono>

#include "TemporaryFolder.h"
#include "capture/ReplayBlocks.h"

namespace {

using namespace flowlane;
using namespace testsupport;
using namespace std::chrono_literals;

std::optional<RecordingStart> StartOf(const ByteList& bytes) {
    return StartOfRecording({bytes.data(), bytes.size()});
}

std::optional<std::uint64_t> LastOf(const ByteList& bytes) {
    return LastTimeOfRecording({bytes.data(), bytes.size()});
}

TEST(ReplayDurationTest, FirstPacketWithAnInterfaceCounts) {
    const auto start = StartOf(Concat({Section(), Packet(1, 1), Interface({}, 113), Packet(2, 2),
                                       Block(5, {}), Interface(Resolution(9)), Packet(3, 3), Packet(4, 4)}));
    ASSERT_TRUE(start);
    EXPECT_EQ(start->nanosecondsPerUnit, 1u);
    EXPECT_EQ(start->firstTime, 3u);
    EXPECT_EQ(StartOf(FileOf(Packet(1, 7)))->firstTime, 7000u);
}

TEST(ReplayDurationTest, StartThatIsNotUnderstood) {
    EXPECT_FALSE(StartOf({}));
    EXPECT_FALSE(StartOf(FileOf({})));
    EXPECT_FALSE(StartOf(Concat({Section(), Interface(Resolution(3)), Packet(1)})));
    EXPECT_FALSE(StartOf(Concat({Section(), Interface(), LE32(6), LE32(4)})));
    ByteList cut = FileOf(Packet(1));
    cut.pop_back();
    EXPECT_FALSE(StartOf(cut));
}

TEST(ReplayDurationTest, LastPacketIsFoundBackwards) {
    EXPECT_EQ(LastOf(Concat({ByteList(5, 0xAA), Packet(1, 8), Packet(2, 9), Block(5, {}), Section()})), 9u);
    EXPECT_FALSE(LastOf({}));
    EXPECT_FALSE(LastOf(Concat({Section(), Interface()})));
    EXPECT_FALSE(LastOf(Concat({Packet(1, 8), ByteList(4, 0)})));
    EXPECT_FALSE(LastOf(Concat({Packet(1, 8), LE32(6), LE32(16), LE32(0), LE32(12)})));
    EXPECT_FALSE(LastOf(ByteList(100, 0xFF)));
}

TEST(ReplayDurationTest, FromTheFirstFileToTheLast) {
    const TemporaryFolder folder;
    const auto write = [&](const std::string& name, const ByteList& bytes) {
        folder.Write(name, {bytes.begin(), bytes.end()});
    };
    write("first", FileOf(Concat({Packet(1, 1'000'000), Packet(2, 2'000'000)})));
    write("last",
          Concat({Section(), Interface(Resolution(9)), Packet(1, 3'000'000'000), Packet(2, 4'000'000'000)}));
    write("empty", FileOf({}));
    EXPECT_EQ(DurationOfRecording(folder / "first", folder / "first"), 1s);
    EXPECT_EQ(DurationOfRecording(folder / "first", folder / "last"), 3s);
    EXPECT_EQ(DurationOfRecording(folder / "last", folder / "first"), std::nullopt);
    EXPECT_EQ(DurationOfRecording(folder / "first", folder / "empty"), std::nullopt);
    EXPECT_EQ(DurationOfRecording(folder / "first", folder / "missing"), std::nullopt);
    EXPECT_EQ(DurationOfRecording(folder / ".", folder / "first"), std::nullopt);
}

} // namespace
