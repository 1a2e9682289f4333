// What every kind of device has to do, tested through the C interface over two devices of a kind.
//
// The tests of this folder are the contract of common/Device.h. They run for each kind that is named with
// INSTANTIATE_CONFORMANCE_TESTS: lanes in LaneKind.cpp, network interfaces in InterfaceKind.cpp.
#ifndef FLOWLANE_TESTS_CONFORMANCEFIXTURE_H
#define FLOWLANE_TESTS_CONFORMANCEFIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

#include "DeviceCalls.h"

namespace testsupport {

// Two devices of one kind that exist as long as the object: what the one sends the other receives, and the
// other way round. Frames may have up to 1514 bytes, and 1518 with a VLAN tag.
class DevicePair {
public:
    virtual ~DevicePair() = default;
    // Their friendly names, separated by a comma.
    virtual const char* Names() const = 0;
};

struct DeviceKind {
    const char* name;
    std::unique_ptr<DevicePair> (*makePair)();
};

inline void PrintTo(const DeviceKind& kind, std::ostream* to) {
    *to << kind.name;
}

class ConformanceFixture : public testing::TestWithParam<DeviceKind> {
protected:
    // By place in the list.
    static constexpr std::uint32_t cSender = 0;
    static constexpr std::uint32_t cReceiver = 1;

    // The handles are closed at the end of the test if they are still open.
    QBXDeviceHandle OpenTx() { return mDevices.Open(cSender, Use::Tx); }
    QBXDeviceHandle OpenRx(Use use = Use::Rx) { return mDevices.Open(cReceiver, use); }
    QBXDeviceHandle OpenEnabledRx(Use use = Use::Rx);
    QBXDeviceHandle OpenControl(std::uint32_t place) { return mDevices.Open(place, Use::Control); }

    // Expects that the next frame is this one, and that it has this number.
    static void ExpectNext(QBXDeviceHandle rx, const Bytes& frame, std::uint32_t sequence);
    // Expects that nothing came before a frame that is sent now, which gets this number.
    static void ExpectNothingElse(QBXDeviceHandle tx, QBXDeviceHandle rx, std::uint32_t sequence);

private:
    const OwnSegment mSegment;
    const std::unique_ptr<DevicePair> mPair = GetParam().makePair();
    const EnvironmentChange mPairOnly{"QUAYSIDE2_DEVICES", mPair->Names()};
    OpenDevices mDevices;
};

class ReceiveConformance : public ConformanceFixture {};
class TransmitConformance : public ConformanceFixture {};
class HandleConformance : public ConformanceFixture {};
class WaitConformance : public ConformanceFixture {};
class LossConformance : public ConformanceFixture {};

} // namespace testsupport

// Runs all tests of this folder for a kind. A new group of tests is named here too.
#define INSTANTIATE_CONFORMANCE_TESTS(kind)                                                                  \
    INSTANTIATE_CONFORMANCE_GROUP(ReceiveConformance, kind)                                                  \
    INSTANTIATE_CONFORMANCE_GROUP(TransmitConformance, kind)                                                 \
    INSTANTIATE_CONFORMANCE_GROUP(HandleConformance, kind)                                                   \
    INSTANTIATE_CONFORMANCE_GROUP(WaitConformance, kind)                                                     \
    INSTANTIATE_CONFORMANCE_GROUP(LossConformance, kind)

#define INSTANTIATE_CONFORMANCE_GROUP(group, kind)                                                           \
    INSTANTIATE_TEST_SUITE_P(Device, group, testing::Values(kind),                                           \
                             [](const auto& param) { return param.param.name; });

#endif
