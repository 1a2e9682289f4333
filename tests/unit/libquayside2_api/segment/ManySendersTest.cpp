// Three senders flat out, and a receiver that stalls now and then until they have sent more than the rings
// hold.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "SanitizedBuild.h"
#include "SegmentFixture.h"
#include "lane_frame.h"

namespace {

using namespace testsupport;

class ManySendersTest : public SegmentFixture {
protected:
    // Of all senders together; another number for long runs.
    static std::uint32_t FrameCount() {
        const char* const set = std::getenv("FLOWLANE_STRESS_FRAMES");
        return set ? static_cast<std::uint32_t>(std::strtoul(set, nullptr, 10))
                   : (cSanitizedBuild ? 450000 : 900000);
    }
    void SendNumbered(QBXDeviceHandle tx, std::uint32_t run, std::uint32_t count) {
        for (std::uint32_t number = 0; number < count; ++number) {
            std::uint8_t frame[LANE_FRAME_MAX];
            const std::uint32_t length = LANE_FRAME_MIN + LaneFrameLength(run, number) % 100;
            LaneFrameFill(frame, length, run, number);
            ASSERT_EQ(QBX_SubmitRawFrame(tx, frame, length, nullptr), KESTATUS_SUCCESS);
            if (number % 64 == run || number % 64 == 63 || number == count - 1) {
                ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
            }
            mSent.fetch_add(1, std::memory_order_relaxed);
        }
    }
    // Reads nothing for a while; the rings hold at most 44000 frames each.
    void Stall() {
        const std::uint64_t until = mSent.load() + 140000;
        while (mSent.load() < until && mSending.load() != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    struct Seen {
        std::uint64_t frames = 0;
        std::uint64_t missing = 0; // by the sequence numbers
        std::uint64_t idle = 0;
        std::uint64_t wentBack = 0;
        std::uint64_t wrong = 0; // torn, or out of its sender's order
    };
    void Take(const Item& item, Seen& seen) {
        seen.missing += seen.frames + seen.idle != 0 ? item.sequence - mSequence - 1 : 0;
        mSequence = item.sequence;
        seen.wentBack += item.time < mTime ? 1 : 0;
        mTime = item.time;
        if (item.type == QBXRawFrameType_Idle) {
            ++seen.idle;
            return;
        }
        ++seen.frames;
        std::uint32_t run = 0;
        std::uint32_t number = 0;
        const auto length = static_cast<std::uint32_t>(item.frame.size());
        const bool isGood = LaneFrameCheck(item.frame.data(), length, &run, &number) != 0 && run >= 1 &&
                            run <= 3 && number >= mNext[run];
        seen.wrong += isGood ? 0 : 1;
        mNext[run % 4] = number + 1;
    }

    std::atomic<int> mSending{3};
    std::atomic<std::uint64_t> mSent{0};
    std::uint32_t mSequence = 0; // of the last item
    std::uint64_t mTime = 0;     // of the last item
    std::uint32_t mNext[4] = {}; // number of each sender's next frame, if none is lost
};

TEST_F(ManySendersTest, TakenAndToldLostIsSentAndNoTimeGoesBack) {
    const std::uint32_t framesEach = FrameCount() / 3;
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    std::vector<std::jthread> senders;
    for (unsigned lane = 1; lane <= 3; ++lane) {
        senders.emplace_back([this, tx = OpenTx(lane), lane, framesEach] {
            SendNumbered(tx, lane, framesEach);
            --mSending;
        });
    }
    Seen seen;
    std::uint64_t nextStall = 0;
    for (;;) {
        if (seen.frames >= nextStall) {
            Stall();
            nextStall = seen.frames + framesEach / 2;
        }
        const bool isLast = mSending.load() == 0;
        const auto item = TakeItem(rx);
        if (item) {
            Take(*item, seen);
        } else if (isLast) {
            break;
        } else {
            QBX_WaitForRawFrame(rx, 100);
        }
    }
    const std::uint64_t lost = LostFrames(rx);
    std::printf("%llu taken, %llu lost, %llu idle items\n", static_cast<unsigned long long>(seen.frames),
                static_cast<unsigned long long>(lost), static_cast<unsigned long long>(seen.idle));
    EXPECT_EQ(seen.wentBack, 0u);
    EXPECT_EQ(seen.wrong, 0u);
    EXPECT_EQ(seen.missing, lost);
    EXPECT_EQ(seen.frames + lost, 3ull * framesEach);
    EXPECT_GT(lost, 0u) << "the receiver did not stall";
    EXPECT_LE(seen.idle, 1u) << "only before the first frame";
}

} // namespace
