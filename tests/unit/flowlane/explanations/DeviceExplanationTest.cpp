// What the user is told about a device that could not be opened, or that has failed: one line for each cause,
// whatever the device library tells of its devices.

#include "explanations/DeviceExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "base/LogCons.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

FakeInstance Named(const std::string& name) {
    FakeInstance instance;
    instance.friendlyName = name;
    return instance;
}

FakeInstance WithText(FakeInstance instance, unsigned property, const std::string& text) {
    instance.otherTexts[property] = text;
    return instance;
}

class DeviceExplanationTest : public testing::Test {
protected:
    DeviceExplanationTest() {
        unsetenv("QUAYSIDE2_DEVICES");
        unsetenv("QUAYSIDE2_SEGMENT");
        unsetenv("QUAYSIDE2_INSPECT");
        mFake.Reset();
        mFake.SetInstances({Named("eth0"), Named("eth1")});
    }
    ~DeviceExplanationTest() override {
        EXPECT_EQ(mFake.OpenEnumerationCount(), 0u);
        EXPECT_EQ(mFake.OpenDeviceCount(), 0u);
        EXPECT_EQ(std::getenv("QUAYSIDE2_INSPECT"), nullptr);
        unsetenv("QUAYSIDE2_DEVICES");
        unsetenv("QUAYSIDE2_SEGMENT");
    }
    std::string LineFor(KESTATUS st, const WantedDevice& wanted) {
        mLog.Clear();
        ExplainFailedOpening(st, wanted);
        const std::vector<CapturedMessage> messages = mLog.Messages();
        EXPECT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages.front().level, KEWARN);
        return messages.empty() ? "" : messages.front().text;
    }

    FakeDevice& mFake = FakeDevice::Instance();
    LogCapture mLog{logger::Cons};
};

constexpr WantedDevice cSecond = {nullptr, 1, DeviceUse::Send};

WantedDevice ByName(const char* name, DeviceUse use = DeviceUse::Send) {
    return {name, 0, use};
}

} // namespace

TEST_F(DeviceExplanationTest, NoDevices) {
    mFake.SetInstances({});
    EXPECT_EQ(LineFor(KESTATUS_NO_DEVICES, cSecond),
              "The device library has found no device. Connect one, or check its driver.");
    setenv("QUAYSIDE2_DEVICES", "eth7", 1);
    EXPECT_EQ(LineFor(KESTATUS_NO_DEVICES, cSecond),
              "The device library has found no device. Connect one, or check its driver.");
    mFake.SetInstances({Named("eth0"), Named("eth1")});
    EXPECT_EQ(
        LineFor(KESTATUS_NO_DEVICES, cSecond),
        "QUAYSIDE2_DEVICES allows only 'eth7', and there is no such device. The devices are: eth0, eth1");
    EXPECT_STREQ(std::getenv("QUAYSIDE2_DEVICES"), "eth7");
}

TEST_F(DeviceExplanationTest, UnknownName) {
    EXPECT_EQ(LineFor(KESTATUS_NOT_FOUND, ByName("ETH1")),
              "No device is named 'ETH1'. The devices are: eth1, eth0");
    mFake.SetInstances({Named("eth0"), WithText(Named("eth1"), QBX_PROPERTY_STATE, "in use"),
                        WithText(Named("eth2"), QBX_PROPERTY_STATE, "in use (sending)")});
    EXPECT_EQ(LineFor(KESTATUS_NOT_FOUND, ByName("wifi")),
              "No device is named 'wifi'. The devices are: eth0, eth1 (in use), eth2");
}

TEST_F(DeviceExplanationTest, ManyDevicesFitIntoALine) {
    mFake.SetInstances(std::vector<FakeInstance>(200, Named("interface")));
    const std::string line = LineFor(KESTATUS_NOT_FOUND, ByName(std::string(300, 'x').c_str()));
    EXPECT_LT(line.size(), 511u);
    EXPECT_THAT(line, testing::EndsWith(" more"));
    EXPECT_THAT(LineFor(KESTATUS_INVALID_INDEX, {nullptr, 200, DeviceUse::Send}), testing::EndsWith(" more"));
}

// A library that knows no look at a device in use.
TEST_F(DeviceExplanationTest, UnknownNameWhileADeviceTellsNothing) {
    FakeInstance used = Named("eth0");
    used.openStatus = KESTATUS_IN_USE;
    mFake.SetInstances({used, Named("eth1")});
    EXPECT_EQ(LineFor(KESTATUS_NOT_FOUND, ByName("eth0")),
              "No free device is named 'eth0'. The devices are: eth1, device 0 (in use)");
    EXPECT_EQ(LineFor(KESTATUS_IN_USE, {nullptr, 0, DeviceUse::Send}),
              "Device 0 is in use by another program. End that program, or choose another device.");
}

TEST_F(DeviceExplanationTest, InvalidIndex) {
    EXPECT_EQ(LineFor(KESTATUS_INVALID_INDEX, {nullptr, 9, DeviceUse::Send}),
              "No device has the index 9. The 2 devices are: 0 = eth0, 1 = eth1");
    setenv("QUAYSIDE2_DEVICES", "eth0", 1);
    mFake.SetInstances({Named("eth0")});
    EXPECT_EQ(LineFor(KESTATUS_INVALID_INDEX, cSecond),
              "No device has the index 1. The only device that QUAYSIDE2_DEVICES allows is: 0 = eth0");
}

