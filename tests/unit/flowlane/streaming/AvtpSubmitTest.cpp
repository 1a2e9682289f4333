// What the AVTP sink does with every answer of the device.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "streaming/AvtpSinkFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using AvtpSubmitTest = AvtpSinkTest;

namespace {

constexpr const char* cCheck = "CheckSubmitRawFrame(101, 238)";
constexpr const char* cSubmit = "SubmitRawFrame(101, 238)";
constexpr const char* cSend = "SendRawFrames(101)";
constexpr const char* cWait = "WaitForTxResources(101, 1, 0)";

CapturedMessage Failed(const char* what, KESTATUS st) {
    return {KEERROR, KEStdStringFormat("{} failed, st={}", what, KEFormatArgKEStatus(st))};
}

// One packet. The sink sends it at once when a frame holds one packet, else in SendDeliveredPackets.
struct AnswerCase {
    const char* name;
    std::vector<std::pair<Qbx, std::vector<KESTATUS>>> answers = {};
    std::vector<const char*> calls;
    KESTATUS result = KESTATUS_SUCCESS;
    const char* failing = nullptr; // the call that is reported as failed
    std::uint64_t sent = 0;
    std::uint64_t noResources = 0;
};

const AnswerCase cAnswerCases[] = {
    {.name = "AllWell", .calls = {cCheck, cSubmit}, .sent = 1},
    {.name = "NoResources",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES}}},
     .calls = {cCheck},
     .noResources = 1},
    {.name = "NoSpace",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE}}},
     .calls = {cCheck, cSend, cCheck, cSubmit},
     .sent = 1},
    {.name = "NoSpaceThreeTimes",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE, KESTATUS_NO_SPACE, KESTATUS_NO_SPACE}}},
     .calls = {cCheck, cSend, cCheck, cSend, cCheck, cSend, cCheck, cSubmit},
     .sent = 1},
    {.name = "NoSpaceThenNoResources",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE, KESTATUS_NO_RESOURCES}}},
     .calls = {cCheck, cSend, cCheck},
     .noResources = 1},
    {.name = "NoSpaceThenFailure",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE, KESTATUS_INVALID_LENGTH}}},
     .calls = {cCheck, cSend, cCheck},
     .result = KESTATUS_INVALID_LENGTH,
     .failing = "CheckSubmitRawFrame"},
    {.name = "NoSpaceAndTheFlushFails",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE}},
                 {Qbx::SendRawFrames, {KESTATUS_DEVICE_REMOVED}}},
     .calls = {cCheck, cSend},
     .result = KESTATUS_DEVICE_REMOVED,
     .failing = "SendRawFrames"},
    {.name = "NoSpaceAndNothingToFlush",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_NO_SPACE}}, {Qbx::SendRawFrames, {KESTATUS_NO_DATA}}},
     .calls = {cCheck, cSend},
     .result = KESTATUS_NO_DATA,
     .failing = "SendRawFrames"},
    {.name = "CheckFails",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_INVALID_HANDLE}}},
     .calls = {cCheck},
     .result = KESTATUS_INVALID_HANDLE,
     .failing = "CheckSubmitRawFrame"},
    {.name = "CheckTimesOut",
     .answers = {{Qbx::CheckSubmitRawFrame, {KESTATUS_TIMEOUT}}},
     .calls = {cCheck},
     .result = KESTATUS_TIMEOUT,
     .failing = "CheckSubmitRawFrame"},
    {.name = "SubmitFails",
     .answers = {{Qbx::SubmitRawFrame, {KESTATUS_DEVICE_REMOVED}}},
     .calls = {cCheck, cSubmit},
     .result = KESTATUS_DEVICE_REMOVED,
     .failing = "SubmitRawFrame"},
    {.name = "SubmitHasNoResources",
     .answers = {{Qbx::SubmitRawFrame, {KESTATUS_NO_RESOURCES}}},
     .calls = {cCheck, cSubmit},
     .result = KESTATUS_NO_RESOURCES,
     .failing = "SubmitRawFrame"},
};

class AvtpAnswerTest : public AvtpSinkTest, public testing::WithParamInterface<AnswerCase> {
protected:
    void Script() {
        for (const auto& [function, statuses] : GetParam().answers) {
            mFake.Queue(function, statuses);
        }
    }
    // A failure is reported by the call that failed and once more by the sink's operation.
    void ExpectMessages() {
        std::vector<CapturedMessage> messages;
        if (GetParam().failing) {
            messages.push_back(Failed(GetParam().failing, GetParam().result));
            messages.push_back(Failed("SubmitEthernetFrame", GetParam().result));
        }
        EXPECT_THAT(mLog.Messages(), ElementsAreArray(messages));
    }
};

} // namespace

TEST_P(AvtpAnswerTest, InDeliver) {
    CreateAndStart(0, 1);
    Script();
    EXPECT_EQ(Deliver(), GetParam().result);
    EXPECT_THAT(mFake.Calls(), ElementsAreArray(GetParam().calls));
    ExpectMessages();
    ExpectStatistics(GetParam().sent, GetParam().noResources);
}

