// The lines about a capture: why writing fails, when it works again, and which losses have a cure.

#include "explanations/CaptureExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "FileSizeLimit.h"
#include "LogCapture.h"
#include "WaitUntil.h"
#include "base/LogCons.h"
#include "capture/CaptureFixture.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class CaptureExplanationTest : public CaptureTest {
protected:
    const LogCapture mConsole{logger::Cons};
};

TEST_F(CaptureExplanationTest, WordsOfAFailure) {
    EXPECT_EQ(WriteFailureWords(KEStatusFromErrno(ENOSPC)), "the disk is full");
    EXPECT_EQ(WriteFailureWords(KEStatusFromErrno(EDQUOT)), "your disk quota is used up");
    EXPECT_EQ(WriteFailureWords(KEStatusFromErrno(EROFS)), "the file system is read-only");
    EXPECT_EQ(WriteFailureWords(KEStatusFromErrno(EIO)), "Input/output error");
    EXPECT_EQ(WriteFailureWords(KESTATUS_NO_MEMORY).find('.'), std::string::npos);
}

TEST_F(CaptureExplanationTest, FailureAndRecoveryAreToldOnceEach) {
    ASSERT_EQ(Start(0, 300), KESTATUS_SUCCESS);
    WriteFailureWatch watch;
    watch.Look(mWriter);
    EXPECT_THAT(mConsole.Texts(), IsEmpty());
    std::uint32_t number = 0;
    const auto send = [&](unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            ASSERT_TRUE(Take(ReceivedFrame(number++, 1000)));
        }
        const std::uint64_t all = number;
        ASSERT_TRUE(WaitUntil([&] {
            const auto stats = Statistics();
            return stats.infFramesWritten + stats.errWriteFileFailed == all;
        }));
    };
    {
        const FileSizeLimit limit(3000);
        send(200); // more than the buffers take
        watch.Look(mWriter);
        watch.Look(mWriter);
        EXPECT_THAT(mConsole.Texts(),
                    ElementsAre(StartsWith("Frames are being lost: '" + mBase +
                                           ".pcapng' cannot be written, because the file")));
    }
    const std::uint64_t lost = Statistics().errWriteFileFailed;
    ASSERT_GT(lost, 0u);
    send(10);
    watch.Look(mWriter);
    watch.Look(mWriter);
    EXPECT_THAT(mConsole.Texts(),
                ElementsAre(HasSubstr("being lost"), "Writing to '" + mBase + ".pcapng' works again; " +
                                                         std::to_string(lost) + " frames were lost."));
    mWriter.StopFileWriter();
    watch.LookAtEnd(mWriter);
    EXPECT_THAT(mConsole.Texts(), testing::SizeIs(2));
}

TEST_F(CaptureExplanationTest, FramesLostAtTheEndAreTold) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WriteFailureWatch watch;
    const FileSizeLimit limit(500);
    ASSERT_TRUE(Take(ReceivedFrame(0, 1000)));
    WaitUntilWritten(1); // into the buffer
    watch.Look(mWriter);
    mWriter.StopFileWriter();
    watch.LookAtEnd(mWriter);
    EXPECT_THAT(mConsole.Texts(), ElementsAre(StartsWith("1 frames were lost: '" + mBase +
                                                         ".pcapng' could not be written, because the file")));
}

TEST_F(CaptureExplanationTest, LossesWithACure) {
    PcapNgWriterStatistics statistics;
    ExplainLostFrames(statistics, 20000, 1522);
    EXPECT_THAT(mConsole.Texts(), IsEmpty());
    statistics.errPoolUnderflow = 1;
    ExplainLostFrames(statistics, 20000, 1522);
    ExplainLostFrames(statistics, 0, 1522);
    ExplainLostFrames(statistics, 2000000, 1522);
    EXPECT_THAT(mConsole.Texts(),
                ElementsAre(HasSubstr("-fbs 200000"), HasSubstr("-fbs 20000"), HasSubstr("-fbs 2792566")));
}

} // namespace
