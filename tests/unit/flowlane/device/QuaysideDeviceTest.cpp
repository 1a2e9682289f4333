// The wrappers of the device library: what they pass on, and what they close.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "FakeDevice.h"
#include "device/QuaysideDevice.h"

using namespace flowlane;
using namespace testsupport;
using testing::ElementsAre;

namespace {

class QuaysideDeviceTest : public testing::Test {
protected:
    QuaysideDeviceTest() {
        mFake.Reset();
        mFake.SetInstances(std::vector<FakeInstance>(3));
    }
    void Enumerate() {
        unsigned count = 0;
        ASSERT_EQ(mEnumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        ASSERT_EQ(count, 3u);
        mFake.ClearCalls();
    }

    FakeDevice& mFake = FakeDevice::Instance();
    QuaysideEnumerator mEnumerator;
};

} // namespace

// Other device libraries know the numbers, not the names.
TEST(QuaysideInterfaceTest, HasItsNumbers) {
    EXPECT_EQ(QBXRawHeaderType_None, 0u);
    EXPECT_EQ(QBXRawHeaderType_1, 1u);
    EXPECT_EQ(QBXRawHeaderType_2, 2u);
    EXPECT_EQ(QBXRawFrameType_Unknown, 0u);
    EXPECT_EQ(QBXRawFrameType_Data, 1u);
    EXPECT_EQ(QBXRawFrameType_Idle, 2u);
    EXPECT_EQ(QBXRawFrameType_ExternalTrigger, 3u);
    EXPECT_EQ(QBXDeviceType_any, -1);
    EXPECT_EQ(QBX_PROPERTY_FRIENDLY_NAME, 0x8118u);
    EXPECT_EQ(QBX_PROPERTY_PRODUCT_STRING, 0x0106u);
    EXPECT_EQ(QBX_PROPERTY_MAC_ADDRESS, 0x8110u);
    EXPECT_EQ(QBX_PROPERTY_STRING_SIZE, 256u);
    EXPECT_EQ(QBX_RAW_HEADER_2_SECONDS_OFFSET, 0u);
    EXPECT_EQ(QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, 8u);
    EXPECT_EQ(QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 12u);
    EXPECT_EQ(QBX_RAW_HEADER_2_SIZE, 16u);
    EXPECT_EQ(sizeof(QBXRawHeaderType), 4u);
    EXPECT_EQ(sizeof(QBXRawFrameType), 4u);
    EXPECT_EQ(sizeof(QBXDeviceType), 4u);
    EXPECT_EQ(sizeof(QBXEnumerationHandle), 4u);
    EXPECT_EQ(sizeof(QBXDeviceHandle), 4u);
}

TEST_F(QuaysideDeviceTest, EnumeratorOwnsItsHandle) {
    {
        QuaysideEnumerator enumerator;
        EXPECT_EQ(enumerator.Handle(), 0u);
        unsigned count = 0;
        EXPECT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        EXPECT_EQ(count, 3u);
        EXPECT_EQ(enumerator.Handle(), 1u);
        // A second list replaces the first one.
        EXPECT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        EXPECT_EQ(enumerator.Handle(), 2u);
    }
    EXPECT_THAT(mFake.Calls(), ElementsAre("EnumerateDevices(-1)", "CloseEnumeration(1)",
                                           "EnumerateDevices(-1)", "CloseEnumeration(2)"));
    EXPECT_EQ(mFake.OpenEnumerationCount(), 0u);
}

TEST_F(QuaysideDeviceTest, EnumeratorPassesStatusesOn) {
    {
        QuaysideEnumerator enumerator;
        unsigned count = 77;
        mFake.Queue(Qbx::EnumerateDevices, {KESTATUS_NO_RESOURCES});
        EXPECT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_NO_RESOURCES);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(enumerator.Handle(), 0u);
        EXPECT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
        mFake.Queue(Qbx::CloseEnumeration, {KESTATUS_FAILED});
        EXPECT_EQ(enumerator.CloseEnumeration(), KESTATUS_FAILED);
        EXPECT_EQ(enumerator.Handle(), 0u);
    }
    EXPECT_EQ(mFake.CallCount(Qbx::CloseEnumeration), 1u); // not again at the end
}

