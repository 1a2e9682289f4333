// Whatever a lane loses shows, to the frame: as a gap in the sequence numbers and in
// QBX_PROPERTY_LOST_FRAMES.
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class LossTest : public SegmentFixture {
protected:
    // More than the ring holds. Nobody reads meanwhile, so some of it is lost.
    static constexpr std::uint32_t cFrames = 6400;
    static void SendTooMuch(QBXDeviceHandle tx) {
        const Bytes frame = MakeFrame(1514, 1);
        for (std::uint32_t i = 1; i <= cFrames; ++i) {
            ASSERT_EQ(QBX_SubmitRawFrame(tx, frame.data(), 1514, nullptr), KESTATUS_SUCCESS);
            if (i % 64 == 0) {
                ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
            }
        }
    }
    struct Counts {
        std::uint32_t frames = 0;
        std::uint32_t idle = 0;
        std::uint64_t missing = 0; // gaps between the numbers
    };
    static Counts TakeAll(QBXDeviceHandle rx) {
        Counts counts;
        std::optional<std::uint32_t> next;
        while (const auto item = TakeItem(rx)) {
            counts.missing += next ? item->sequence - *next : 0;
            next = item->sequence + 1;
            ++(item->type == QBXRawFrameType_Data ? counts.frames : counts.idle);
        }
        return counts;
    }
};

TEST_F(LossTest, BeforeTheFirstFrameThatIsTaken) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    SendTooMuch(tx);
    const auto first = TakeItem(rx);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->type, QBXRawFrameType_Idle) << "the number that later ones are compared with";
    EXPECT_EQ(first->sequence, 0u);
    EXPECT_TRUE(first->frame.empty());
    const auto second = TakeItem(rx);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->type, QBXRawFrameType_Data);
    EXPECT_GT(second->sequence, 1u);
    EXPECT_GE(second->time, first->time);
    const Counts rest = TakeAll(rx);
    EXPECT_EQ(rest.idle, 0u);
    EXPECT_EQ(rest.missing, 0u);
    EXPECT_EQ(second->sequence - 1 + 1 + rest.frames, cFrames);
    EXPECT_EQ(LostFrames(rx), second->sequence - 1);
}

TEST_F(LossTest, AfterAFrame) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    Send(tx, MakeFrame(60, 1));
    EXPECT_EQ(TakeItem(rx)->sequence, 0u);
    EXPECT_EQ(LostFrames(rx), 0u);
    SendTooMuch(tx);
    const auto next = TakeItem(rx);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, QBXRawFrameType_Data) << "it shows the loss itself";
    const std::uint32_t missing = next->sequence - 1;
    EXPECT_GT(missing, 0u);
    EXPECT_EQ(missing + 1 + TakeAll(rx).frames, cFrames);
    EXPECT_EQ(LostFrames(rx), missing);
}

TEST_F(LossTest, AddsUpOverEnablings) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    std::uint64_t missing = 0;
    for (int round = 0; round < 2; ++round) {
        SendTooMuch(tx);
        const Counts counts = TakeAll(rx);
        EXPECT_EQ(counts.frames + counts.missing, cFrames);
        EXPECT_EQ(counts.idle, 1u);
        missing += counts.missing;
        EXPECT_EQ(LostFrames(rx), missing);
        EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
    }
}

TEST_F(LossTest, OfAHandleWithoutHeaders) {
    const QBXDeviceHandle rx = OpenEnabledRx(2, Use::BareRx);
    const QBXDeviceHandle tx = OpenTx(1);
    SendTooMuch(tx);
    Bytes buffer(1514);
    std::uint32_t length = 0;
    std::uint32_t frames = 0;
    while (QBX_GetReceivedRawFrame(rx, nullptr, buffer.data(), 1514, &length) == KESTATUS_SUCCESS) {
        EXPECT_EQ(length, 1514u);
        ++frames;
    }
    EXPECT_EQ(frames + LostFrames(rx), cFrames);
    EXPECT_LT(frames, cFrames);
}

TEST_F(LossTest, SendersLoseNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    SendTooMuch(tx);
    EXPECT_EQ(LostFrames(tx), 0u);
    EXPECT_GT(TakeAll(rx).missing, 0u);
}

} // namespace
