// Losses that a receiver is told of. Frames that are longer than the buffer are missing in the same way for
// every kind of device.
#include "api/ConformanceFixture.h"

namespace testsupport {

namespace {

// Sends frames of these lengths, one at a time.
void SendLengths(QBXDeviceHandle tx, std::initializer_list<std::uint32_t> lengths) {
    for (const std::uint32_t length : lengths) {
        Send(tx, MakeFrame(length, length));
    }
}

// Takes items into a buffer for frames of 60 bytes until a frame of the last length has come.
std::vector<Item> TakeUntil(QBXDeviceHandle rx, std::uint32_t lastLength) {
    std::vector<Item> items;
    while (items.empty() || items.back().frame.size() != lastLength) {
        const auto item = ReceiveItem(rx, 60);
        if (!item) {
            ADD_FAILURE() << "no item after " << items.size();
            break;
        }
        items.push_back(*item);
    }
    return items;
}

} // namespace

// A kind that hands frames over late may report a loss before the frame behind it is there. So the idle items
// may differ, but not the numbers that they leave for the frames.
TEST_P(LossConformance, FramesLongerThanTheBufferAreLeftOutAndCounted) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    SendLengths(tx, {59, 61, 58, 100, 1514, 57});
    Send(tx, MakeTaggedFrame(61, 1));
    SendLengths(tx, {56});
    const std::vector<Item> items = TakeUntil(rx, 56);
    std::vector<std::size_t> lengths;
    std::uint32_t idles = 0;
    std::uint32_t missing = 0;
    std::uint32_t next = 0;
    for (const Item& item : items) {
        missing += item.sequence - next;
        next = item.sequence + 1;
        if (item.type == QBXRawFrameType_Idle) {
            ++idles;
            EXPECT_GT(missing, 0u) << "a report of nothing";
            EXPECT_TRUE(item.frame.empty());
        } else {
            lengths.push_back(item.frame.size());
            EXPECT_EQ(item.frame,
                      MakeFrame(item.frame.size(), static_cast<std::uint32_t>(item.frame.size())));
        }
    }
    EXPECT_EQ(lengths, (std::vector<std::size_t>{59, 58, 57, 56}));
    EXPECT_EQ(missing, 4u);
    EXPECT_EQ(next, 8u + idles);
    EXPECT_EQ(LostFrames(rx), 0u) << "reading was not too slow for them";
}

// A reader compares with the first number that it gets, so that one must come before the gap.
TEST_P(LossConformance, ALossBeforeTheFirstFrameIsReported) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    SendLengths(tx, {61, 62, 60});
    const std::vector<Item> items = TakeUntil(rx, 60);
    ASSERT_GE(items.size(), 2u);
    EXPECT_EQ(items.front().type, QBXRawFrameType_Idle);
    EXPECT_EQ(items.front().sequence, 0u);
    EXPECT_TRUE(items.front().frame.empty());
    EXPECT_EQ(items.back().type, QBXRawFrameType_Data);
    EXPECT_EQ(items.back().sequence, 2u + items.size() - 1) << "two frames and the reports of them";
}

// Nothing follows that could show the loss, so a header alone does.
TEST_P(LossConformance, ALossAtTheEndIsReported) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    Send(tx, MakeFrame(60, 1));
    ExpectNext(rx, MakeFrame(60, 1), 0);
    SendLengths(tx, {61, 62});
    std::uint32_t sequence = 0;
    std::uint32_t reports = 0;
    while (sequence < 2 + reports) {
        const auto report = ReceiveItem(rx, 60);
        ASSERT_TRUE(report) << reports << " reports, the last one with number " << sequence;
        EXPECT_EQ(report->type, QBXRawFrameType_Idle);
        EXPECT_TRUE(report->frame.empty());
        EXPECT_GT(report->sequence, sequence + 1) << "a report of nothing";
        sequence = report->sequence;
        ++reports;
    }
    EXPECT_EQ(sequence, 2 + reports);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    ExpectNothingElse(tx, rx, sequence + 1);
}

TEST_P(LossConformance, NothingIsLostWithoutAReason) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    for (std::uint32_t number = 0; number < 10; ++number) {
        Send(tx, MakeFrame(60, number));
        ExpectNext(rx, MakeFrame(60, number), number);
    }
    EXPECT_EQ(LostFrames(rx), 0u);
    EXPECT_EQ(LostFrames(tx), 0u);
}

} // namespace testsupport
