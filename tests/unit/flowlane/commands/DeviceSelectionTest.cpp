// Choosing and opening a device: every call of the device library with its arguments, and what is closed
// again on success and failure. The tests of the program check the lines that the user sees.

#include "commands/DeviceSelection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "base/LogCons.h"
#include "commands/CmdLine.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class DeviceSelectionTest : public testing::Test {
protected:
    DeviceSelectionTest() {
        mFake.Reset();
        std::vector<FakeInstance> instances(3);
        instances[0].friendlyName = "one";
        instances[1].friendlyName = "two";
        instances[2].friendlyName = "two";
        mFake.SetInstances(instances);
        gCmdLine = CmdLine();
    }
    ~DeviceSelectionTest() override { gCmdLine = CmdLine(); }

    FakeDevice& mFake = FakeDevice::Instance();
    LogCapture mLog{logger::Cons};
    QuaysideDevice mDevice;
    std::string mDescription = "as before";
};

// The ways to open a device, which differ in one call.
struct OpenCase {
    const char* name;
    Qbx function;
    std::function<KESTATUS(QuaysideDevice&, const char*, std::string&)> open;
    const char* arguments; // after enumeration and index
};

class DeviceOpeningTest : public DeviceSelectionTest, public testing::WithParamInterface<OpenCase> {
protected:
    KESTATUS Open(const char* friendlyName) { return GetParam().open(mDevice, friendlyName, mDescription); }
    std::string OpenCall(unsigned index) const {
        return std::string(QbxName(GetParam().function)) + "(1, " + std::to_string(index) +
               GetParam().arguments + ")";
    }
    // Whether the link is down.
    static std::string StateCall(unsigned handle) {
        return "GetDevicePropertyString(" + std::to_string(handle) + ", 33264, 256)";
    }
    // Nothing stays open but the device itself.
    void ExpectOpen(std::size_t devices) const {
        EXPECT_EQ(mFake.OpenEnumerationCount(), 0u);
        EXPECT_EQ(mFake.OpenDeviceCount(), devices);
        EXPECT_EQ(mDevice.Handle() != 0, devices == 1);
    }
};

} // namespace

TEST_P(DeviceOpeningTest, ByIndex) {
    gCmdLine.mDeviceIndex = 2;
    EXPECT_EQ(Open(nullptr), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(),
                ElementsAre("EnumerateDevices(-1)", OpenCall(2), StateCall(101), "CloseEnumeration(1)"));
    EXPECT_EQ(mDescription, "2");
    EXPECT_EQ(mDevice.Handle(), 101u);
    ExpectOpen(1);
}

TEST_P(DeviceOpeningTest, ByName) {
    gCmdLine.mDeviceIndex = 2; // the name decides
    EXPECT_EQ(Open("two"), KESTATUS_SUCCESS);
    EXPECT_THAT(mFake.Calls(),
                ElementsAre("EnumerateDevices(-1)", "OpenControlDevice(1, 0)",
                            "GetDevicePropertyString(101, 33048, 256)", "CloseDevice(101)",
                            "OpenControlDevice(1, 1)", "GetDevicePropertyString(102, 33048, 256)",
                            "CloseDevice(102)", OpenCall(1), StateCall(103), "CloseEnumeration(1)"));
    EXPECT_EQ(mDescription, "two(1)");
    ExpectOpen(1);
}

TEST_P(DeviceOpeningTest, ADeviceThatIsOpenIsClosedFirst) {
    EXPECT_EQ(Open(nullptr), KESTATUS_SUCCESS);
    mFake.ClearCalls();
    gCmdLine.mDeviceIndex = 1;
    EXPECT_EQ(Open(nullptr), KESTATUS_SUCCESS);
    std::string openCall = OpenCall(1);
    openCall.replace(openCall.find("(1,"), 3, "(2,"); // of the second enumeration
    EXPECT_THAT(mFake.Calls(), ElementsAre("EnumerateDevices(-1)", "CloseDevice(101)", openCall,
                                           StateCall(102), "CloseEnumeration(2)"));
    EXPECT_EQ(mDevice.Handle(), 102u);
    ExpectOpen(1);
}