TEST_F(DeviceExplanationTest, InUse) {
    const std::string unknown =
        "'eth1' is in use by another program. End that program, or choose another device.";
    EXPECT_EQ(LineFor(KESTATUS_IN_USE, cSecond), unknown);
    EXPECT_EQ(LineFor(KESTATUS_IN_USE, ByName("eth1")), unknown);
    FakeInstance used = WithText(Named("eth1"), QBX_PROPERTY_STATE, "in use");
    used = WithText(used, QBX_PROPERTY_TX_HOLDER, "a\x1b program (process 12)");
    used = WithText(used, QBX_PROPERTY_RX_HOLDER, "tool (process 13)");
    mFake.SetInstances({Named("eth0"), used});
    EXPECT_EQ(LineFor(KESTATUS_IN_USE, cSecond),
              "'eth1' is in use by a? program (process 12). End that program, or choose another device.");
    // A search by name leaves devices in use out.
    EXPECT_EQ(LineFor(KESTATUS_NOT_FOUND, ByName("eth1", DeviceUse::Receive)),
              "'eth1' is in use by tool (process 13). End that program, or choose another device.");
    mFake.SetInstances({WithText(Named("eth0"), QBX_PROPERTY_STATE, "free")});
    EXPECT_EQ(LineFor(KESTATUS_NOT_FOUND, ByName("eth0")), "'eth0' was in use, and is free now. Try again.");
}

TEST_F(DeviceExplanationTest, NoPrivilege) {
    const std::string line = LineFor(KESTATUS_ADMIN_PRIVILEGES_REQUIRED, cSecond);
    if (geteuid() == 0) {
        EXPECT_EQ(line, "'eth1' needs the privilege CAP_NET_RAW, which root does not have here. Start the "
                        "container or the service with it.");
    } else {
        EXPECT_THAT(line, StartsWith("'eth1' needs a privilege. Run this program as root, or give it the "
                                     "privilege: sudo setcap cap_net_raw+ep "));
    }
}

TEST_F(DeviceExplanationTest, Removed) {
    // Another device may have the index now.
    EXPECT_EQ(LineFor(KESTATUS_DEVICE_REMOVED, cSecond),
              "Device 1 was removed. Start again when it is back.");
    EXPECT_EQ(LineFor(KESTATUS_DEVICE_REMOVED, ByName("eth7")),
              "'eth7' was removed. Start again when it is back.");
    // The search has ended at another one.
    FakeInstance gone = Named("eth0");
    gone.openStatus = KESTATUS_DEVICE_REMOVED;
    mFake.SetInstances({gone, Named("eth1")});
    EXPECT_EQ(LineFor(KESTATUS_DEVICE_REMOVED, ByName("eth1")),
              "Device 0 was removed. Start again when it is back.");
}

TEST_F(DeviceExplanationTest, TheFileOfTheDeviceThatHasFailed) {
    const FakeInstance lane = WithText(Named("lane-1"), QBX_PROPERTY_FILE, "/dev/shm/none-such");
    const std::string line = "'/dev/shm/none-such' is damaged, or another version made it. End the programs "
                             "that use it, then: rm /dev/shm/none-such";
    mFake.SetInstances({lane, Named("eth1")});
    EXPECT_EQ(LineFor(KESTATUS_VERSION_MISMATCH, {nullptr, 0, DeviceUse::Send}), line);
    // A command that does not fit is not shown.
    mFake.SetInstances(
        {WithText(Named("lane-1"), QBX_PROPERTY_FILE, "/" + std::string(201, 'x')), Named("eth1")});
    EXPECT_EQ(LineFor(KESTATUS_VERSION_MISMATCH, {nullptr, 0, DeviceUse::Send}),
              "'lane-1' cannot be opened: The version numbers of software modules do not match.");
    EXPECT_EQ(LineFor(KESTATUS_VERSION_MISMATCH, cSecond),
              "'eth1' cannot be opened: The version numbers of software modules do not match.");
}

TEST_F(DeviceExplanationTest, OtherStatusesInWords) {
    EXPECT_EQ(LineFor(KESTATUS_NO_MEMORY, cSecond),
              "'eth1' cannot be opened: Not enough memory available to complete the operation.");
    EXPECT_EQ(LineFor(KEStatusFromErrno(EMFILE), ByName("eth0")),
              "'eth0' cannot be opened: Too many open files.");
    mFake.SetDefault(Qbx::EnumerateDevices, KESTATUS_INVALID_PARAMETER);
    EXPECT_THAT(LineFor(KESTATUS_INVALID_PARAMETER, cSecond), StartsWith("The devices cannot be listed: "));
    setenv("QUAYSIDE2_SEGMENT", "a/b", 1);
    EXPECT_EQ(LineFor(KESTATUS_INVALID_PARAMETER, cSecond),
              "QUAYSIDE2_SEGMENT is 'a/b'. A segment's name has 1 to 64 letters, digits, '-', '_' or '.'.");
    EXPECT_THAT(LineFor(KESTATUS_NO_RESOURCES, cSecond), StartsWith("The devices cannot be listed: "));
}

TEST_F(DeviceExplanationTest, ADeviceThatFailsInUse) {
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    ASSERT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    QuaysideDevice device;
    ASSERT_EQ(device.OpenRawTxDevice(enumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    ExplainDeviceFailure(KESTATUS_SUCCESS, device);
    ExplainDeviceFailure(KESTATUS_READ_FILE_FAILED, device);
    EXPECT_THAT(mLog.Texts(), testing::IsEmpty());
    ExplainDeviceFailure(KESTATUS_DEVICE_REMOVED, device);
    mFake.SetDefault(Qbx::GetDevicePropertyString, KESTATUS_DEVICE_REMOVED);
    ExplainDeviceFailure(KESTATUS_DEVICE_REMOVED, device);
    EXPECT_THAT(mLog.Texts(), ElementsAre("'eth0' was removed. Start again when it is back.",
                                          "The device was removed. Start again when it is back."));
}
