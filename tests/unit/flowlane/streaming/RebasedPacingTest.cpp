// The times at which packets are sent when the clock of their stream is rebased, in virtual time, compared
// with those that follow from the whole stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/RebasedPacingOracle.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSFileSource.h"
#include "streaming/TSStream.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAreArray;

namespace {

constexpr std::uint64_t cPCREnd = std::uint64_t{1} << 33;
constexpr std::int64_t cStart = VirtualClock::cStart.time_since_epoch().count();
constexpr std::int64_t cFirst = cStart + 500000000;
constexpr unsigned cEnoughPackets = 1000;

struct PacingCase {
    const char* name;
    TSStream stream;
    std::size_t deliveries; // counted by hand
    std::size_t breaks;     // the same
};

std::ostream& operator<<(std::ostream& stream, const PacingCase& pacingCase) {
    return stream << pacingCase.name;
}

// References with plain packets behind each of them.
TSStream Piece(std::uint64_t first, unsigned references = 4, unsigned plainPackets = 5,
               std::uint64_t ticks = 3600) {
    TSStream stream;
    for (unsigned i = 0; i < references; ++i) {
        stream.PCR((first + i * ticks) % cPCREnd).Plain(plainPackets);
    }
    return stream;
}

TSStream Pieces(const std::vector<std::uint64_t>& firsts) {
    TSStream stream;
    for (const std::uint64_t first : firsts) {
        stream.Append(Piece(first));
    }
    return stream;
}

// Two programs: their clocks are 100 s apart.
TSStream Interleaved(unsigned references) {
    TSStream stream;
    for (unsigned i = 0; i < references; ++i) {
        stream.PCR(i * 9000).Plain(3).OtherPCR(7, 9000000 + i * 9000).Plain(2);
    }
    return stream;
}

// The first program ends, and the second one goes on.
TSStream TakeOver() {
    TSStream stream = Interleaved(5);
    for (unsigned i = 5; i < 40; ++i) {
        stream.OtherPCR(7, 9000000 + i * 9000).Plain(4);
    }
    return stream;
}

const PacingCase cCases[] = {
    {"OnePiece", Piece(900000), 24, 0},
    {"JumpForward", Pieces({0, 900000}), 48, 1},
    {"JumpBackward", Pieces({900000, 0}), 48, 1},
    {"JumpToTheSame", Pieces({4500, 4500, 4500}), 72, 2},
    {"BelowASecond", TSStream().PCR(0).Plain(2).PCR(900).Plain(9).PCR(90899).Plain(3).PCR(91799), 18, 0},
    {"OneSecond", TSStream().PCR(0).Plain(2).PCR(900).Plain(9).PCR(90900).Plain(3).PCR(91800), 18, 1},
    {"BackwardByOneTick",
     TSStream().PCR(1000).Plain(3).PCR(2000).Plain(3).PCR(1999).Plain(3).PCR(2999).Plain(), 14, 1},
    {"BackwardByHalfTheRange", Pieces({cPCREnd / 2, 0}), 48, 1},
    {"Wrap", Piece(cPCREnd - 9000, 10), 60, 0},
    {"WrapAtTheLastTick", TSStream().PCR(cPCREnd - 1).Plain(2).PCR(0).Plain(2).PCR(900).Plain(2), 9, 0},
    {"WrapAndJump", Pieces({cPCREnd - 5000, 450000, cPCREnd - 180000, cPCREnd - 2}), 96, 3},
    {"WrapWithUnevenTicks", Piece(cPCREnd - 10007, 20, 6, 1001), 140, 0},
    {"Indicator",
     TSStream().PCR(0).Plain(4).PCR(1800).Plain(4).DiscontinuousPCR(3600).Plain(4).PCR(5400).Plain(2), 18, 1},
    {"IndicatorAndJump",
     TSStream().PCR(0).Plain(4).PCR(1800).Plain(4).DiscontinuousPCR(900000).Plain(4).PCR(901800).Plain(2), 18,
     1},
    {"IndicatorAtTheFirst", TSStream().DiscontinuousPCR(0).Plain(4).PCR(1800).Plain(4), 10, 0},
    {"TwoClocks", Interleaved(15), 105, 0},
    {"TakeOver", TakeOver(), 210, 1},
    {"TakeOverAndBack", TakeOver().Append(Piece(777, 20)), 330, 1},
    {"TakeOverBeforeASegment",
     TSStream()
         .PCR(3)
         .Plain(2)
         .OtherPCR(9, 0)
         .OtherPCR(9, 50000)
         .Plain()
         .OtherPCR(9, 90000)
         .Plain(2)
         .OtherPCR(9, 90900)
         .Plain(4),
     14, 1},
    {"BreakBeforeASegment", TSStream().PCR(0).Plain(3).PCR(900000).Plain(3).PCR(900900).Plain(3), 12, 1},
    {"BreaksBeforeASegment",
     TSStream().Plain(2).PCR(0).Plain(3).PCR(900000).PCR(0).Plain(3).PCR(901).Plain(3), 15, 2},
    {"OnlyBreaks", TSStream().PCR(0).Plain(3).PCR(900000).Plain(2).PCR(5).Plain(4), 12, 2},
    {"TwoBreaksInARow", Piece(0).PCR(900000).Plain(3).Append(Piece(1800000)), 52, 2},
    {"BreaksAtAdjacentPackets", Piece(0).PCR(900000).PCR(7).PCR(1900000).Append(Piece(1900100)), 51, 3},
    {"AdjacentPCRs", TSStream().PCR(0).PCR(900).PCR(901).PCR(901).PCR(2701), 5, 0},
    {"NoTimeBetweenPCRs", TSStream().PCR(4500).Plain(6).PCR(4500).Plain(6).PCR(5400).Plain(), 16, 0},
    {"Leading", TSStream().Plain(7).Append(Piece(900000)), 31, 0},
    {"LeadingAndJump", TSStream().Plain(7).Append(Pieces({900000, 5})), 55, 1},
    {"TrailingOnly", TSStream().PCR(0).Plain(2).PCR(1800).Plain(50), 54, 0},
    {"EndsInABreak", Piece(0).PCR(900000), 25, 1},
    {"NoPCR", TSStream().Plain(30), 0, 0},
    {"OnePCR", TSStream().Plain(3).PCR(777).Plain(30), 0, 0},
    {"OnePCROfEachClock", TSStream().Plain(3).PCR(777).Plain(3).OtherPCR(5, 99).Plain(2), 0, 0},
    {"Empty", TSStream(), 0, 0},
    {"PartialPacket", Pieces({0, 900000}).PartialPacket(187), 48, 1},
    {"BadPackets",
     TSStream()
         .Bad(2)
         .Plain()
         .PCR(0)
         .Bad()
         .Plain(2)
         .PCR(1800)
         .Bad(3)
         .BadPCR(7)
         .Plain(2)
         .PCR(900000)
         .Bad(2)
         .Plain(),
     9, 1},
};

TSStream WithOnePID(TSStream stream) {
    return stream.OnePID();
}

void ExpectBreaks(const TSFileSource& source, const ExpectedRebasedPlayback& expected) {
    const SentClockBreaks::Values breaks = source.ClockBreaks();
    ASSERT_EQ(breaks.count, expected.breaks.size());
    if (!expected.breaks.empty()) {
        EXPECT_EQ(breaks.last.packetNumber, expected.breaks.back().packetNumber);
        EXPECT_EQ(breaks.last.jumpTicks, expected.breaks.back().jumpTicks);
    }
}

// Each packet is sent once, in the order of the file, and no time is before the one of the packet before.
void ExpectAllInOrder(const TSStream& stream, const std::vector<Delivery>& deliveries) {
    std::vector<std::uint32_t> ordinals;
    for (std::size_t i = 0; i < stream.Packets().size(); ++i) {
        if (stream.Packets()[i].hasSyncByte) {
            ordinals.push_back(static_cast<std::uint32_t>(i));
        }
    }
    ASSERT_EQ(deliveries.size(), ordinals.size());
    for (std::size_t i = 0; i < ordinals.size(); ++i) {
        EXPECT_EQ(deliveries[i].ordinal, ordinals[i]);
        EXPECT_TRUE(i == 0 || deliveries[i].deliverTime >= deliveries[i - 1].deliverTime) << i;
    }
}

// Returns what was sent.
std::vector<Delivery> ExpectPlaysOnce(const TSStream& stream, unsigned packets, bool areWakeTimesExact) {
    const ExpectedRebasedPlayback expected = ExpectRebasedPlayback(stream, cStart, cFirst, 1);
    const StreamFile file(stream);
    VirtualClock clock;
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    source.SetRebaseClock(true);
    EXPECT_EQ(source.CreateTSFileSource(file.Path(), sink, false, packets), KESTATUS_SUCCESS);
    EXPECT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    EXPECT_TRUE(
        WaitUntil([&] { return log.Count(KEINFO, "all packets from file delivered, stop thread") != 0; },
                  [&] { return log.Messages(); }));
    EXPECT_TRUE(source.IsEndOfFileReached());
    source.StopSource();

    std::vector<Delivery> deliveries = expected.deliveries;
    std::vector<Delivery> sent = sink.mDeliveries;
    if (!areWakeTimesExact) {
        for (Delivery& delivery : sent) {
            delivery.wakeTime = 0;
        }
        for (Delivery& delivery : deliveries) {
            delivery.wakeTime = 0;
        }
    }
    EXPECT_THAT(sent, ElementsAreArray(deliveries));
    ExpectBreaks(source, expected);
    EXPECT_EQ(source.QuerryStatistics().infTsPacketsTimed, sent.size());
    EXPECT_EQ(log.CountContaining(KEERROR, ""), 0u);
    return sent;
}

class RebasedPacingTest : public testing::TestWithParam<PacingCase> {};

} // namespace

