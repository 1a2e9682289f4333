// A segment of the test's own, and its four lanes.
#ifndef FLOWLANE_TESTS_SEGMENTFIXTURE_H
#define FLOWLANE_TESTS_SEGMENTFIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "DeviceCalls.h"

namespace testsupport {

// Only the lanes are listed, whatever interfaces the machine has.
class SegmentFixture : public testing::Test {
protected:
    const std::string& SegmentName() const { return mSegment.Name(); }
    std::string SegmentFilePath() const { return mSegment.FilePath(); }

    // Open by lane number, 1 to 4. The handles are closed at the end of the test if they are still open.
    QBXDeviceHandle OpenTx(unsigned lane) { return mDevices.Open(lane - 1, Use::Tx); }
    QBXDeviceHandle OpenRx(unsigned lane, Use use = Use::Rx) { return mDevices.Open(lane - 1, use); }
    QBXDeviceHandle OpenEnabledRx(unsigned lane, Use use = Use::Rx) {
        const QBXDeviceHandle device = OpenRx(lane, use);
        EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
        return device;
    }
    QBXDeviceHandle OpenControl(unsigned lane) { return mDevices.Open(lane - 1, Use::Control); }
    // Tries to open and returns the status; an opened device is closed again.
    static KESTATUS TryOpenTx(unsigned lane) { return TryOpen(lane - 1, Use::Tx); }
    static KESTATUS TryOpenRx(unsigned lane) { return TryOpen(lane - 1, Use::Rx); }
    static KESTATUS TryOpenControl(unsigned lane) { return TryOpen(lane - 1, Use::Control); }

private:
    const OwnSegment mSegment;
    const EnvironmentChange mLanesOnly{"QUAYSIDE2_DEVICES", "lane-1,lane-2,lane-3,lane-4"};
    OpenDevices mDevices;
};

} // namespace testsupport

#endif
