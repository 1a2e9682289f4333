// Which lines and which status follow from what reading a transport stream has found. The texts are tested
// with the program.

#include "explanations/TransportStreamExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "base/LogCons.h"

namespace flowlane {
namespace {

using namespace testsupport;
using testing::ElementsAre;
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
        EXPECT_EQ(text.back(), '\'') << text;
        EXPECT_THAT(text, SizeIs(Le(511u)));
    }
}

TEST_F(TransportStreamExplanationTest, TellsWhyReadingHasFailed) {
    ExplainReadFailure("x", KEStatusFromErrno(EIO));
    ExplainReadFailure("x", KEStatusFromErrno(ESPIPE));
    EXPECT_THAT(mLog.Texts(), ElementsAre(HasSubstr("'x' cannot be read any further: Input/output error."),
                                          HasSubstr("'x' is a pipe")));
}

} // namespace
} // namespace flowlane