TEST_P(RebasedPacingTest, PlaysOnce) {
    const TSStream stream = WithOnePID(GetParam().stream);
    const std::vector<Delivery> sent = ExpectPlaysOnce(stream, cEnoughPackets, true);
    EXPECT_EQ(sent.size(), GetParam().deliveries);
    EXPECT_EQ(ExpectRebasedPlayback(stream, cStart, cFirst, 1).breaks.size(), GetParam().breaks);
    if (!sent.empty()) {
        ExpectAllInOrder(stream, sent);
    }
}

// Reading runs less far ahead, but the times are the same.
TEST_P(RebasedPacingTest, PlaysOnceWithFewPackets) {
    const TSStream stream = WithOnePID(GetParam().stream);
    ExpectPlaysOnce(stream, 60, false); // enough for the longest segment
}

TEST_P(RebasedPacingTest, Loops) {
    const TSStream stream = WithOnePID(GetParam().stream);
    ExpectedRebasedPlayback expected = ExpectRebasedPlayback(stream, cStart, cFirst, 4);
    // The time stops after three passes, in the pause before the fourth.
    unsigned sleeps = 50;
    if (!expected.deliveries.empty()) {
        expected.deliveries.resize(GetParam().deliveries * 3);
        expected.breaks.resize(GetParam().breaks * 3);
        sleeps = static_cast<unsigned>((expected.deliveries.back().wakeTime - cStart) / 10000000);
    }

    const StreamFile file(stream);
    VirtualClock clock(sleeps);
    RecordingSink sink(clock);
    LogCapture log;
    TSFileSource source(clock);
    source.SetRebaseClock(true);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, true, cEnoughPackets), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return clock.StoodStill() > 1; }));
    EXPECT_FALSE(source.IsEndOfFileReached());
    source.StopSource();

    EXPECT_THAT(sink.mDeliveries, ElementsAreArray(expected.deliveries));
    ExpectBreaks(source, expected);
    EXPECT_GE(log.Count(KEINFO, "rewind done"), expected.deliveries.empty() ? sleeps : 3);
}

