#include "commands/DeviceReports.h"

#include "base/LogCons.h"
#include "explanations/DeviceExplanation.h"

namespace flowlane {

using namespace kestrelon;

void LostFramesReport::Print(std::uint64_t lost) {
    if (lost != mReported) {
        mReported = lost;
        KEOutputLogMessage(logger::Cons, KEWARN, mFormat, lost);
    }
}

void FailureReport::Print(KESTATUS failure) {
    if (failure != KESTATUS_SUCCESS && !mIsReported) {
        mIsReported = true;
        KEOutputFailure(logger::Cons, mFormat, failure);
        ExplainDeviceFailure(failure, mDevice);
    }
}

} // namespace flowlane
