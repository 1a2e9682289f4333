// The worker of the AVTP source: creating, starting, stopping and failing, and the count of lost frames.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "SystemCallFaults.h"
#include "VirtualClock.h"
#include "streaming/AvtpSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using AvtpSourceWorkerTest = AvtpSourceTest;

TEST_F(AvtpSourceWorkerTest, CreateReportsTheDevicesAddress) {
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_NOT_FOUND});
    EXPECT_EQ(Create(), KESTATUS_NOT_FOUND);
    FakeInstance instance;
    instance.macAddress = {1, 2, 3, 4, 5};
    mFake.SetInstances({instance});
    EXPECT_EQ(Create(), KESTATUS_LENGTH_MISMATCH);
    EXPECT_THAT(mLog.Texts(), ElementsAre("GetDevicePropertyBinary failed, st=0xe0000039(KESTATUS_NOT_FOUND)",
                                          "MAC address length mismatch, got 5, exp 6"));
    EXPECT_EQ(mSource.StartSource(), KESTATUS_NOT_INITIALIZED);
}

TEST_F(AvtpSourceWorkerTest, StartReportsWhatFails) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::EnableRawRx, {KESTATUS_DEVICE_REMOVED});
    EXPECT_EQ(mSource.StartSource(), KESTATUS_DEVICE_REMOVED);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{
                                     KEERROR, "EnableRawRx failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED)"}));
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 0u);
}

TEST_F(AvtpSourceWorkerTest, AThreadThatCannotBeCreatedLeavesReceptionOff) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("pthread_create", EAGAIN);
        EXPECT_EQ(mSource.StartSource(), KEStatusFromErrno(EAGAIN));
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_EQ(mLog.Texts().back(), KEStdStringFormat("CreateThread failed, st={}",
                                                     KEFormatArgKEStatus(KEStatusFromErrno(EAGAIN))));
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mLog.Clear();
    Receive({AvtpFrame({.firstPacket = 3})}); // a later start works
    ExpectPackets({3});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(AvtpSourceWorkerTest, StartingTwiceLeavesTheFirstStartAlone) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    EXPECT_EQ(mSource.StartSource(), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(mFake.CallCount(Qbx::EnableRawRx), 1u);
    mFake.QueueReceivedFrame(AvtpFrame({.firstPacket = 4}));
    ASSERT_TRUE(WaitUntil([&] { return mSource.QuerryStatistics().infTsPacketsDelivered == 1; }));
    mSource.StopSource();
    ExpectPackets({4});
}

TEST_F(AvtpSourceWorkerTest, EachStartBeginsAnew) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    Receive({AvtpFrame({.sequenceNumber = 9, .dataBlockCount = 0, .firstPacket = 0, .blocks = 12})});
    Receive({AvtpFrame({.sequenceNumber = 100, .dataBlockCount = 64, .firstPacket = 7})});
    ExpectPackets({0, 7});
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    EXPECT_EQ(mSource.QuerryStatistics().infAvtpPacketsReceived, 1u);
}

TEST_F(AvtpSourceWorkerTest, StopWakesAThreadThatWaitsWithoutLimit) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mFake.CallCount(Qbx::WaitForRawFrame) == 1; }));
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    mSource.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

// The worker still has frames to take when the stop comes. Disabling reception has to wait, since it discards
// the frames that are not taken.
TEST_F(AvtpSourceWorkerTest, WhatWasReceivedBeforeTheStopIsForwarded) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    std::atomic<bool> mayGoOn{false};
    std::atomic<bool> isDelivering{false};
    mSink.mOnDeliver = [&] {
        isDelivering.store(true);
        EXPECT_TRUE(WaitUntil([&] { return mayGoOn.load(); }));
        return KESTATUS_SUCCESS;
    };
    for (std::uint8_t i = 0; i < 20; ++i) {
        mFake.QueueReceivedFrame(AvtpFrame(
            {.sequenceNumber = i, .dataBlockCount = static_cast<std::uint8_t>(8 * i), .firstPacket = i}));
    }
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return isDelivering.load(); }));
    std::thread stop([&] { mSource.StopSource(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // long enough to disable reception too early
    mayGoOn.store(true);
    stop.join();
    EXPECT_EQ(mSink.mPackets.size(), 20u);
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
}

// Frames that keep coming do not hold up the stop for ever.
TEST_F(AvtpSourceWorkerTest, StopsWhileFramesKeepComing) {
    VirtualClock clock; // its second passes at once
    AvtpSource source(clock);
    ASSERT_EQ(source.CreateAvtpSource(mDevice, mSink, cAnySender, 0, false), KESTATUS_SUCCESS);
    const FrameBytes frame = AvtpFrame({});
    std::atomic<unsigned> deliveries{0};
    mSink.mOnDeliver = [&] {
        ++deliveries;
        mSink.mPackets.clear();
        mFake.QueueReceivedFrame(frame);
        return KESTATUS_SUCCESS;
    };
    mFake.QueueReceivedFrame(frame);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return deliveries.load() > 100; }));
    source.StopSource();
    EXPECT_EQ(mFake.CallCount(Qbx::DisableRawRx), 1u);
}