TEST_P(DeviceOpeningTest, AFailedOpeningClosesEverything) {
    mFake.Queue(GetParam().function, {KESTATUS_IN_USE});
    EXPECT_EQ(Open("one"), KESTATUS_IN_USE);
    EXPECT_THAT(mFake.Calls(), ElementsAre("EnumerateDevices(-1)", "OpenControlDevice(1, 0)",
                                           "GetDevicePropertyString(101, 33048, 256)", "CloseDevice(101)",
                                           OpenCall(0), "CloseEnumeration(1)"));
    EXPECT_EQ(mLog.Messages().back(),
              (CapturedMessage{KEERROR, std::string(QbxName(GetParam().function)) +
                                            " failed, st=0xe0000006(KESTATUS_IN_USE)."}));
    ExpectOpen(0);
}

TEST_P(DeviceOpeningTest, ALinkThatIsDownIsTold) {
    FakeInstance instance;
    instance.friendlyName = "eth0";
    instance.otherTexts[QBX_PROPERTY_STATE] = "link down";
    mFake.SetInstances({instance});
    EXPECT_EQ(Open(nullptr), KESTATUS_SUCCESS);
    const std::string use = GetParam().function == Qbx::OpenRawTxDevice ? "sent" : "received";
    EXPECT_EQ(
        mLog.Messages().back(),
        (CapturedMessage{KEWARN, "The link of 'eth0' is down: nothing is " + use +
                                     " until it is up. Check its cable, or type: ip link set eth0 up"}));
}

TEST_P(DeviceOpeningTest, ALinkThatIsUpIsNotTold) {
    FakeInstance instance;
    instance.otherTexts[QBX_PROPERTY_STATE] = "in use";
    mFake.SetInstances({instance});
    EXPECT_EQ(Open(nullptr), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Texts(), ElementsAre("Enumerate available devices...", "Found 1 Quayside device(s)"));
}

