// Which lines and which status follow from what reading a transport stream has found. The texts are tested
// with the program.

#include "explanations/TransportStreamExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "base/LogCons.h"

namespace flowlane {
namespace {

using namespace testsupport;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

// A stream that was read and timed well.
constexpr TransportStreamFacts cGood{.packetsRead = 1000,
                                     .packetsTimed = 990,
                                     .clockReferences = 100,
                                     .isEndSeen = true,
                                     .isClockRunning = true,
                                     .bufferedPackets = 10000};

class TransportStreamExplanationTest : public testing::Test {
protected:
    KESTATUS Explain(const TransportStreamFacts& facts) { return ExplainTransportStream(mPath, facts); }
    // The head of the file: packets of 188 bytes behind some others.
    void WriteFile(std::size_t junk) const {
        std::string packet(188, '\xFF');
        packet[0] = '\x47';
        std::string content(junk, '\xFF');
        for (int i = 0; i < 10; ++i) {
            content += packet;
        }
        mFolder.Write("stream.ts", content);
    }

    const TemporaryFolder mFolder;
    const std::string mPath = mFolder / "stream.ts";
    LogCapture mLog{kestrelon::logger::Cons};
};

TEST_F(TransportStreamExplanationTest, IsSilentAboutAGoodStream) {
    EXPECT_EQ(Explain(cGood), KESTATUS_SUCCESS);
    TransportStreamFacts facts = cGood;
    facts.hasMoreClocks = true;
    EXPECT_EQ(Explain(facts), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Texts(), IsEmpty());
}

// The user may end it before anything was timed.
TEST_F(TransportStreamExplanationTest, IsSilentWhenTheEndWasNotSeen) {
    EXPECT_EQ(Explain({}), KESTATUS_SUCCESS);
    EXPECT_EQ(Explain({.packetsRead = 100}), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Texts(), IsEmpty());
}

TEST_F(TransportStreamExplanationTest, HasALineForEachFault) {
    WriteFile(0);
    TransportStreamFacts facts = cGood;
    facts.invalidPackets = {2, 11};
    facts.forwardPackets = {3, 22};
    facts.unfinishedPackets = {4, 33};
    facts.backwardSteps = {5, 44};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(),
                ElementsAre(HasSubstr(": 2 packets without the sync byte 0x47, first at byte 1880."),
                            HasSubstr(": 3 packets where its clock steps forward"),
                            HasSubstr(": 4 packets, because 10000 in a row"),
                            HasSubstr("goes back at packet 44: ")));
}

// They only look like packets with a clock.
TEST_F(TransportStreamExplanationTest, SaysNothingOfTheClockWhenMostPacketsAreInvalid) {
    WriteFile(0);
    TransportStreamFacts facts = cGood;
    facts.invalidPackets = {600, 11};
    facts.backwardSteps = {5, 44};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("Left out of")));
}

TEST_F(TransportStreamExplanationTest, TellsAFileThatIsNotAlignedAlthoughSomeOfItWasSent) {
    WriteFile(3);
    TransportStreamFacts facts = cGood;
    facts.invalidPackets = {900, 1};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_FILE);
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("begin at byte 3.")));
}

// Nobody has looked for another kind of file when most packets are good.
TEST_F(TransportStreamExplanationTest, DoesNotDoubtAFileWithFewInvalidPackets) {
    WriteFile(3);
    TransportStreamFacts facts = cGood;
    facts.invalidPackets = {500, 1};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("Left out of")));
}

TEST_F(TransportStreamExplanationTest, AFileWithOneClockReferenceInEachPassIsNoSuchFile) {
    WriteFile(0);
    TransportStreamFacts facts = cGood;
    facts.packetsTimed = 0;
    facts.clockReferences = 7;
    facts.unfinishedPackets = {9999, 10000};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_FILE);
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("only one clock reference")));
}

// It is such a file when only its clock is wrong.
TEST_F(TransportStreamExplanationTest, AFileOfWhichAllIsLeftOutIsDamaged) {
    WriteFile(0);
    TransportStreamFacts facts = cGood;
    facts.packetsTimed = 0;
    facts.isClockRunning = false;
    facts.forwardPackets = {990, 11};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("steps forward")));
}

TEST_F(TransportStreamExplanationTest, OffersNoCommandForAFileThatIsGone) {
    TransportStreamFacts facts = cGood;
    facts.invalidPackets = {1, 1};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(), ElementsAre("Left out of '" + mPath +
                                          "': 1 packet without the sync byte 0x47, first at byte 0."));
}

