// The receive loop on a scripted device: which frames it hands over, when it reports and asks for the end,
// and how it ends after a failure.

#include "capture/FrameReceiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CaptureFixture.h"
#include "base/LogCons.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

// Each look at the clock is a millisecond after the one before, and the device never waits for frames.
class FrameReceiverTest : public CaptureTest {
protected:
    FrameReceiverTest() { mFake.SetDefault(Qbx::WaitForRawFrame, KESTATUS_TIMEOUT); }

    void Queue(unsigned frames, QBXRawFrameType type = QBXRawFrameType_Data) {
        for (unsigned i = 0; i < frames; ++i) {
            mFake.QueueReceivedFrame(ReceivedFrame(mNextNumber++), type);
        }
    }
    // The next waits for frames end with these statuses. Those behind them end with a timeout.
    void QueueWaits(const std::vector<KESTATUS>& statuses) {
        mFake.SetDefault(Qbx::WaitForRawFrame, KESTATUS_SUCCESS);
        std::vector<KESTATUS> all = statuses;
        all.insert(all.end(), 10'000, KESTATUS_TIMEOUT);
        mFake.Queue(Qbx::WaitForRawFrame, all);
    }
    // Runs the loop. The user asks for the end when the loop asks for the time-th time.
    void Run(unsigned time = 1) {
        mResult = mTimedReceiver.WriteReceivedFramesToFile([this] { mReports.push_back(mNow); },
                                                           [this, time] { return ++mAsked >= time; });
    }
    // The frames that are still with the device.
    std::size_t FramesLeft() {
        std::size_t left = 0;
        unsigned char buffer[cFrameSize];
        unsigned length = 0;
        QBXRawFrameType type{};
        while (mDevice.GetReceivedRawFrame(&type, buffer, sizeof buffer, &length) == KESTATUS_SUCCESS) {
            ++left;
        }
        return left;
    }
    std::vector<std::uint64_t> SequenceNumbersWritten() {
        mWriter.StopFileWriter();
        std::vector<std::uint64_t> numbers;
        for (const CapturedPacket& packet : SingleFile().packets) {
            numbers.push_back(packet.timestamp - cReceiveNanoseconds);
        }
        return numbers;
    }

    std::uint32_t mNow = 0xFFFFFF00; // wraps during the first second
    unsigned mNextNumber = 0;
    unsigned mAsked = 0;
    KESTATUS mResult = KESTATUS_SUCCESS; // of the last run
    std::vector<std::uint32_t> mReports; // when they came
    FrameReceiver mTimedReceiver{mDevice, mWriter, cFrameSize, [this] { return mNow++; }};
    const LogCapture mConsole{logger::Cons};
};

TEST_F(FrameReceiverTest, ReceivedFramesAreWritten) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    Queue(3);
    QueueWaits({KESTATUS_SUCCESS});
    Run();
    EXPECT_THAT(SequenceNumbersWritten(), ElementsAre(0, 1, 2));
    EXPECT_THAT(mConsole.Messages(), IsEmpty());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(FrameReceiverTest, ReportsOnceASecondAndAsksForTheEndThen) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    const std::uint32_t start = mNow;
    Run(3);
    EXPECT_EQ(mAsked, 3u);
    ASSERT_EQ(mReports.size(), 3u);
    std::uint32_t last = start;
    for (const std::uint32_t report : mReports) {
        EXPECT_GE(report - last, 1000u);
        EXPECT_LE(report - last, 1002u);
        last = report;
    }
}

TEST_F(FrameReceiverTest, FramesThatCameBeforeTheEndAreTaken) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    const KESTATUS st = mTimedReceiver.WriteReceivedFramesToFile([] {},
                                                                 [this] {
                                                                     Queue(5);
                                                                     return true;
                                                                 });
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    EXPECT_THAT(SequenceNumbersWritten(), ElementsAre(0, 1, 2, 3, 4));
}

// The device always has frames left: the report comes nevertheless.
TEST_F(FrameReceiverTest, FullLoadDelaysNoReport) {
    ASSERT_EQ(Start(0, 5000), KESTATUS_SUCCESS);
    Queue(4000);
    QueueWaits({KESTATUS_SUCCESS, KESTATUS_SUCCESS});
    // The clock goes on by 64 ms at each look.
    FrameReceiver receiver(mDevice, mWriter, cFrameSize, [this] { return mNow += 64; });
    std::vector<std::size_t> taken; // at each report
    const KESTATUS st = receiver.WriteReceivedFramesToFile(
        [&] { taken.push_back(mFake.CallCount(Qbx::GetReceivedRawFrame)); },
        [&] { return taken.size() == 2; });
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    // 64 frames per look at the clock, and the last second's frames are taken after the second report.
    EXPECT_THAT(taken, ElementsAre(testing::AllOf(testing::Ge(750u), testing::Le(1000u)),
                                   testing::AllOf(testing::Ge(1500u), testing::Le(2000u))));
    EXPECT_LE(FramesLeft(), 4000u - 3 * 750);
}

