// Submitting and sending: lengths, the batch, waiting for room in it, closing.
#include <algorithm>

#include "api/ConformanceFixture.h"

namespace testsupport {

TEST_P(TransmitConformance, Lengths) {
    const QBXDeviceHandle device = OpenTx();
    struct Row {
        std::uint32_t length;
        KESTATUS check;
        KESTATUS plain;
        KESTATUS tagged;
    };
    constexpr KESTATUS cOk = KESTATUS_SUCCESS;
    constexpr KESTATUS cBad = KESTATUS_INVALID_LENGTH;
    for (const Row& row : {
             Row{.length = 0, .check = cBad, .plain = cBad, .tagged = cBad},
             Row{.length = 1, .check = cBad, .plain = cBad, .tagged = cBad},
             Row{.length = 13, .check = cBad, .plain = cBad, .tagged = cBad},
             Row{.length = 14, .check = cOk, .plain = cOk, .tagged = cOk},
             Row{.length = 60, .check = cOk, .plain = cOk, .tagged = cOk},
             Row{.length = 1513, .check = cOk, .plain = cOk, .tagged = cOk},
             Row{.length = 1514, .check = cOk, .plain = cOk, .tagged = cOk},
             Row{.length = 1515, .check = cOk, .plain = cBad, .tagged = cOk},
             Row{.length = 1518, .check = cOk, .plain = cBad, .tagged = cOk},
             Row{.length = 1519, .check = cBad, .plain = cBad, .tagged = cBad},
             Row{.length = 9000, .check = cBad, .plain = cBad, .tagged = cBad},
         }) {
        EXPECT_EQ(QBX_CheckSubmitRawFrame(device, row.length), row.check) << row.length;
        const Bytes plain = MakeFrame(std::max(row.length, 14u), 1);
        const Bytes tagged = MakeTaggedFrame(std::max(row.length, 18u), 1);
        EXPECT_EQ(QBX_SubmitRawFrame(device, plain.data(), row.length, nullptr), row.plain) << row.length;
        EXPECT_EQ(QBX_SubmitRawFrame(device, tagged.data(), row.length, nullptr), row.tagged) << row.length;
    }
    EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 0xFFFFFFFF), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(Submit(device, MakeTaggedFrame(1518, 1, {0x88, 0xA8, 0, 1})), KESTATUS_INVALID_LENGTH)
        << "only tag 0x8100 may be longer";
}

TEST_P(TransmitConformance, NothingGoesOutBeforeItIsSent) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_NO_DATA);
    ASSERT_EQ(Submit(tx, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 50), KESTATUS_TIMEOUT);
    EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_NO_DATA);
    ExpectNext(rx, MakeFrame(60, 1), 0);
}

TEST_P(TransmitConformance, AFullBatchHasNoSpaceUntilItIsSent) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    std::uint32_t sequence = 0;
    for (int round = 0; round < 2; ++round) {
        for (std::uint32_t number = 0; number < cBatchFrames; ++number) {
            ASSERT_EQ(QBX_CheckSubmitRawFrame(tx, 1514), KESTATUS_SUCCESS) << number;
            ASSERT_EQ(Submit(tx, MakeFrame(1514, number)), KESTATUS_SUCCESS) << number;
        }
        EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 60), KESTATUS_NO_SPACE);
        EXPECT_EQ(Submit(tx, MakeFrame(60, 1)), KESTATUS_NO_SPACE);
        EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 60), KESTATUS_SUCCESS);
        for (std::uint32_t number = 0; number < cBatchFrames; ++number) {
            ExpectNext(rx, MakeFrame(1514, number), sequence++);
        }
    }
}

TEST_P(TransmitConformance, TheLengthIsLookedAtBeforeTheSpace) {
    const QBXDeviceHandle tx = OpenTx();
    SubmitBatch(tx);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 13), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 1518), KESTATUS_NO_SPACE) << "with a tag it could be sent";
    EXPECT_EQ(QBX_CheckSubmitRawFrame(tx, 1519), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(Submit(tx, MakeFrame(1515, 1)), KESTATUS_INVALID_LENGTH) << "it has no tag";
    EXPECT_EQ(Submit(tx, MakeTaggedFrame(1518, 1)), KESTATUS_NO_SPACE);
}

TEST_P(TransmitConformance, WaitingForRoomInTheBatch) {
    const QBXDeviceHandle device = OpenTx();
    for (const std::int32_t timeout : {0, 100, -1}) {
        EXPECT_EQ(QBX_WaitForTxResources(device, 0, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames + 1, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, 0xFFFFFFFF, timeout), KESTATUS_INVALID_PARAMETER);
        EXPECT_EQ(QBX_WaitForTxResources(device, 1, timeout), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames, timeout), KESTATUS_SUCCESS);
    }
    ASSERT_EQ(Submit(device, MakeFrame(60, 1)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForTxResources(device, cBatchFrames - 1, 0), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS) << "a wait that needs no room sends nothing";
    for (const std::uint32_t wanted : {1u, cBatchFrames}) {
        SubmitBatch(device);
        EXPECT_EQ(QBX_WaitForTxResources(device, wanted, 0), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_NO_DATA) << "it made room by sending";
    }
}

TEST_P(TransmitConformance, ClosingSendsWhatWasSubmitted) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    ASSERT_EQ(Submit(tx, MakeFrame(100, 1)), KESTATUS_SUCCESS);
    ASSERT_EQ(Submit(tx, MakeFrame(101, 2)), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    ExpectNext(rx, MakeFrame(100, 1), 0);
    ExpectNext(rx, MakeFrame(101, 2), 1);
}

} // namespace testsupport
