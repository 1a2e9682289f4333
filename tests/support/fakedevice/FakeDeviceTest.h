// The fixture of tests that need an opened device: the fake device, and a handle opened on its first
// instance.
#ifndef FLOWLANE_TESTS_FAKEDEVICETEST_H
#define FLOWLANE_TESTS_FAKEDEVICETEST_H

#include <gtest/gtest.h>

#include "FakeDevice.h"
#include "device/QuaysideDevice.h"

namespace testsupport {

class FakeDeviceTest : public testing::Test {
protected:
    // No device is open yet.
    FakeDeviceTest() { mFake.Reset(); }

    // Each resets the fake, then opens the device for sending or for receiving. Script the fake afterwards.
    void OpenToSend() {
        ResetAndEnumerate();
        ASSERT_EQ(mDevice.OpenRawTxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    }
    void OpenToReceive(QBXRawHeaderType headerType = QBXRawHeaderType_None) {
        ResetAndEnumerate();
        ASSERT_EQ(mDevice.OpenRawRxDevice(mEnumerator, 0, 0, headerType, 0), KESTATUS_SUCCESS);
    }

    FakeDevice& mFake = FakeDevice::Instance();
    flowlane::QuaysideEnumerator mEnumerator;
    flowlane::QuaysideDevice mDevice;

private:
    void ResetAndEnumerate() {
        mFake.Reset();
        unsigned count = 0;
        EXPECT_EQ(mEnumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    }
};

} // namespace testsupport

#endif
