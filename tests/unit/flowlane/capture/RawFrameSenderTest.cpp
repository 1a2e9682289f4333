// Sending the frames that are due: which ones, in which calls to the device, and where they are afterwards.

#include "capture/RawFrameSender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "FakeDeviceTest.h"
#include "LogCapture.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr RawFrameTimePoint cNow{1000s};

class RawFrameSenderTest : public FakeDeviceTest {
protected:
    RawFrameSenderTest() {
        OpenToSend();
        EXPECT_EQ(mFramePool.AllocateFramePool(3, 60), KESTATUS_SUCCESS);
        mSender.SetDevice(mDevice);
    }
    ~RawFrameSenderTest() override { mSender.ClearSendList(); }

    void Queue(unsigned number, RawFrameTimePoint time) {
        RawFrame* const frame = mFramePool.GetRawFrame();
        ASSERT_NE(frame, nullptr);
        frame->mFrameBuffer.mData[0] = static_cast<unsigned char>(number);
        frame->mFrameSize = 1;
        frame->SetSendTime(time);
        mFramesToSent.AppendTail(*frame);
    }
    // The calls that send, without their arguments.
    std::vector<std::string> SendingCalls() const {
        std::vector<std::string> calls;
        for (const std::string& call : mFake.Calls()) {
            if (call.find("Submit") != std::string::npos || call.find("SendRaw") != std::string::npos) {
                calls.push_back(call.substr(0, call.find('(')));
            }
        }
        return calls;
    }

    LogCapture mLog;
    RawFramePool mFramePool;
    RawFrameList mFramesToSent{&RawFrame::mListEntry};
    PcapNgReaderCounters mStats;
    RawFrameSender mSender{mFramesToSent, mFramePool, mStats};
};

TEST_F(RawFrameSenderTest, NothingIsDue) {
    EXPECT_EQ(mSender.SendFrames(cNow), KESTATUS_SUCCESS);
    Queue(1, cNow + 1ns);
    EXPECT_EQ(mSender.SendFrames(cNow), KESTATUS_SUCCESS);
    EXPECT_THAT(SendingCalls(), IsEmpty());
    EXPECT_EQ(mFramePool.CurrentCount(), 2u);
}

TEST_F(RawFrameSenderTest, FramesThatAreDueGoOutTogether) {
    Queue(1, cNow - 1s);
    Queue(2, cNow);
    Queue(3, cNow + 1ns);
    EXPECT_EQ(mSender.SendFrames(cNow), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.SubmittedFrames(), ElementsAre(FakeFrame{1}, FakeFrame{2}));
    EXPECT_THAT(SendingCalls(), ElementsAre("CheckSubmitRawFrame", "SubmitRawFrame", "CheckSubmitRawFrame",
                                            "SubmitRawFrame", "SendRawFrames"));
    EXPECT_FALSE(mFake.IsReservedUsed());
    EXPECT_EQ(mStats.Snapshot().infFramesSent, 2u);
    EXPECT_EQ(mFramePool.CurrentCount(), 2u);
    EXPECT_EQ(mSender.SendFrames(cNow + 1ns), KESTATUS_SUCCESS);
    EXPECT_EQ(mStats.Snapshot().infFramesSent, 3u);
    EXPECT_EQ(mFramePool.CurrentCount(), 3u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(RawFrameSenderTest, FullBatchIsSentFirst) {
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_SUCCESS, KESTATUS_NO_SPACE});
    for (unsigned number = 1; number <= 3; ++number) {
        Queue(number, cNow);
    }
    EXPECT_EQ(mSender.SendFrames(cNow), KESTATUS_SUCCESS);
    EXPECT_THAT(SendingCalls(),
                ElementsAre("CheckSubmitRawFrame", "SubmitRawFrame", "CheckSubmitRawFrame", "SendRawFrames",
                            "SubmitRawFrame", "CheckSubmitRawFrame", "SubmitRawFrame", "SendRawFrames"));
    EXPECT_THAT(mFake.SubmittedFrames(), ElementsAre(FakeFrame{1}, FakeFrame{2}, FakeFrame{3}));
}

TEST_F(RawFrameSenderTest, FailureLeavesTheFramesBehindInTheList) {
    mFake.Queue(Qbx::SubmitRawFrame, {KESTATUS_SUCCESS, KESTATUS_DEVICE_REMOVED});
    for (unsigned number = 1; number <= 3; ++number) {
        Queue(number, cNow);
    }
    EXPECT_EQ(mSender.SendFrames(cNow), KESTATUS_DEVICE_REMOVED);
    EXPECT_THAT(mLog.Texts(), ElementsAre(testing::StartsWith("SubmitRawFrame failed, st=0x"),
                                          testing::StartsWith("SubmitFrame failed, st=0x")));
    EXPECT_EQ(mStats.Snapshot().infFramesSent, 1u);
    EXPECT_EQ(mFramePool.CurrentCount(), 2u);
    mSender.ClearSendList();
    EXPECT_EQ(mFramePool.CurrentCount(), 3u);
    EXPECT_TRUE(mFramesToSent.IsEmpty());
}

} // namespace