// The worker asks for the number of lost frames: no other thread uses the device.
TEST_F(AvtpSourceWorkerTest, LostFramesArePublishedOnceASecond) {
    mFake.SetLostFrames(1000); // before the source was created
    VirtualClock clock;
    AvtpSource source(clock);
    ASSERT_EQ(source.CreateAvtpSource(mDevice, mSink, cAnySender, 0, false), KESTATUS_SUCCESS);
    const auto asked = [&] { return mFake.CallCount(Qbx::GetDevicePropertyBinary); };
    const std::size_t before = asked();
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    std::size_t taken = 0;
    const auto receiveOne = [&] {
        ++taken;
        mFake.QueueReceivedFrame(AvtpFrame({}));
        ASSERT_TRUE(WaitUntil([&] { return mFake.CallCount(Qbx::WaitForRawFrame) > taken; }));
    };
    mFake.SetLostFrames(1004);
    clock.Sleep(999);
    receiveOne();
    EXPECT_EQ(asked(), before);
    EXPECT_EQ(source.LostFrames(), 0u);
    clock.Sleep(1);
    EXPECT_EQ(source.LostFrames(), 0u); // asking the source does not ask the device
    EXPECT_EQ(asked(), before);
    receiveOne();
    EXPECT_EQ(asked(), before + 1);
    EXPECT_EQ(source.LostFrames(), 4u);
    mFake.SetLostFrames(1009);
    source.StopSource();
    EXPECT_EQ(source.LostFrames(), 9u);
    EXPECT_EQ(asked(), before + 2);
}

TEST_F(AvtpSourceWorkerTest, LostFramesAreExactWhenTheWorkerGivesUp) {
    mFake.SetLostFrames(0);
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mFake.SetLostFrames(6);
    mFake.Queue(Qbx::GetReceivedRawFrame, {KESTATUS_DEVICE_REMOVED});
    mFake.QueueReceivedFrame(AvtpFrame({}));
    ASSERT_TRUE(WaitUntil([&] { return mSource.FailureStatus() != KESTATUS_SUCCESS; }));
    EXPECT_EQ(mSource.LostFrames(), 6u);
}

TEST_F(AvtpSourceWorkerTest, StopGoesOnWhenReceptionCannotBeDisabled) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(Qbx::WaitForRawFrame, {KESTATUS_DEVICE_REMOVED}); // the thread has ended by itself
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mLog.Texts().size() == 1; }));
    mFake.Queue(Qbx::DisableRawRx, {KESTATUS_HARDWARE_ERROR});
    mSource.StopSource();
    EXPECT_EQ(mLog.Count(KEERROR, "DisableRawRx failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR)"), 1u);
}

struct DeviceFailureCase {
    Qbx function;
    std::vector<KESTATUS> answers;
    std::vector<std::string> lines;
};

class AvtpSourceDeviceFailureTest : public AvtpSourceTest,
                                    public testing::WithParamInterface<DeviceFailureCase> {};

TEST_P(AvtpSourceDeviceFailureTest, EndsTheThread) {
    ASSERT_EQ(Create(), KESTATUS_SUCCESS);
    mFake.Queue(GetParam().function, GetParam().answers);
    mFake.QueueReceivedFrame(AvtpFrame({}));
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mLog.Texts().size() >= GetParam().lines.size(); }));
    mSource.StopSource();
    EXPECT_THAT(mLog.Texts(), ElementsAreArray(GetParam().lines));
    EXPECT_EQ(mLog.CountContaining(KEERROR, ""), GetParam().lines.size());
    ExpectPackets({});
}

INSTANTIATE_TEST_SUITE_P(
    Table, AvtpSourceDeviceFailureTest,
    testing::Values(
        DeviceFailureCase{Qbx::WaitForRawFrame,
                          {KESTATUS_NOT_ENABLED, KESTATUS_NOT_ENABLED, KESTATUS_DEVICE_REMOVED},
                          {"WaitForRawFrame failed, st=0xe0000071(KESTATUS_DEVICE_REMOVED), stop thread"}},
        DeviceFailureCase{Qbx::WaitForRawFrame,
                          {KESTATUS_TIMEOUT},
                          {"WaitForRawFrame failed, st=0xe0000003(KESTATUS_TIMEOUT), stop thread"}},
        DeviceFailureCase{Qbx::GetReceivedRawFrame,
                          {KESTATUS_HARDWARE_ERROR},
                          {"GetReceivedRawFrame failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR)",
                           "ProcessData failed, st=0xe0000087(KESTATUS_HARDWARE_ERROR), stop thread"}}));

} // namespace
