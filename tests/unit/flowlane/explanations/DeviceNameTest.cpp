// The name of an opened device: what the device library says, or nothing.

#include "explanations/DeviceName.h"

#include <gtest/gtest.h>

#include "FakeDevice.h"

using namespace flowlane;
using namespace testsupport;

namespace {

class DeviceNameTest : public testing::Test {
protected:
    DeviceNameTest() {
        mFake.Reset();
        FakeInstance instance;
        instance.friendlyName = "eth0";
        mFake.SetInstances({instance});
        unsigned count = 0;
        EXPECT_EQ(mEnumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        EXPECT_EQ(mDevice.OpenRawTxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    }

    FakeDevice& mFake = FakeDevice::Instance();
    QuaysideEnumerator mEnumerator;
    QuaysideDevice mDevice;
};

} // namespace

TEST_F(DeviceNameTest, IsTheFriendlyName) {
    EXPECT_EQ(DeviceName(mDevice), "eth0");
}

TEST_F(DeviceNameTest, IsEmptyWhenTheLibraryDoesNotTellIt) {
    mFake.SetDefault(Qbx::GetDevicePropertyString, KESTATUS_NOT_FOUND);
    EXPECT_EQ(DeviceName(mDevice), "");
    EXPECT_EQ(DeviceName(QuaysideDevice()), "");
}

TEST_F(DeviceNameTest, BeginsASentence) {
    EXPECT_EQ(DeviceSubject(mDevice), "Device 'eth0'");
    EXPECT_EQ(DeviceSubject(QuaysideDevice()), "The device");
}
