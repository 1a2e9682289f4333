#include "SegmentFixture.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

Bytes MakeFrame(std::size_t length, std::uint8_t tag) {
    Bytes frame(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame[i] = static_cast<std::uint8_t>(tag * 31u + i * 7u);
    }
    if (length >= 14) {
        frame[12] = 0x88;
        frame[13] = 0xB5;
    }
    return frame;
}

SegmentFixture::SegmentFixture() {
    static std::atomic<unsigned> sCount{0};
    mName = "unit-" + std::to_string(getpid()) + "-" + std::to_string(sCount++);
    setenv("QUAYSIDE2_SEGMENT", mName.c_str(), 1);
    setenv("QUAYSIDE2_DEVICES", "lane-1,lane-2,lane-3,lane-4", 1);
}

SegmentFixture::~SegmentFixture() {
    for (const QBXDeviceHandle device : mDevices) {
        QBX_CloseDevice(device);
    }
    unlink(SegmentFilePath().c_str());
    unsetenv("QUAYSIDE2_SEGMENT");
    unsetenv("QUAYSIDE2_DEVICES");
}

std::string SegmentFixture::SegmentFilePath() const {
    return "/dev/shm/quayside2-" + std::to_string(geteuid()) + "-" + mName;
}

QBXDeviceHandle SegmentFixture::Keep(QBXDeviceHandle device) {
    mDevices.push_back(device);
    return device;
}

QBXDeviceHandle SegmentFixture::OpenTx(unsigned lane) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, lane - 1, 0, QBXRawHeaderType_None, &device, 0),
              KESTATUS_SUCCESS);
    return Keep(device);
}

QBXDeviceHandle SegmentFixture::OpenRx(unsigned lane, QBXRawHeaderType type) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, lane - 1, 0, type, &device, 0), KESTATUS_SUCCESS);
    return Keep(device);
}

QBXDeviceHandle SegmentFixture::OpenEnabledRx(unsigned lane, QBXRawHeaderType type) {
    const QBXDeviceHandle device = OpenRx(lane, type);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    return device;
}

QBXDeviceHandle SegmentFixture::OpenControl(unsigned lane) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenControlDevice(list.handle, lane - 1, &device), KESTATUS_SUCCESS);
    return Keep(device);
}

KESTATUS SegmentFixture::TryOpenTx(unsigned lane) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    const KESTATUS st = QBX_OpenRawTxDevice(list.handle, lane - 1, 0, QBXRawHeaderType_None, &device, 0);
    EXPECT_EQ(st == KESTATUS_SUCCESS, device != 0);
    QBX_CloseDevice(device);
    return st;
}

KESTATUS SegmentFixture::TryOpenRx(unsigned lane) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    const KESTATUS st = QBX_OpenRawRxDevice(list.handle, lane - 1, 0, QBXRawHeaderType_2, &device, 0);
    EXPECT_EQ(st == KESTATUS_SUCCESS, device != 0);
    QBX_CloseDevice(device);
    return st;
}

KESTATUS SegmentFixture::TryOpenControl(unsigned lane) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    const KESTATUS st = QBX_OpenControlDevice(list.handle, lane - 1, &device);
    EXPECT_EQ(st == KESTATUS_SUCCESS, device != 0);
    QBX_CloseDevice(device);
    return st;
}

void SegmentFixture::Send(QBXDeviceHandle device, const Bytes& frame) {
    ASSERT_EQ(QBX_SubmitRawFrame(device, frame.data(), static_cast<std::uint32_t>(frame.size()), nullptr),
              KESTATUS_SUCCESS);
    ASSERT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
}

std::optional<Received> SegmentFixture::Receive(QBXDeviceHandle device) {
    for (;;) {
        if (QBX_WaitForRawFrame(device, 10000) != KESTATUS_SUCCESS) {
            return std::nullopt;
        }
        const std::optional<Received> received = TakeItem(device);
        if (!received || received->type == QBXRawFrameType_Data) {
            return received;
        }
    }
}

std::optional<Received> SegmentFixture::TakeItem(QBXDeviceHandle device) {
    Bytes buffer(2048);
    std::uint32_t length = 0;
    Received received;
    if (QBX_GetReceivedRawFrame(device, &received.type, buffer.data(),
                                static_cast<std::uint32_t>(buffer.size()), &length) != KESTATUS_SUCCESS ||
        length < QBX_RAW_HEADER_2_SIZE) {
        return std::nullopt;
    }
    std::memcpy(&received.seconds, buffer.data() + QBX_RAW_HEADER_2_SECONDS_OFFSET, 8);
    std::memcpy(&received.nanoseconds, buffer.data() + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, 4);
    std::memcpy(&received.sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
    received.frame.assign(buffer.begin() + QBX_RAW_HEADER_2_SIZE, buffer.begin() + length);
    return received;
}

std::uint64_t SegmentFixture::LostFrames(QBXDeviceHandle device) {
    std::uint64_t count = 0;
    std::uint32_t size = 0;
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_LOST_FRAMES, &count, sizeof count, &size),
              KESTATUS_SUCCESS);
    EXPECT_EQ(size, sizeof count);
    return count;
}

KESTATUS SegmentFixture::Get(QBXDeviceHandle device) {
    Bytes buffer(2048);
    std::uint32_t length = 0;
    return QBX_GetReceivedRawFrame(device, nullptr, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                                   &length);
}

EnvironmentChange::EnvironmentChange(const char* name, const char* value) : mName(name) {
    if (const char* const old = std::getenv(name)) {
        mOld = old;
    }
    if (value) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

EnvironmentChange::~EnvironmentChange() {
    if (mOld) {
        setenv(mName, mOld->c_str(), 1);
    } else {
        unsetenv(mName);
    }
}
