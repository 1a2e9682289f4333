#include "api/ConformanceFixture.h"

namespace testsupport {

QBXDeviceHandle ConformanceFixture::OpenEnabledRx(Use use) {
    const QBXDeviceHandle device = OpenRx(use);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    return device;
}

void ConformanceFixture::ExpectNext(QBXDeviceHandle rx, const Bytes& frame, std::uint32_t sequence) {
    const auto received = ReceiveItem(rx);
    ASSERT_TRUE(received) << "no frame with number " << sequence;
    EXPECT_EQ(received->type, QBXRawFrameType_Data);
    EXPECT_EQ(received->frame, frame);
    EXPECT_EQ(received->sequence, sequence);
}

void ConformanceFixture::ExpectNothingElse(QBXDeviceHandle tx, QBXDeviceHandle rx, std::uint32_t sequence) {
    const Bytes frame = MakeFrame(60, 0xE0);
    Send(tx, frame);
    ExpectNext(rx, frame, sequence);
}

} // namespace testsupport
