// Whom a sender waits for, and how long: in virtual time.
#include <gtest/gtest.h>

#include <memory>

#include "segment/FlowControl.h"

namespace {

using namespace quayside2::segment;

constexpr std::uint32_t cSender = 1;
constexpr std::int64_t cMillisecond = 1000000;
constexpr std::uint64_t cReclaim = 10 * cBlockBytes;
constexpr std::uint64_t cEnd = 70 * cBlockBytes;

class FlowControlTest : public testing::Test {
protected:
    FlowControlTest()
        : mFlow(*mControl, cSender, [this](std::uint32_t port) {
              ++mQuestions;
              return mHeld[port];
          }) {}

    void Enable(std::uint32_t port, std::uint64_t cursor) {
        mControl->receivers[port].epoch.fetch_add(1);
        SetCursor(port, cursor);
        mHeld[port] = true;
    }
    void SetCursor(std::uint32_t port, std::uint64_t cursor) {
        mControl->receivers[port].cursors[cSender].position.store(cursor);
    }
    bool MustWaitAt(std::int64_t milliseconds) {
        return mFlow.MustWait(cReclaim, cEnd, milliseconds * cMillisecond);
    }

    std::unique_ptr<ControlPages> mControl = std::make_unique<ControlPages>();
    bool mHeld[cPortCount] = {};
    int mQuestions = 0;
    FlowControl mFlow;
};

TEST_F(FlowControlTest, NobodyListening) {
    EXPECT_FALSE(MustWaitAt(0));
    EXPECT_EQ(mQuestions, 0);
}

TEST_F(FlowControlTest, ADisabledReceiverDoesNotCount) {
    Enable(0, 0);
    mControl->receivers[0].epoch.fetch_add(1);
    EXPECT_FALSE(MustWaitAt(0));
}

TEST_F(FlowControlTest, ItsOwnPortDoesNotCount) {
    Enable(cSender, 0);
    EXPECT_FALSE(MustWaitAt(0));
}

TEST_F(FlowControlTest, AReceiverThatHasReadEnoughIsNotAskedFor) {
    Enable(0, cReclaim);
    EXPECT_FALSE(MustWaitAt(0));
    SetCursor(0, cReclaim - 16); // at the end of the block before: the next record is behind it
    EXPECT_FALSE(MustWaitAt(0));
    SetCursor(0, cEnd);
    EXPECT_FALSE(MustWaitAt(0));
    EXPECT_EQ(mQuestions, 0) << "the kernel is asked only about those behind";
}

TEST_F(FlowControlTest, PatienceEndsAfterHundredMillisecondsWithoutMoving) {
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(1000));
    EXPECT_TRUE(MustWaitAt(1099));
    EXPECT_FALSE(MustWaitAt(1100));
    EXPECT_FALSE(MustWaitAt(1101));
    EXPECT_FALSE(MustWaitAt(900000)) << "it is never waited for again";
}

TEST_F(FlowControlTest, EveryMoveBuysNewPatience) {
    Enable(0, 0);
    for (std::uint64_t i = 0; i < 50; ++i) {
        SetCursor(0, i * 16);
        EXPECT_TRUE(MustWaitAt(static_cast<std::int64_t>(i) * 99));
    }
    EXPECT_TRUE(MustWaitAt(49 * 99 + 99));
    EXPECT_FALSE(MustWaitAt(49 * 99 + 100));
    SetCursor(0, 51 * 16);
    EXPECT_TRUE(MustWaitAt(10000)) << "given up before, but it has moved";
    EXPECT_FALSE(MustWaitAt(10100));
}

TEST_F(FlowControlTest, PatienceCountsOnlyWhileBehind) {
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(0));
    EXPECT_FALSE(mFlow.MustWait(0, cEnd, 50 * cMillisecond)); // not behind for this one
    EXPECT_TRUE(MustWaitAt(120));
    EXPECT_TRUE(MustWaitAt(219));
    EXPECT_FALSE(MustWaitAt(220));
}

TEST_F(FlowControlTest, ADeadReceiverIsNotWaitedFor) {
    Enable(0, 0);
    mHeld[0] = false;
    EXPECT_FALSE(MustWaitAt(0));
    EXPECT_FALSE(MustWaitAt(1));
    EXPECT_EQ(mQuestions, 1) << "asked once";
}

TEST_F(FlowControlTest, AReceiverThatDiesMeanwhileIsNotWaitedFor) {
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(0));
    mHeld[0] = false;
    EXPECT_FALSE(MustWaitAt(10));
}

TEST_F(FlowControlTest, ANewReceiverOnThePortIsANewOne) {
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(0));
    EXPECT_FALSE(MustWaitAt(100));
    mControl->receivers[0].epoch.fetch_add(1);
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(200)) << "the same place, but another delivery";
}

TEST_F(FlowControlTest, EachReceiverHasItsOwnPatience) {
    Enable(0, 0);
    EXPECT_TRUE(MustWaitAt(0));
    Enable(2, 16);
    EXPECT_TRUE(MustWaitAt(60));
    EXPECT_TRUE(MustWaitAt(100)) << "0 is given up, 2 is not";
    EXPECT_TRUE(MustWaitAt(159));
    EXPECT_FALSE(MustWaitAt(160));
    Enable(3, 0);
    EXPECT_TRUE(MustWaitAt(170));
}

TEST_F(FlowControlTest, ADamagedCursorHoldsNobodyUp) {
    Enable(0, 0);
    for (const std::uint64_t cursor :
         {cEnd + 16, ~std::uint64_t{0}, ~std::uint64_t{0} - 15, std::uint64_t{1} << 63}) {
        SetCursor(0, cursor);
        EXPECT_FALSE(MustWaitAt(0)) << cursor;
    }
}

} // namespace