INSTANTIATE_TEST_SUITE_P(Streams, RebasedPacingTest, testing::ValuesIn(cCases),
                         [](const auto& param) { return std::string(param.param.name); });

namespace {

// Some thousand packets with everything that may happen.
TSStream RandomStream(std::mt19937& random) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    TSStream stream;
    stream.Plain(below(5));
    std::uint64_t ticks = (std::uint64_t{random()} << 1) % cPCREnd;
    std::uint64_t otherTicks = random();
    bool hasFirstClock = true;
    for (unsigned i = 0; i < 200; ++i) {
        const unsigned kind = below(40);
        ticks += below(10) == 0 ? 0 : below(8000);
        otherTicks += below(16000);
        hasFirstClock = kind == 7 ? !hasFirstClock : hasFirstClock;
        if (kind < 3) {
            ticks = std::uint64_t{random()} << 1; // anywhere
        } else if (kind == 3) {
            ticks += 89990 + below(20);
        } else if (kind == 4) {
            ticks += cPCREnd - 1 - below(5);
        } else if (kind == 5) {
            ticks = cPCREnd - below(20000);
        }
        if (kind == 6) {
            stream.DiscontinuousPCR(ticks % cPCREnd);
        } else if (hasFirstClock) {
            stream.PCR(ticks % cPCREnd);
        }
        stream.Plain(below(6)).Bad(below(12) == 0 ? 1 : 0).OtherPCR(5, otherTicks % cPCREnd).Plain(below(3));
    }
    return stream.OnePID();
}

} // namespace