// A line is cut behind 511 bytes: with the longest names it still ends with its command.
TEST_F(TransportStreamExplanationTest, FitsIntoOneLineWithLongNames) {
    const std::string name = std::string(240, 'n') + ".ts";
    mFolder.Write(name, "x");
    constexpr std::uint64_t cMany = 1000000000000;
    TransportStreamFacts facts{.packetsRead = 3 * cMany,
                               .packetsTimed = cMany,
                               .isClockRunning = true,
                               .hasMoreClocks = true,
                               .bufferedPackets = 10000,
                               .forwardPackets = {cMany, cMany},
                               .unfinishedPackets = {cMany, cMany},
                               .backwardSteps = {cMany, cMany}};
    ExplainTransportStream(mFolder / name, facts);
    facts.invalidPackets = {cMany, cMany};
    ExplainTransportStream(mFolder / name, facts);
    EXPECT_THAT(mLog.Texts(), SizeIs(7));
    for (const std::string& text : mLog.Texts()) {
        EXPECT_TRUE(text.ends_with("'") || text.ends_with(" FILE")) << text;
        EXPECT_THAT(text, SizeIs(Le(511u)));
    }
}

TEST_F(TransportStreamExplanationTest, OffersToRebaseAClockThatJumps) {
    WriteFile(0);
    TransportStreamFacts facts = cGood;
    facts.forwardPackets = {3, 22};
    facts.backwardSteps = {5, 44};
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    facts.hasMoreClocks = true;
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    const auto offer = EndsWith(" Play it with: flowlane ts2av -rc '" + mPath + "'");
    EXPECT_THAT(mLog.Texts(), ElementsAre(offer, offer, offer, offer));
}

// All jumps are told, but no packet has a rate.
TEST_F(TransportStreamExplanationTest, AClockThatOnlyJumpsGivesNoPacing) {
    TransportStreamFacts facts = cGood;
    facts.isClockRunning = false;
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    facts.hasClockJumped = true;
    EXPECT_EQ(Explain(facts), KESTATUS_INVALID_DATA);
    EXPECT_THAT(mLog.Texts(),
                ElementsAre(HasSubstr("' stands still: its packets are sent without pacing."),
                            HasSubstr("' jumps at each clock reference (PCR): its packets are sent")));
    facts.isClockRunning = true;
    EXPECT_EQ(Explain(facts), KESTATUS_SUCCESS);
}

TEST_F(TransportStreamExplanationTest, TellsOfJumpsOfTheClockOnce) {
    ClockJumpWatch watch;
    watch.Look("a.ts", 0, {});
    EXPECT_THAT(mLog.Texts(), IsEmpty());
    watch.Look("a.ts", 1, {.packetNumber = 12345, .jumpTicks = 3600 * 90000});
    watch.Look("a.ts", 1, {.packetNumber = 12345, .jumpTicks = 3600 * 90000});
    watch.Look("a.ts", 6, {.packetNumber = 20000, .jumpTicks = -12 * 90000 - 360});
    watch.Look("a.ts", 7, {.packetNumber = 20001, .jumpTicks = 1800});
    watch.Look("a.ts", 8, {.packetNumber = 20002, .jumpTicks = -1});
    watch.Look("a.ts", 9, {.packetNumber = 20003, .jumpTicks = std::int64_t{1} << 32});
    watch.Look("a.ts", 10, {.packetNumber = 20004, .jumpTicks = 90 * 999 + 45});
    EXPECT_THAT(
        mLog.Texts(),
        ElementsAre(
            "The clock of 'a.ts' jumps by +3600.000 s at packet 12345. Its pacing goes on from there.",
            "The clock of 'a.ts' jumps 5 times, the last time by -12.004 s at packet 20000. Its pacing "
            "goes on from there.",
            "The clock of 'a.ts' jumps by +0.020 s at packet 20001. Its pacing goes on from there.",
            "The clock of 'a.ts' jumps by -0.000 s at packet 20002. Its pacing goes on from there.",
            "The clock of 'a.ts' jumps by +47721.859 s at packet 20003. Its pacing goes on from there.",
            "The clock of 'a.ts' jumps by +1.000 s at packet 20004. Its pacing goes on from there."));
}

TEST_F(TransportStreamExplanationTest, TellsWhyReadingHasFailed) {
    ExplainReadFailure("x", KEStatusFromErrno(EIO));
    ExplainReadFailure("x", KEStatusFromErrno(ESPIPE));
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("'x' cannot be read any further: Input/output error."),
                                          HasSubstr("'x' is a pipe")));
}

} // namespace
} // namespace flowlane
