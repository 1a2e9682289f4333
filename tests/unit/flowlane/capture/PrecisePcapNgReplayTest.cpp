// The replay with precise timing: each frame at its own time, in virtual time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include "ReplayFixture.h"
#include "TimedMessages.h"
#include "WaitUntil.h"

namespace {

using namespace flowlane;
using namespace testsupport;
using testing::ElementsAre;

// A call that sends: when, and how many frames.
struct Send {
    std::int64_t time; // us after the first frame was due
    std::size_t frames;

    friend bool operator==(const Send&, const Send&) = default;
};

std::ostream& operator<<(std::ostream& stream, const Send& send) {
    return stream << "{" << send.frames << " frames at " << send.time << " us}";
}

class PrecisePcapNgReplayTest : public ReplayTest {
protected:
    PrecisePcapNgReplayTest() {
        mReader.SetPreciseTiming(true);
        mFake.SetOnSend([this](std::size_t count) {
            const auto sinceStart = mClock.Now() - VirtualClock::cStart - std::chrono::milliseconds(500);
            mSends.push_back({sinceStart.count() / 1000, count - mSentCount});
            mSentCount = count;
            mOnSend();
        });
    }
    ~PrecisePcapNgReplayTest() override { mReader.StopFileReader(); }

    // A file of frames at these times in microseconds.
    void WriteFrames(const std::vector<std::uint64_t>& times) {
        ByteList packets;
        for (const std::uint64_t time : times) {
            const ByteList packet = Packet(static_cast<unsigned char>(packets.size() / 92), time);
            packets.insert(packets.end(), packet.begin(), packet.end());
        }
        Write("file.pcapng", FileOf(packets));
    }
    void ReplayFrames(const std::vector<std::uint64_t>& times) {
        WriteFrames(times);
        ASSERT_EQ(Start(), KESTATUS_SUCCESS);
        WaitForEnd();
        EXPECT_EQ(Stats().infFramesSent, times.size());
        EXPECT_EQ(mSentCount, times.size());
    }