TEST_P(AvtpAnswerTest, InSendDeliveredPackets) {
    CreateAndStart(0, 5);
    Script();
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), GetParam().result);
    std::vector<const char*> calls = GetParam().calls;
    if (GetParam().result == KESTATUS_SUCCESS) {
        calls.push_back(cSend); // the flush, also when the frame was dropped
    }
    EXPECT_THAT(mFake.Calls(), ElementsAreArray(calls));
    ExpectMessages();
    ExpectStatistics(GetParam().sent, GetParam().noResources);
}

INSTANTIATE_TEST_SUITE_P(Answers, AvtpAnswerTest, testing::ValuesIn(cAnswerCases),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(AvtpSubmitTest, TheFlushAtTheEndOfABatch) {
    CreateAndStart();
    for (const KESTATUS st : {KESTATUS_SUCCESS, KESTATUS_NO_DATA}) {
        mFake.Queue(Qbx::SendRawFrames, {st});
        EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
        EXPECT_THAT(mLog.Messages(), IsEmpty());
    }
    for (const KESTATUS st : {KESTATUS_NO_SPACE, KESTATUS_NO_RESOURCES, KESTATUS_DEVICE_REMOVED}) {
        mLog.Clear();
        mFake.Queue(Qbx::SendRawFrames, {st});
        EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.SendDeliveredPackets(), st);
        EXPECT_THAT(mLog.Messages(), ElementsAre(Failed("SendRawFrames", st)));
    }
    ExpectStatistics(5, 0);
}

// The frame without resources is lost and its numbers are used up. The next one waits first.
TEST_F(AvtpSubmitTest, AFullFrameStaysInTheQueueUntilTheNextFlush) {
    CreateAndStart(0, 1);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cCheck, cSubmit));
}

TEST_F(AvtpSubmitTest, AFullFrameIsSentWhenFullFramesAreToBeSent) {
    mSink.SetSendFullFrames(true);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS); // not created yet: nothing to send
    CreateAndStart(0, 1);
    EXPECT_EQ(mSink.MaxSourcePacketCount(), 1u);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cCheck, cSubmit, cSend));

    mFake.Queue(Qbx::SendRawFrames, {KESTATUS_NO_DATA, KESTATUS_DEVICE_REMOVED});
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS); // as when the queue was full meanwhile
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_DEVICE_REMOVED);
    EXPECT_THAT(mLog.Messages(), ElementsAre(Failed("SendRawFrames", KESTATUS_DEVICE_REMOVED)));
}

TEST_F(AvtpSubmitTest, AfterAFrameWithoutResourcesTheNextOneWaits) {
    CreateAndStart(0, 1);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    mFake.ClearCalls();
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cWait, cCheck, cSubmit));
    mFake.ClearCalls();
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cCheck, cSubmit)); // resources are back
    ExpectFrames({{0, 0, {0}}, {2, 16, {2}}, {3, 24, {3}}});
    ExpectStatistics(3, 1);
}

TEST_F(AvtpSubmitTest, NoResourcesAfterTheWaitDropsAgain) {
    CreateAndStart(0, 1);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES, KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(3), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cCheck, cWait, cCheck, cWait, cCheck, cSubmit));
    ExpectFrames({{2, 16, {2}}});
    ExpectStatistics(1, 2);
}

TEST_F(AvtpSubmitTest, AFailingWaitIsAFailure) {
    CreateAndStart(0, 1);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    for (const KESTATUS st : {KESTATUS_DEVICE_REMOVED, KESTATUS_NO_RESOURCES}) {
        mLog.Clear();
        mFake.Queue(Qbx::WaitForTxResources, {st});
        EXPECT_EQ(Deliver(), st);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(Failed("WaitForTxResources", st), Failed("SubmitEthernetFrame", st)));
    }
    ExpectStatistics(0, 1);
}

// A part-filled frame stays when the wait times out. It takes more packets until it can be sent.
TEST_F(AvtpSubmitTest, ATimedOutWaitKeepsThePartFilledFrame) {
    CreateAndStart();
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForTxResources, {KESTATUS_TIMEOUT, KESTATUS_TIMEOUT});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    mFake.ClearCalls();
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(), ElementsAre(cWait, cSend));
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    // Every attempt used up a sequence number. Only the data blocks of the first frame were lost.
    ExpectFrames({{3, 8, {1, 2, 3}}});
    ExpectStatistics(1, 3);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

// The frame that was kept is full. The next packet is its last chance.
TEST_F(AvtpSubmitTest, AKeptFullFrameIsSentBeforeTheNextPacket) {
    CreateAndStart(0, 2);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForTxResources, {KESTATUS_TIMEOUT});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    ExpectFrames({{2, 16, {2, 3}}, {3, 32, {4, 5}}});
    ExpectStatistics(2, 2);
}

TEST_F(AvtpSubmitTest, AKeptFullFrameIsSentAtTheEndOfTheBatch) {
    CreateAndStart(0, 2);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForTxResources, {KESTATUS_TIMEOUT});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    ExpectFrames({{2, 16, {2, 3}}});
    EXPECT_EQ(mFake.SentFrameCount(), 1u);
}

