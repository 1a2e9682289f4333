#include "DeviceReports.h"

#include "CommandChecks.h"
#include "LogCons.h"

namespace flowlane {

using namespace kestrelon;

void LostFramesReport::Print() {
    std::uint64_t lost = 0;
    unsigned size = 0;
    const KESTATUS st = mDevice.GetDevicePropertyBinary(QBX_PROPERTY_LOST_FRAMES, &lost, sizeof lost, &size);
    if (st == KESTATUS_SUCCESS && size == sizeof lost && lost != mReported) {
        mReported = lost;
        KEOutputLogMessage(logger::Cons, KEWARN, mFormat, lost);
    }
}

void FailureReport::Print(KESTATUS failure) {
    if (failure != KESTATUS_SUCCESS && !mIsReported) {
        mIsReported = true;
        LogFailedStep(mFormat, failure);
    }
}

} // namespace flowlane
