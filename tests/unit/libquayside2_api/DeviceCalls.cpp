#include "DeviceCalls.h"

#include <gtest/gtest.h>

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace testsupport {

namespace {

std::uint64_t ReadClock(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

// A name that no other test uses, at the same time or later.
std::string MakeSegmentName() {
    static std::atomic<unsigned> sCount{0};
    return "unit-" + std::to_string(getpid()) + "-" + std::to_string(sCount++);
}

} // namespace

Bytes MakeFrame(std::size_t length, std::uint32_t number) {
    Bytes frame(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame[i] = static_cast<std::uint8_t>(number * 31u + i * 7u);
    }
    if (length >= 14) {
        frame[0] = 0x02;
        frame[6] = 0x02;
        frame[12] = 0x88;
        frame[13] = 0xB5;
    }
    return frame;
}

Bytes MakeTaggedFrame(std::size_t length, std::uint32_t number, const Bytes& tag) {
    Bytes frame = MakeFrame(length - tag.size(), number);
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

KESTATUS Submit(QBXDeviceHandle device, const Bytes& frame) {
    return QBX_SubmitRawFrame(device, frame.data(), static_cast<std::uint32_t>(frame.size()), nullptr);
}

void Send(QBXDeviceHandle device, const Bytes& frame) {
    ASSERT_EQ(Submit(device, frame), KESTATUS_SUCCESS);
    ASSERT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
}

void SubmitBatch(QBXDeviceHandle device) {
    for (std::uint32_t number = 0; number < cBatchFrames; ++number) {
        ASSERT_EQ(Submit(device, MakeFrame(60, number)), KESTATUS_SUCCESS) << number;
    }
}

std::optional<Item> TakeItem(QBXDeviceHandle device, std::size_t maxFrameBytes) {
    Bytes buffer(QBX_RAW_HEADER_2_SIZE + maxFrameBytes);
    std::uint32_t length = 0;
    Item item;
    if (QBX_GetReceivedRawFrame(device, &item.type, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                                &length) != KESTATUS_SUCCESS ||
        length < QBX_RAW_HEADER_2_SIZE) {
        return std::nullopt;
    }
    std::uint64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    std::memcpy(&seconds, buffer.data() + QBX_RAW_HEADER_2_SECONDS_OFFSET, 8);
    std::memcpy(&nanoseconds, buffer.data() + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, 4);
    std::memcpy(&item.sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
    EXPECT_LT(nanoseconds, 1'000'000'000u);
    item.time = seconds * 1'000'000'000 + nanoseconds;
    item.frame.assign(buffer.begin() + QBX_RAW_HEADER_2_SIZE, buffer.begin() + length);
    return item;
}

// A report of lost frames is not waited for, so taking comes first.
std::optional<Item> ReceiveItem(QBXDeviceHandle device, std::size_t maxFrameBytes) {
    std::optional<Item> item = TakeItem(device, maxFrameBytes);
    if (!item && QBX_WaitForRawFrame(device, cGenerousTime) == KESTATUS_SUCCESS) {
        item = TakeItem(device, maxFrameBytes);
    }
    return item;
}

std::optional<Item> Receive(QBXDeviceHandle device, std::size_t maxFrameBytes) {
    for (;;) {
        std::optional<Item> item = ReceiveItem(device, maxFrameBytes);
        if (!item || item->type == QBXRawFrameType_Data) {
            return item;
        }
    }
}

KESTATUS Get(QBXDeviceHandle device) {
    Bytes buffer(2048);
    std::uint32_t length = 0;
    return QBX_GetReceivedRawFrame(device, nullptr, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                                   &length);
}

std::uint64_t LostFrames(QBXDeviceHandle device) {
    std::uint64_t lost = UINT64_MAX;
    std::uint32_t size = 0;
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_LOST_FRAMES, &lost, sizeof lost, &size),
              KESTATUS_SUCCESS);
    EXPECT_EQ(size, sizeof lost);
    return lost;
}

std::string ReadText(QBXDeviceHandle device, std::uint32_t property) {
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(device, property, text, sizeof text), KESTATUS_SUCCESS);
    return text;
}

std::uint64_t TimeOfDayNow() {
    return ReadClock(CLOCK_REALTIME);
}

std::uint64_t ProcessorTime() {
    return ReadClock(CLOCK_PROCESS_CPUTIME_ID);
}

KESTATUS Open(std::uint32_t index, Use use, QBXDeviceHandle& device) {
    const Enumeration list;
    EXPECT_EQ(list.status, KESTATUS_SUCCESS);
    KESTATUS st = KESTATUS_FAILED;
    switch (use) {
    case Use::Control:
        st = QBX_OpenControlDevice(list.handle, index, &device);
        break;
    case Use::Tx:
        st = QBX_OpenRawTxDevice(list.handle, index, 0, QBXRawHeaderType_None, &device, 0);
        break;
    case Use::Rx:
        st = QBX_OpenRawRxDevice(list.handle, index, 0, QBXRawHeaderType_2, &device, 0);
        break;
    case Use::BareRx:
        st = QBX_OpenRawRxDevice(list.handle, index, 0, QBXRawHeaderType_None, &device, 0);
        break;
    }
    EXPECT_EQ(st == KESTATUS_SUCCESS, device != 0);
    return st;
}

KESTATUS TryOpen(std::uint32_t index, Use use) {
    QBXDeviceHandle device = 0;
    const KESTATUS st = Open(index, use, device);
    QBX_CloseDevice(device);
    return st;
}

OpenDevices::~OpenDevices() {
    for (const QBXDeviceHandle device : mDevices) {
        QBX_CloseDevice(device);
    }
}

QBXDeviceHandle OpenDevices::Open(std::uint32_t index, Use use) {
    QBXDeviceHandle device = 0;
    EXPECT_EQ(testsupport::Open(index, use, device), KESTATUS_SUCCESS);
    mDevices.push_back(device);
    return device;
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

OwnSegment::OwnSegment() : mName(MakeSegmentName()), mChange("QUAYSIDE2_SEGMENT", mName.c_str()) {}

OwnSegment::~OwnSegment() {
    unlink(FilePath().c_str());
}

std::string OwnSegment::FilePath() const {
    return "/dev/shm/quayside2-" + std::to_string(geteuid()) + "-" + mName;
}

} // namespace testsupport