TEST_F(AvtpSubmitTest, AKeptFullFrameIsDroppedWhenItsLastChanceFails) {
    CreateAndStart(0, 2);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    EXPECT_EQ(Deliver(2), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForTxResources, {KESTATUS_TIMEOUT, KESTATUS_TIMEOUT});
    EXPECT_EQ(Deliver(4), KESTATUS_SUCCESS); // packets 2 and 3 time out twice, 4 and 5 are sent
    ExpectFrames({{3, 32, {4, 5}}});
    ExpectStatistics(1, 3);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpSubmitTest, AKeptFullFrameThatFailsReportsTheFailure) {
    CreateAndStart(0, 1);
    mFake.Queue(Qbx::SubmitRawFrame, {KESTATUS_DEVICE_REMOVED, KESTATUS_DEVICE_REMOVED});
    EXPECT_EQ(Deliver(), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(Deliver(), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(mLog.Count(KEERROR, Failed("SubmitEthernetFrame", KESTATUS_DEVICE_REMOVED).text), 2u);
    EXPECT_EQ(Deliver(), KESTATUS_SUCCESS); // the first packet, then the third one
    ExpectFrames({{2, 0, {0}}, {3, 8, {2}}});
}

// A device that never has room again must not make the frame grow beyond its buffer.
TEST_F(AvtpSubmitTest, TheFrameNeverOutgrowsItsBuffer) {
    CreateAndStart(0x6002);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_NO_RESOURCES});
    mFake.SetDefault(Qbx::WaitForTxResources, KESTATUS_TIMEOUT);
    EXPECT_EQ(Deliver(7 * 100), KESTATUS_SUCCESS);
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_EQ(Deliver(i % 9), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    }
    EXPECT_THAT(mFake.SubmittedFrames(), IsEmpty());
    mFake.SetDefault(Qbx::WaitForTxResources, KESTATUS_SUCCESS);
    EXPECT_EQ(Deliver(7 * 10), KESTATUS_SUCCESS);
    EXPECT_GE(mFake.SubmittedFrames().size(), 10u);
    for (const FakeFrame& frame : mFake.SubmittedFrames()) {
        EXPECT_LE(frame.size(), 1394u);
    }
}

namespace {

// The number of lost frames is read while the sink uses the device, so on the thread that uses it.
class AvtpSinkLossTest : public AvtpSinkTest {
protected:
    AvtpSinkLossTest() {
        mFake.SetLostFrames(1000); // before the sink was created
        CreateAndStart(0, 5);
    }
    KESTATUS DeliverAndSend() {
        const KESTATUS st = Deliver();
        return st == KESTATUS_SUCCESS ? mSink.SendDeliveredPackets() : st;
    }
    std::size_t Asked() const { return mFake.CallCount(Qbx::GetDevicePropertyBinary); }
};

} // namespace

TEST_F(AvtpSinkLossTest, IsPublishedOnceASecond) {
    const std::size_t before = Asked();
    mFake.SetLostFrames(1003);
    mClock.Sleep(990);
    EXPECT_EQ(DeliverAndSend(), KESTATUS_SUCCESS);
    EXPECT_EQ(Asked(), before);
    EXPECT_EQ(mSink.LostFrames(), 0u);
    mClock.Sleep(10);
    EXPECT_EQ(mSink.LostFrames(), 0u); // asking the sink does not ask the device
    EXPECT_EQ(Asked(), before);
    EXPECT_EQ(DeliverAndSend(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSink.LostFrames(), 3u);
    EXPECT_EQ(Asked(), before + 1);
    mClock.Sleep(1000);
    EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS); // also with nothing to send
    EXPECT_EQ(Asked(), before + 2);
}

TEST_F(AvtpSinkLossTest, IsExactAfterTheStop) {
    EXPECT_EQ(DeliverAndSend(), KESTATUS_SUCCESS);
    mFake.SetLostFrames(1001);
    mSink.StopSink();
    EXPECT_EQ(mSink.LostFrames(), 1u);
}

TEST_F(AvtpSinkLossTest, IsExactAfterAFailure) {
    mFake.SetLostFrames(1002);
    mFake.Queue(Qbx::SendRawFrames, {KESTATUS_DEVICE_REMOVED});
    EXPECT_EQ(DeliverAndSend(), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(mSink.LostFrames(), 2u);
    mFake.SetLostFrames(1007);
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_INVALID_LENGTH});
    EXPECT_EQ(Deliver(5), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(mSink.LostFrames(), 7u);
}

TEST_F(AvtpSubmitTest, ALibraryThatCountsNoLossesIsAskedOnce) {
    CreateAndStart(0, 5);
    const std::size_t asked = mFake.CallCount(Qbx::GetDevicePropertyBinary);
    for (int i = 0; i < 3; ++i) {
        mClock.Sleep(1000);
        EXPECT_EQ(Deliver(), KESTATUS_SUCCESS);
        EXPECT_EQ(mSink.SendDeliveredPackets(), KESTATUS_SUCCESS);
    }
    mSink.StopSink();
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), asked);
    EXPECT_EQ(mSink.LostFrames(), 0u);
}
