// The frames that a device has lost: when the device library is asked, and what is made of its answers.

#include <gtest/gtest.h>

#include "FakeDeviceTest.h"
#include "device/LostFrameCounter.h"

using namespace flowlane;
using namespace testsupport;
using namespace std::chrono_literals;

namespace {

constexpr PipelineClock::TimePoint cStart{1000s};

class LostFrameCounterTest : public FakeDeviceTest {
protected:
    LostFrameCounterTest() { OpenToSend(); }
    std::size_t Asked() const { return mFake.CallCount(Qbx::GetDevicePropertyBinary); }

    LostFrameCounter mCounter;
};

} // namespace

TEST_F(LostFrameCounterTest, TheFirstAnswerIsWhereCountingBegins) {
    mFake.SetLostFrames(1000);
    mCounter.Start(mDevice, cStart);
    EXPECT_EQ(mCounter.Value(), 0u);
    mFake.SetLostFrames(1007);
    mCounter.UpdateNow();
    EXPECT_EQ(mCounter.Value(), 7u);
}

TEST_F(LostFrameCounterTest, AsksOnceASecondAtMost) {
    mFake.SetLostFrames(0);
    mCounter.Start(mDevice, cStart);
    EXPECT_EQ(Asked(), 1u);
    mFake.SetLostFrames(3);
    mCounter.Update(cStart + 999ms);
    EXPECT_EQ(Asked(), 1u);
    EXPECT_EQ(mCounter.Value(), 0u);
    mCounter.Update(cStart + 1000ms);
    EXPECT_EQ(Asked(), 2u);
    EXPECT_EQ(mCounter.Value(), 3u);
    mCounter.Update(cStart + 1999ms);
    EXPECT_EQ(Asked(), 2u);
    mCounter.Update(cStart + 2000ms);
    EXPECT_EQ(Asked(), 3u);
}

TEST_F(LostFrameCounterTest, ALibraryWithoutTheNumberIsAskedOnce) {
    mCounter.Start(mDevice, cStart); // KESTATUS_NOT_FOUND
    mCounter.Update(cStart + 5s);
    mCounter.UpdateNow();
    EXPECT_EQ(Asked(), 1u);
    EXPECT_EQ(mCounter.Value(), 0u);
}

TEST_F(LostFrameCounterTest, AnAnswerOfAnotherSizeIsNoNumber) {
    mFake.SetLostFrames(0x0202020202020202, 6);
    mCounter.Start(mDevice, cStart);
    mCounter.UpdateNow();
    EXPECT_EQ(Asked(), 1u);
    EXPECT_EQ(mCounter.Value(), 0u);
}

TEST_F(LostFrameCounterTest, ALaterFailureKeepsWhatWasCountedAndEndsTheQuestions) {
    mFake.SetLostFrames(1);
    mCounter.Start(mDevice, cStart);
    mFake.SetLostFrames(5);
    mCounter.UpdateNow();
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_DEVICE_REMOVED});
    mCounter.UpdateNow();
    mFake.SetLostFrames(9);
    mCounter.UpdateNow();
    EXPECT_EQ(Asked(), 3u);
    EXPECT_EQ(mCounter.Value(), 4u);
}

TEST_F(LostFrameCounterTest, NeverGoesBack) {
    mFake.SetLostFrames(1000);
    mCounter.Start(mDevice, cStart);
    mFake.SetLostFrames(999);
    mCounter.UpdateNow();
    EXPECT_EQ(mCounter.Value(), 0u);
    mFake.SetLostFrames(1005);
    mCounter.UpdateNow();
    mFake.SetLostFrames(1004);
    mCounter.UpdateNow();
    EXPECT_EQ(mCounter.Value(), 5u);
}

TEST_F(LostFrameCounterTest, AsksNothingBeforeTheStart) {
    mCounter.UpdateNow();
    EXPECT_EQ(Asked(), 0u);
}
