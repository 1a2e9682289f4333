#include "device/LostFrameCounter.h"

namespace flowlane {

namespace {

constexpr PipelineClock::Duration cUpdateInterval = std::chrono::seconds(1);

} // namespace

void LostFrameCounter::Start(QuaysideDevice& device, PipelineClock::TimePoint now) {
    mDevice = &device;
    mLastUpdate = now;
    mLost.Clear();
    mBase = 0;
    Read(mBase);
}

void LostFrameCounter::Update(PipelineClock::TimePoint now) {
    if (now - mLastUpdate >= cUpdateInterval) {
        mLastUpdate = now;
        UpdateNow();
    }
}

void LostFrameCounter::UpdateNow() {
    std::uint64_t lost = 0;
    // Losses never become fewer: a smaller number is ignored.
    if (mDevice && Read(lost) && lost >= mBase + mLost.Value()) {
        mLost.Set(lost - mBase);
    }
}

bool LostFrameCounter::Read(std::uint64_t& lost) {
    std::uint64_t value = 0;
    unsigned size = 0;
    const KESTATUS st =
        mDevice->GetDevicePropertyBinary(QBX_PROPERTY_LOST_FRAMES, &value, sizeof value, &size);
    if (st != KESTATUS_SUCCESS || size != sizeof value) {
        mDevice = nullptr;
        return false;
    }
    lost = value;
    return true;
}

} // namespace flowlane