TEST_F(QuaysideDeviceTest, OpensClosesAndReplaces) {
    Enumerate();
    {
        QuaysideDevice device;
        EXPECT_EQ(device.Handle(), 0u);
        EXPECT_EQ(device.OpenControlDevice(mEnumerator, 2), KESTATUS_SUCCESS);
        EXPECT_EQ(device.Handle(), 101u);
        EXPECT_EQ(device.OpenRawTxDevice(mEnumerator, 1, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
        EXPECT_EQ(device.Handle(), 102u);
        EXPECT_EQ(device.OpenRawRxDevice(mEnumerator, 0, 5, QBXRawHeaderType_2, 6), KESTATUS_SUCCESS);
        EXPECT_EQ(device.CloseDevice(), KESTATUS_SUCCESS);
        EXPECT_EQ(device.Handle(), 0u);
        EXPECT_EQ(device.OpenControlDevice(mEnumerator, 0), KESTATUS_SUCCESS);
    }
    EXPECT_THAT(mFake.Calls(),
                ElementsAre("OpenControlDevice(1, 2)", "CloseDevice(101)", "OpenRawTxDevice(1, 1, 0, 0, 0)",
                            "CloseDevice(102)", "OpenRawRxDevice(1, 0, 5, 2, 6)", "CloseDevice(103)",
                            "OpenControlDevice(1, 0)", "CloseDevice(104)"));
    EXPECT_EQ(mFake.OpenDeviceCount(), 0u);
}

TEST_F(QuaysideDeviceTest, AFailedOpenHoldsNothing) {
    Enumerate();
    const std::pair<Qbx, std::function<KESTATUS(QuaysideDevice&)>> opens[] = {
        {Qbx::OpenControlDevice, [&](QuaysideDevice& d) { return d.OpenControlDevice(mEnumerator, 0); }},
        {Qbx::OpenRawTxDevice,
         [&](QuaysideDevice& d) { return d.OpenRawTxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0); }},
        {Qbx::OpenRawRxDevice,
         [&](QuaysideDevice& d) { return d.OpenRawRxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0); }},
    };
    for (const auto& [function, open] : opens) {
        SCOPED_TRACE(QbxName(function));
        QuaysideDevice device;
        mFake.Queue(function, {KESTATUS_SUCCESS, KESTATUS_IN_USE});
        EXPECT_EQ(open(device), KESTATUS_SUCCESS);
        EXPECT_EQ(open(device), KESTATUS_IN_USE);
        EXPECT_EQ(device.Handle(), 0u);
        EXPECT_EQ(mFake.OpenDeviceCount(), 0u);
    }
}

// Each operation: what it passes on, and that its status comes back as it is.
TEST_F(QuaysideDeviceTest, OperationsPassOnTheHandleAndTheStatus) {
    struct Case {
        Qbx function;
        std::function<KESTATUS(QuaysideDevice&)> call;
        const char* recorded;
    };
    std::uint8_t buffer[256];
    char text[256];
    unsigned length = 0;
    QBXRawFrameType type{};
    const Case cases[] = {
        {Qbx::GetDevicePropertyString,
         [&](QuaysideDevice& d) { return d.GetDevicePropertyString(0x8118, text, 256); },
         "GetDevicePropertyString(101, 33048, 256)"},
        {Qbx::GetDevicePropertyBinary,
         [&](QuaysideDevice& d) { return d.GetDevicePropertyBinary(0x8110, buffer, 6, &length); },
         "GetDevicePropertyBinary(101, 33040, 6)"},
        {Qbx::EnableRawRx, [](QuaysideDevice& d) { return d.EnableRawRx(); }, "EnableRawRx(101)"},
        {Qbx::WaitForRawFrame, [](QuaysideDevice& d) { return d.WaitForRawFrame(-1); },
         "WaitForRawFrame(101, -1)"},
        {Qbx::GetReceivedRawFrame,
         [&](QuaysideDevice& d) { return d.GetReceivedRawFrame(&type, buffer, 256, &length); },
         "GetReceivedRawFrame(101, 256)"},
        {Qbx::DisableRawRx, [](QuaysideDevice& d) { return d.DisableRawRx(); }, "DisableRawRx(101)"},
        {Qbx::CheckSubmitRawFrame, [](QuaysideDevice& d) { return d.CheckSubmitRawFrame(1390); },
         "CheckSubmitRawFrame(101, 1390)"},
        {Qbx::WaitForTxResources, [](QuaysideDevice& d) { return d.WaitForTxResources(1, 0); },
         "WaitForTxResources(101, 1, 0)"},
        {Qbx::SubmitRawFrame, [&](QuaysideDevice& d) { return d.SubmitRawFrame(buffer, 60, nullptr); },
         "SubmitRawFrame(101, 60)"},
        {Qbx::SendRawFrames, [](QuaysideDevice& d) { return d.SendRawFrames(); }, "SendRawFrames(101)"},
        {Qbx::CloseDevice, [](QuaysideDevice& d) { return d.CloseDevice(); }, "CloseDevice(101)"},
    };
    Enumerate();
    QuaysideDevice device;
    ASSERT_EQ(device.OpenRawTxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    mFake.QueueReceivedFrame({1, 2, 3});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.recorded);
        mFake.ClearCalls();
        if (c.function != Qbx::CloseDevice) {
            EXPECT_EQ(c.call(device), KESTATUS_SUCCESS);
            EXPECT_THAT(mFake.Calls(), ElementsAre(c.recorded));
            mFake.ClearCalls();
        }
        mFake.Queue(c.function, {KESTATUS_DEVICE_REMOVED});
        EXPECT_EQ(c.call(device), KESTATUS_DEVICE_REMOVED);
        EXPECT_THAT(mFake.Calls(), ElementsAre(c.recorded));
    }
    EXPECT_STREQ(text, "fake-1");
    EXPECT_THAT(std::vector<std::uint8_t>(buffer, buffer + 3), ElementsAre(1, 2, 3));
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(type, QBXRawFrameType_Data);
    EXPECT_FALSE(mFake.IsReservedUsed());
    EXPECT_EQ(mFake.SubmittedFrames().size(), 1u);
}

TEST_F(QuaysideDeviceTest, WithoutADeviceTheHandleIsZero) {
    QuaysideDevice device;
    EXPECT_EQ(device.SendRawFrames(), KESTATUS_INVALID_HANDLE);
    EXPECT_EQ(device.CloseDevice(), KESTATUS_INVALID_HANDLE);
    EXPECT_EQ(device.OpenControlDevice(mEnumerator, 0), KESTATUS_INVALID_HANDLE);
    EXPECT_THAT(mFake.Calls(), ElementsAre("SendRawFrames(0)", "CloseDevice(0)", "OpenControlDevice(0, 0)"));
}
