// The pool of frames: what it hands out and takes back, and what it refuses.

#include "capture/RawFramePool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "LogCapture.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

class RawFramePoolTest : public testing::Test {
protected:
    LogCapture mLog;
    RawFramePool mPool;
};

TEST_F(RawFramePoolTest, NewPoolIsEmpty) {
    EXPECT_FALSE(mPool.IsAllocated());
    EXPECT_EQ(mPool.TotalCount(), 0u);
    EXPECT_EQ(mPool.GetRawFrame(), nullptr);
    mPool.FreeFramePool();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(RawFramePoolTest, HandsOutAllFramesInOrder) {
    ASSERT_EQ(mPool.AllocateFramePool(4, 1600), KESTATUS_SUCCESS);
    EXPECT_TRUE(mPool.IsAllocated());
    EXPECT_EQ(mPool.TotalCount(), 4u);
    EXPECT_EQ(mPool.CurrentCount(), 4u);
    std::vector<RawFrame*> frames;
    frames.reserve(4);
    for (unsigned i = 0; i < 4; ++i) {
        frames.push_back(mPool.GetRawFrame());
        ASSERT_NE(frames[i], nullptr);
        EXPECT_EQ(mPool.CurrentCount(), 3 - i);
        EXPECT_EQ(frames[i], frames[0] + i);
        EXPECT_EQ(frames[i]->mFrameBuffer.mData, frames[0]->mFrameBuffer.mData + std::size_t{i} * 1600);
        EXPECT_EQ(frames[i]->mFrameBuffer.mLength, 1600u);
        EXPECT_EQ(frames[i]->mListEntry.mList, nullptr);
        EXPECT_EQ(frames[i]->mFrameSize, 0u);
        EXPECT_EQ(frames[i]->mFrameType, QBXRawFrameType_Unknown);
        EXPECT_EQ(frames[i]->SendTime().time_since_epoch().count(), 0);
        for (unsigned byte = 0; byte < 1600; ++byte) {
            ASSERT_EQ(frames[i]->mFrameBuffer.mData[byte], 0);
        }
    }
    EXPECT_EQ(mPool.GetRawFrame(), nullptr);
    EXPECT_EQ(mPool.TotalCount(), 4u);
    // First in, first out, as they were left.
    frames[2]->mFrameSize = 7;
    frames[2]->mFrameType = QBXRawFrameType_Data;
    frames[2]->SetSendTime(RawFrameTimePoint(std::chrono::nanoseconds(5)));
    mPool.PutRawFrame(frames[2]);
    mPool.PutRawFrame(frames[0]);
    mPool.PutRawFrame(frames[3]);
    mPool.PutRawFrame(frames[1]);
    EXPECT_EQ(mPool.CurrentCount(), 4u);
    EXPECT_EQ(mPool.GetRawFrame(), frames[2]);
    EXPECT_EQ(frames[2]->mFrameSize, 7u);
    EXPECT_EQ(frames[2]->mFrameType, QBXRawFrameType_Data);
    EXPECT_EQ(frames[2]->SendTime().time_since_epoch().count(), 5);
    EXPECT_EQ(mPool.GetRawFrame(), frames[0]);
    mPool.PutRawFrame(frames[2]);
    mPool.PutRawFrame(frames[0]);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(RawFramePoolTest, SecondAllocationIsRefused) {
    ASSERT_EQ(mPool.AllocateFramePool(1, 100), KESTATUS_SUCCESS);
    EXPECT_EQ(mPool.AllocateFramePool(2, 100), KESTATUS_INTERNAL_ERROR);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEFATAL, "already allocated"}));
    EXPECT_EQ(mPool.TotalCount(), 1u);
    // Also while all are handed out.
    RawFrame* const frame = mPool.GetRawFrame();
    EXPECT_EQ(mPool.AllocateFramePool(2, 100), KESTATUS_INTERNAL_ERROR);
    mPool.PutRawFrame(frame);
}

TEST_F(RawFramePoolTest, PoolOfNoFramesIsNotAllocated) {
    EXPECT_EQ(mPool.AllocateFramePool(0, 100), KESTATUS_SUCCESS);
    EXPECT_FALSE(mPool.IsAllocated());
    EXPECT_EQ(mPool.AllocateFramePool(1, 100), KESTATUS_SUCCESS);
    EXPECT_NE(mPool.GetRawFrame(), nullptr);
}

TEST_F(RawFramePoolTest, OutstandingFramesAreTold) {
    ASSERT_EQ(mPool.AllocateFramePool(4, 1600), KESTATUS_SUCCESS);
    mPool.GetRawFrame();
    mPool.FreeFramePool();
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{
                                     KEFATAL, "There are outstanding frames, current/total count: 3/4"}));
    EXPECT_FALSE(mPool.IsAllocated());
    EXPECT_EQ(mPool.CurrentCount(), 0u);
    EXPECT_EQ(mPool.GetRawFrame(), nullptr);
    ASSERT_EQ(mPool.AllocateFramePool(2, 10), KESTATUS_SUCCESS);
    EXPECT_EQ(mPool.CurrentCount(), 2u);
}

TEST_F(RawFramePoolTest, BuffersBeyond4GiBAreRefused) {
    EXPECT_EQ(mPool.AllocateFramePool(2792567, 1538), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mPool.AllocateFramePool(0x10000, 0x10000), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mPool.AllocateFramePool(0xFFFFFFFF, 0xFFFFFFFF), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mLog.Count(KEERROR, "count 2792567 x size 1538 exceeds 4 GiB"), 1u);
    EXPECT_FALSE(mPool.IsAllocated());
}

TEST_F(RawFramePoolTest, ForeignFrameCanBeAdded) {
    RawFrame foreign;
    RawFramePool pool;
    pool.AddItem(&foreign);
    EXPECT_EQ(pool.TotalCount(), 1u);
    EXPECT_EQ(pool.CurrentCount(), 1u);
    EXPECT_EQ(pool.GetRawFrame(), &foreign);
    pool.PutRawFrame(&foreign);
}

TEST(RawFrameTest, DataAreTheBytesInUse) {
    unsigned char buffer[10] = {};
    RawFrame frame;
    frame.mFrameSize = 3;
    frame.mFrameType = QBXRawFrameType_Idle;
    frame.SetSendTime(RawFrameTimePoint(std::chrono::nanoseconds(5)));
    frame.InitRawFrame({buffer, sizeof buffer});
    EXPECT_EQ(frame.mFrameSize, 0u);
    EXPECT_EQ(frame.mFrameType, QBXRawFrameType_Unknown);
    EXPECT_EQ(frame.SendTime().time_since_epoch().count(), 5); // stays
    frame.mFrameSize = 4;
    EXPECT_EQ(frame.FrameData().mData, buffer);
    EXPECT_EQ(frame.FrameData().mLength, 4u);
    const RawFrame& same = frame;
    EXPECT_EQ(same.FrameData().mData, buffer);
    EXPECT_EQ(same.FrameData().mLength, 4u);
}

} // namespace