TEST(RebasedRandomPacingTest, AllPacketsOfRandomStreamsAreSentAtTheirTimes) {
    std::mt19937 random(20240531); // NOLINT(cert-msc51-cpp): the same streams in each run
    std::size_t breaks = 0;
    for (unsigned i = 0; i < 60 && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(i);
        const TSStream stream = RandomStream(random);
        breaks += ExpectRebasedPlayback(stream, cStart, cFirst, 1).breaks.size();
        ExpectAllInOrder(stream, ExpectPlaysOnce(stream, 10000, true));
    }
    EXPECT_GT(breaks, 400u);
}

namespace {

// Two packets in half a second, for a number of hours, with jumps of the clock in equal distances. In the
// middle it wraps.
TSStream LongStream(unsigned hours, unsigned jumps) {
    constexpr unsigned cTicks = 45000;
    const unsigned references = hours * 7200;
    std::uint64_t ticks = cPCREnd - std::uint64_t{references} / 2 * cTicks - 123456;
    TSStream stream;
    for (unsigned i = 0; i < references; ++i) {
        stream.PCR(ticks % cPCREnd).Plain();
        ticks += cTicks;
        if (i % (references / jumps) == references / jumps / 2) {
            ticks += i % 2 == 0 ? 10 * cTicks : cPCREnd - 10 * cTicks;
        }
    }
    return stream.OnePID();
}

} // namespace

// The steps of the worker's loop, a second apart.
TEST(RebasedLongPacingTest, TwelveHoursAreExactToTheNanosecond) {
    constexpr std::int64_t cSecond = 1000000000;
    const TSStream stream = LongStream(12, 100);
    std::int64_t now = 0;
    const std::int64_t first = 100000000; // a source that nobody has started begins like a further pass
    const ExpectedRebasedPlayback expected = ExpectRebasedPlayback(stream, now, first, 1);
    ASSERT_EQ(expected.breaks.size(), 100u);
    // A segment has 500 ms and three packets, so at each break a third of it is missing, cut to nanoseconds.
    EXPECT_EQ(expected.deliveries.back().deliverTime,
              first + 12 * 3600 * cSecond - 101 * (cSecond / 2) + 100 * 2 * (cSecond / 6) + cSecond / 6);

    const StreamFile file(stream);
    RecordingSink sink;
    TSFileSource source;
    source.SetRebaseClock(true);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, TSFileSource::cDefaultNumberOfPackets),
              KESTATUS_SUCCESS);
    while (!source.IsEndOfFileReached() && now < 13 * 3600 * cSecond) {
        ASSERT_EQ(source.FillDeliverQueue(), KESTATUS_SUCCESS);
        const std::size_t before = sink.mDeliveries.size();
        ASSERT_EQ(source.DeliverPackets(TSPacketTimePoint(TSPacketDuration(now))), KESTATUS_SUCCESS);
        for (std::size_t i = before; i < sink.mDeliveries.size(); ++i) {
            ASSERT_EQ(sink.mDeliveries[i].ordinal, expected.deliveries[i].ordinal);
            ASSERT_EQ(sink.mDeliveries[i].deliverTime, expected.deliveries[i].deliverTime) << i;
            ASSERT_GT(sink.mDeliveries[i].deliverTime, now - cSecond) << i;
        }
        now += cSecond;
    }
    EXPECT_EQ(sink.mDeliveries.size(), expected.deliveries.size());
    EXPECT_TRUE(source.IsEndOfFileReached());
    ExpectBreaks(source, expected);
}

// The worker itself, which looks for a stop every 10 ms of twelve hours. Each packet is a frame here.
TEST(RebasedLongPacingTest, WithPreciseTimingAllPacketsOfTwelveHoursLeaveAtTheirTimes) {
    const TSStream stream = LongStream(12, 100);
    const ExpectedRebasedPlayback expected = ExpectRebasedPlayback(stream, cStart, cFirst, 1);
    const StreamFile file(stream);
    VirtualClock clock;
    RecordingSink sink(clock);
    TSFileSource source(clock);
    source.SetRebaseClock(true);
    source.SetPreciseTiming(1);
    ASSERT_EQ(source.CreateTSFileSource(file.Path(), sink, false, TSFileSource::cDefaultNumberOfPackets),
              KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return source.IsEndOfFileReached(); }));
    source.StopSource();
    ASSERT_EQ(sink.mDeliveries.size(), expected.deliveries.size());
    for (std::size_t i = 0; i < sink.mDeliveries.size(); ++i) {
        ASSERT_EQ(sink.mDeliveries[i].ordinal, expected.deliveries[i].ordinal);
        ASSERT_EQ(sink.mDeliveries[i].wakeTime, expected.deliveries[i].deliverTime) << i;
    }
}