    // Written by the thread of the reader; read after the end.
    std::vector<Send> mSends;
    std::size_t mSentCount = 0;
    std::function<void()> mOnSend = [] {};
};

TEST_F(PrecisePcapNgReplayTest, EachFrameLeavesAtItsOwnTime) {
    ReplayFrames({0, 1, 2, 100, 9'999, 10'000, 45'678, 2'000'000});
    EXPECT_THAT(mSends, ElementsAre(Send{0, 1}, Send{1, 1}, Send{2, 1}, Send{100, 1}, Send{9'999, 1},
                                    Send{10'000, 1}, Send{45'678, 1}, Send{2'000'000, 1}));
}

// The sleep before the first frame is short, and there is one sleep before each of the others.
TEST_F(PrecisePcapNgReplayTest, SleepsBeforeTheFirstFrameBecomeShorter) {
    std::vector<unsigned> sleeps;
    mOnSend = [&] { sleeps.push_back(mClock.Sleeps()); };
    ReplayFrames({0, 9'000, 18'000});
    // 49 sleeps leave 10 ms, which eight more halve; one takes the rest.
    EXPECT_THAT(sleeps, ElementsAre(58, 59, 60));
}

TEST_F(PrecisePcapNgReplayTest, TheSameWithASmallPool) {
    mFrameCount = 2;
    ReplayFrames({0, 1, 2, 100, 9'999, 10'000, 45'678});
    EXPECT_THAT(mSends, ElementsAre(Send{0, 1}, Send{1, 1}, Send{2, 1}, Send{100, 1}, Send{9'999, 1},
                                    Send{10'000, 1}, Send{45'678, 1}));
}

TEST_F(PrecisePcapNgReplayTest, FramesOfEqualTimeShareOneSend) {
    ReplayFrames({7, 7, 7, 50, 50, 51});
    EXPECT_THAT(mSends, ElementsAre(Send{0, 3}, Send{43, 2}, Send{44, 1}));
}

// Sending takes long here. The frames that are due then leave together, and the later ones at their times.
TEST_F(PrecisePcapNgReplayTest, LateFramesShareOneSendAndDelayNoOthers) {
    mOnSend = [this] {
        if (mSends.size() == 1) {
            mClock.Sleep(3);
        }
    };
    ReplayFrames({0, 1'000, 2'000, 3'000, 3'001, 4'000});
    EXPECT_THAT(mSends, ElementsAre(Send{0, 1}, Send{3'000, 3}, Send{3'001, 1}, Send{4'000, 1}));
}

TEST_F(PrecisePcapNgReplayTest, ThereIsNoSleepBetweenFramesOfEqualTime) {
    mFrameCount = 100;
    unsigned sleeps = 0;
    mOnSend = [&] {
        if (mSends.size() == 1) {
            sleeps = mClock.Sleeps();
        }
    };
    ReplayFrames(std::vector<std::uint64_t>(1000, 5));
    EXPECT_EQ(mClock.Sleeps(), sleeps);
    // The frames read before the start, then those that share a send.
    ASSERT_GE(mSends.size(), 2u);
    EXPECT_EQ(mSends[0], (Send{0, 100}));
    EXPECT_EQ(mSends[1], (Send{0, 64}));
    EXPECT_EQ(mSends.size(), 1u + (900 + 63) / 64);
}

// Skipping the packet of a trigger takes a microsecond here. The frames of the first moment make room for as
// many others and their triggers, but reading them must not delay those that become due meanwhile.
TEST_F(PrecisePcapNgReplayTest, ReadingOnDelaysNoDueFrame) {
    const TimedMessages messages(mClock, std::chrono::microseconds(1));
    constexpr std::int64_t cSpacing = 50; // us
    mFrameCount = 1000;
    ByteList packets;
    for (std::uint64_t i = 0; i < 900; ++i) {
        packets = Concat({packets, Packet(1, 0)});
    }
    for (std::uint64_t i = 1; i <= 1100; ++i) {
        packets = Concat({packets, TriggerPacket(10), Packet(2, i * cSpacing)});
    }
    Replay(FileOf(packets));
    ASSERT_EQ(mSends.size(), 1101u);
    EXPECT_EQ(mLog.Count(kestrelon::KEINFO, "ignore dummy Ethernet frame for external trigger event"), 1100u);
    for (std::size_t i = 1; i < mSends.size(); ++i) {
        ASSERT_EQ(mSends[i].frames, 1u) << i;
        const std::int64_t late = mSends[i].time - mSends[0].time - static_cast<std::int64_t>(i) * cSpacing;
        ASSERT_GE(late, 0) << i;
        ASSERT_LE(late, 1) << i;
    }
}

TEST_F(PrecisePcapNgReplayTest, PassesAre100MsApart) {
    mLoopMode = true;
    mFrameCount = 3;
    WriteFrames({0, 1'234});
    mOnSend = [&] {
        if (mSends.size() == 5) {
            mClock.AllowSleeps(0);
        }
    };
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    mReader.StopFileReader();
    EXPECT_THAT(mSends, ElementsAre(Send{0, 1}, Send{1'234, 1}, Send{101'234, 1}, Send{102'468, 1},
                                    Send{202'468, 1}));
}

// As soon as without precise timing.
TEST_F(PrecisePcapNgReplayTest, AStopIsLookedForEvery10Ms) {
    WriteFrames({0, 3'600'000'000});
    mClock.AllowSleeps(58 + 3); // 30 ms behind the first frame
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mClock.StoodStill() > 1; }));
    EXPECT_EQ(mClock.Now() - VirtualClock::cStart, std::chrono::milliseconds(530));
    mReader.StopFileReader();
    EXPECT_THAT(mSends, ElementsAre(Send{0, 1}));
}

TEST_F(PrecisePcapNgReplayTest, AFailureToSendEndsTheReplay) {
    mFake.Queue(Qbx::SendRawFrames, {KESTATUS_SUCCESS, KESTATUS_DEVICE_REMOVED});
    WriteFrames({0, 10, 20});
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return mReader.IsInErrorState(); }));
    mReader.StopFileReader();
    EXPECT_EQ(mReader.FailureStatus(), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(Stats().errSendFramesFailed, 1u);
}

} // namespace
