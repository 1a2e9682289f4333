// Receiving: frames as they were sent, the receive header, buffers, enabling and disabling.
#include <algorithm>

#include "api/ConformanceFixture.h"

namespace testsupport {

// Sends a batch at a time, so that a kind that hands frames over late does not take long.
TEST_P(ReceiveConformance, FramesOfEveryLengthArriveUnchangedAndInOrder) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    std::uint32_t sequence = 0;
    for (std::uint32_t first = 14; first <= 1514; first += cBatchFrames) {
        const std::uint32_t end = std::min(first + cBatchFrames, 1515u);
        for (std::uint32_t length = first; length < end; ++length) {
            ASSERT_EQ(Submit(tx, MakeFrame(length, length)), KESTATUS_SUCCESS) << length;
        }
        ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
        for (std::uint32_t length = first; length < end; ++length) {
            ExpectNext(rx, MakeFrame(length, length), sequence++);
        }
        ASSERT_FALSE(HasFailure()) << "of the batch from length " << first << " on";
    }
    Send(tx, MakeTaggedFrame(1518, 3));
    ExpectNext(rx, MakeTaggedFrame(1518, 3), sequence);
}

TEST_P(ReceiveConformance, TheHeaderHasTheTimeOfSendingAndNumbersFromZero) {
    constexpr std::uint32_t cFrames = 20;
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    std::uint64_t before[cFrames] = {};
    std::uint64_t after[cFrames] = {};
    for (std::uint32_t number = 0; number < cFrames; ++number) {
        ASSERT_EQ(Submit(tx, MakeFrame(64, number)), KESTATUS_SUCCESS);
        before[number] = TimeOfDayNow();
        ASSERT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
        after[number] = TimeOfDayNow();
    }
    for (std::uint32_t number = 0; number < cFrames; ++number) {
        const auto received = Receive(rx);
        ASSERT_TRUE(received) << number;
        EXPECT_EQ(received->frame, MakeFrame(64, number));
        EXPECT_EQ(received->sequence, number);
        EXPECT_GE(received->time, before[number]) << "the time of sending, not of submitting";
        EXPECT_LE(received->time, after[number]) << "the time of sending, not of reading";
    }
}

TEST_P(ReceiveConformance, WithoutHeaderTheBufferHoldsTheBareFrame) {
    const QBXDeviceHandle rx = OpenEnabledRx(Use::BareRx);
    const QBXDeviceHandle tx = OpenTx();
    Send(tx, MakeTaggedFrame(1518, 8));
    ASSERT_EQ(QBX_WaitForRawFrame(rx, cGenerousTime), KESTATUS_SUCCESS);
    Bytes buffer(1518);
    std::uint32_t length = 0;
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    ASSERT_EQ(QBX_GetReceivedRawFrame(rx, &type, buffer.data(), 1518, &length), KESTATUS_SUCCESS);
    EXPECT_EQ(type, QBXRawFrameType_Data);
    EXPECT_EQ(length, 1518u);
    EXPECT_EQ(buffer, MakeTaggedFrame(1518, 8));
    length = 77;
    EXPECT_EQ(QBX_GetReceivedRawFrame(rx, &type, buffer.data(), 1518, &length), KESTATUS_NO_DATA);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(type, QBXRawFrameType_Unknown);
}

TEST_P(ReceiveConformance, ABufferWithoutRoomForTheHeaderTakesNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    Send(tx, MakeFrame(60, 1));
    ASSERT_EQ(QBX_WaitForRawFrame(rx, cGenerousTime), KESTATUS_SUCCESS);
    std::uint8_t buffer[QBX_RAW_HEADER_2_SIZE];
    std::uint32_t length = 0;
    for (const std::uint32_t size : {0u, 1u, QBX_RAW_HEADER_2_SIZE - 1u}) {
        EXPECT_EQ(QBX_GetReceivedRawFrame(rx, nullptr, buffer, size, &length), KESTATUS_BUFFER_TOO_SMALL);
    }
    ExpectNext(rx, MakeFrame(60, 1), 0);
}

TEST_P(ReceiveConformance, NothingIsWrittenBehindTheBuffer) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    Send(tx, MakeTaggedFrame(60, 1));
    ASSERT_EQ(QBX_WaitForRawFrame(rx, cGenerousTime), KESTATUS_SUCCESS);
    constexpr std::uint32_t cSize = QBX_RAW_HEADER_2_SIZE + 60;
    Bytes buffer(cSize + 4, 0xEE);
    std::uint32_t length = 0;
    ASSERT_EQ(QBX_GetReceivedRawFrame(rx, nullptr, buffer.data(), cSize, &length), KESTATUS_SUCCESS);
    EXPECT_EQ(length, cSize);
    EXPECT_EQ(Bytes(buffer.end() - 4, buffer.end()), Bytes(4, 0xEE));
}

TEST_P(ReceiveConformance, NothingIsDeliveredBeforeEnabling) {
    const QBXDeviceHandle tx = OpenTx();
    Send(tx, MakeFrame(60, 1));
    const QBXDeviceHandle rx = OpenRx();
    Send(tx, MakeFrame(60, 2));
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 1000), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, -1), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(Get(rx), KESTATUS_NOT_ENABLED);
    EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    EXPECT_EQ(Get(rx), KESTATUS_NO_DATA);
    ExpectNothingElse(tx, rx, 0);
}

TEST_P(ReceiveConformance, DisablingDiscardsAndEnablingStartsAnew) {
    const QBXDeviceHandle rx = OpenRx();
    const QBXDeviceHandle tx = OpenTx();
    for (std::uint32_t round = 0; round < 3; ++round) {
        EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
        EXPECT_EQ(Get(rx), KESTATUS_NO_DATA);
        EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS) << "enabling twice";
        Send(tx, MakeFrame(60, 1));
        EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS) << "without effect on what has come";
        ExpectNext(rx, MakeFrame(60, 1), 0);
        Send(tx, MakeFrame(60, 2)); // not taken when reception ends
        EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS) << "disabling twice";
        Send(tx, MakeFrame(60, 3));
        EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_NOT_ENABLED);
        EXPECT_EQ(QBX_WaitForRawFrame(rx, 1000), KESTATUS_NOT_ENABLED);
        EXPECT_EQ(Get(rx), KESTATUS_NOT_ENABLED);
    }
}

} // namespace testsupport