TEST_P(DeviceOpeningTest, FailuresBeforeItCloseEverything) {
    struct Case {
        std::function<void(FakeDevice&)> script;
        KESTATUS expected;
    };
    const Case cases[] = {
        {[](FakeDevice& fake) { fake.Queue(Qbx::EnumerateDevices, {KESTATUS_NO_RESOURCES}); },
         KESTATUS_NO_RESOURCES},
        {[](FakeDevice& fake) { fake.SetInstances({}); }, KESTATUS_NO_DEVICES},
        {[](FakeDevice& fake) { fake.SetInstances({FakeInstance{}}); }, KESTATUS_NOT_FOUND},
        {[](FakeDevice& fake) { fake.SetDefault(Qbx::OpenControlDevice, KESTATUS_IN_USE); },
         KESTATUS_NOT_FOUND},
        {[](FakeDevice& fake) { fake.Queue(Qbx::OpenControlDevice, {KESTATUS_DEVICE_REMOVED}); },
         KESTATUS_DEVICE_REMOVED},
        {[](FakeDevice& fake) { fake.SetDefault(Qbx::GetDevicePropertyString, KESTATUS_NOT_FOUND); },
         KESTATUS_NOT_FOUND},
    };
    for (const Case& c : cases) {
        mFake.Reset();
        c.script(mFake);
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(Open("two"), c.expected);
        ExpectOpen(0);
        EXPECT_EQ(mDescription, "as before");
        EXPECT_EQ(mFake.CallCount(GetParam().function), 0u);
        EXPECT_EQ(mFake.CallCount(Qbx::CloseEnumeration),
                  mFake.CallCount(Qbx::EnumerateDevices) - (c.expected == KESTATUS_NO_RESOURCES ? 1 : 0));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Directions, DeviceOpeningTest,
    testing::Values(OpenCase{"Tx", Qbx::OpenRawTxDevice,
                             [](QuaysideDevice& device, const char* name, std::string& description) {
                                 return OpenRawTxDevice(device, name, description);
                             },
                             ", 0, 0, 0"},
                    OpenCase{"Rx", Qbx::OpenRawRxDevice,
                             [](QuaysideDevice& device, const char* name, std::string& description) {
                                 return OpenRawRxDevice(device, name, description, QBXRawHeaderType_None);
                             },
                             ", 0, 0, 0"},
                    OpenCase{"RxWithHeader", Qbx::OpenRawRxDevice,
                             [](QuaysideDevice& device, const char* name, std::string& description) {
                                 return OpenRawRxDevice(device, name, description, QBXRawHeaderType_2);
                             },
                             ", 0, 2, 0"}),
    [](const testing::TestParamInfo<OpenCase>& param) { return param.param.name; });

TEST_F(DeviceSelectionTest, TheSearchClosesEachInstanceBeforeTheNext) {
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    ASSERT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    mFake.ClearCalls();
    mFake.Queue(Qbx::OpenControlDevice, {KESTATUS_IN_USE});
    mFake.Queue(Qbx::GetDevicePropertyString, {KESTATUS_BUFFER_TOO_SMALL});
    unsigned index = 77;
    EXPECT_EQ(LookupDeviceIndexForFriendlyName(enumerator, count, "two", index), KESTATUS_SUCCESS);
    EXPECT_EQ(index, 2u);
    EXPECT_THAT(mFake.Calls(), ElementsAre("OpenControlDevice(1, 0)", "OpenControlDevice(1, 1)",
                                           "GetDevicePropertyString(101, 33048, 256)", "CloseDevice(101)",
                                           "OpenControlDevice(1, 2)",
                                           "GetDevicePropertyString(102, 33048, 256)", "CloseDevice(102)"));
    const CapturedMessage lines[] = {
        {KEINFO, "Ignore device with index 0 because it is already in use."},
        {KEERROR, "GetDevicePropertyString failed (idx=1), st=0xe0000074(KESTATUS_BUFFER_TOO_SMALL), ignore "
                  "the device."},
    };
    EXPECT_THAT(mLog.Messages(), ElementsAreArray(lines));
}

TEST_F(DeviceSelectionTest, AnUnknownNameLeavesTheIndexAlone) {
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    ASSERT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    unsigned index = 77;
    EXPECT_EQ(LookupDeviceIndexForFriendlyName(enumerator, count, "tw", index), KESTATUS_NOT_FOUND);
    EXPECT_EQ(LookupDeviceIndexForFriendlyName(enumerator, count, "TWO", index), KESTATUS_NOT_FOUND);
    EXPECT_EQ(index, 77u);
    EXPECT_EQ(mFake.OpenDeviceCount(), 0u);
    EXPECT_THAT(mLog.Texts(), ElementsAre("No device found for friendly name 'tw'",
                                          "No device found for friendly name 'TWO'"));
}

TEST_F(DeviceSelectionTest, AFailureIsReportedAndExplained) {
    gCmdLine.mDeviceIndex = 7;
    EXPECT_EQ(ReportFailedOpening(DeviceUse::Send, KESTATUS_INVALID_INDEX), KESTATUS_INVALID_INDEX);
    const CapturedMessage lines[] = {
        {KEERROR, "Open device failed, st=0xe0000047(KESTATUS_INVALID_INDEX)."},
        {KEWARN, "No device has the index 7. The 3 devices are: 0 = one, 1 = two, 2 = two"},
    };
    EXPECT_THAT(mLog.Messages(), ElementsAreArray(lines));
    EXPECT_EQ(mFake.OpenDeviceCount(), 0u);
    EXPECT_EQ(mFake.OpenEnumerationCount(), 0u);
}