TEST_F(FrameReceiverTest, FramesThatAreNotRecordedGoBackToThePool) {
    ASSERT_EQ(Start(0, 1), KESTATUS_SUCCESS);
    Queue(3, QBXRawFrameType_Idle);
    Queue(1);
    QueueWaits({KESTATUS_SUCCESS});
    Run();
    EXPECT_THAT(SequenceNumbersWritten(), ElementsAre(3));
    EXPECT_EQ(Statistics().infIgnoredFrames, 3u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
}

TEST_F(FrameReceiverTest, FramesWithoutAPoolFrameAreDroppedAndCounted) {
    ASSERT_EQ(Start(0, 0), KESTATUS_SUCCESS);
    Queue(2);
    Queue(1, QBXRawFrameType_Idle); // is ignored all the same
    Queue(1);
    QueueWaits({KESTATUS_SUCCESS});
    Run();
    EXPECT_EQ(Statistics().errPoolUnderflow, 3u);
    EXPECT_EQ(Statistics().errMissingFrames, 0u); // their sequence numbers were seen
    EXPECT_EQ(mLog.Count(KEWARN, "Frame pool exhausted, discard the received frame"), 3u);
    EXPECT_THAT(mConsole.Messages(), IsEmpty());
}

TEST_F(FrameReceiverTest, FailureToWaitEndsTheLoop) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    Queue(1);
    QueueWaits({KESTATUS_TIMEOUT, KESTATUS_DEVICE_REMOVED});
    Run();
    EXPECT_EQ(mFake.CallCount(Qbx::WaitForRawFrame), 2u);
    EXPECT_EQ(mResult, KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(mFake.CallCount(Qbx::GetReceivedRawFrame), 0u);
    EXPECT_EQ(mAsked, 0u);
    EXPECT_THAT(mConsole.Texts(), ElementsAre(testing::StartsWith("WaitForRawFrame failed, st=0x")));
}

TEST_F(FrameReceiverTest, FailureToReceiveEndsTheLoop) {
    ASSERT_EQ(Start(0, 1), KESTATUS_SUCCESS);
    Queue(3);
    QueueWaits({KESTATUS_SUCCESS});
    mFake.Queue(Qbx::GetReceivedRawFrame, {KESTATUS_NOT_ENABLED});
    Run();
    EXPECT_EQ(mResult, KESTATUS_NOT_ENABLED);
    EXPECT_EQ(mAsked, 0u);
    EXPECT_THAT(mConsole.Texts(),
                ElementsAre(testing::StartsWith("GetReceivedRawFrame failed, st=0x"),
                            testing::StartsWith("WriteReceivedFramesToFile failed, st=0x")));
    RawFrame* const frame = mWriter.GetRawFrame();
    ASSERT_NE(frame, nullptr); // it is back in the pool
    mWriter.ReleaseRawFrame(frame);
    EXPECT_EQ(FramesLeft(), 3u);
}

// The failure comes in the second before the report: there is a last report, and no more frames are taken.
TEST_F(FrameReceiverTest, FailureIsFollowedByTheReportThatIsDue) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    Queue(3);
    QueueWaits({KESTATUS_DEVICE_REMOVED});
    FrameReceiver receiver(mDevice, mWriter, cFrameSize, [this] { return mNow += 500; });
    unsigned reports = 0;
    EXPECT_EQ(receiver.WriteReceivedFramesToFile([&] { ++reports; }, [&] { return true; }),
              KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(reports, 1u);
    EXPECT_EQ(mFake.CallCount(Qbx::GetReceivedRawFrame), 0u);
}

TEST_F(FrameReceiverTest, WriterThatHasEndedEndsTheLoop) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS); // a packet in each file
    ASSERT_EQ(mkdir(NameOf(2).c_str(), 0700), 0);
    Queue(1);
    EXPECT_EQ(mTimedReceiver.TakeFrame(), KESTATUS_SUCCESS);
    EXPECT_EQ(WaitForThreadStatus(), 0xE0010015);
    Queue(2);
    QueueWaits({KESTATUS_SUCCESS});
    EXPECT_EQ(mWriter.WriteStatus(), KESTATUS_LINUX_EISDIR);
    EXPECT_EQ(mWriter.FileName(), NameOf(2));
    Run();
    EXPECT_EQ(mResult, KESTATUS_NOT_POSSIBLE);
    EXPECT_EQ(mAsked, 0u);
    EXPECT_THAT(mConsole.Texts(),
                ElementsAre("PCAPNG file writer has ended, st=0xe0010015(KESTATUS_LINUX_EISDIR).",
                            testing::StartsWith("WriteRawFrame failed, st=0x"),
                            testing::StartsWith("WriteReceivedFramesToFile failed, st=0x")));
    EXPECT_EQ(FramesLeft(), 1u);
}

TEST_F(FrameReceiverTest, DeviceWithoutAFrame) {
    ASSERT_EQ(Start(0, 1), KESTATUS_SUCCESS);
    EXPECT_EQ(mTimedReceiver.TakeFrame(), KESTATUS_NO_DATA);
    EXPECT_EQ(mTimedReceiver.TakeFrame(), KESTATUS_NO_DATA);
    EXPECT_THAT(mConsole.Messages(), IsEmpty());
    RawFrame* const frame = mWriter.GetRawFrame();
    ASSERT_NE(frame, nullptr); // it is back in the pool
    mWriter.ReleaseRawFrame(frame);
}

} // namespace
