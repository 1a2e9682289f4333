// The frames that a device has lost since Start, as far as its library counts them
// (QBX_PROPERTY_LOST_FRAMES). A library that does not answer with a number of 8 bytes is not asked again, and
// the count stays as it is.
//
// Threads: the owner calls Start before a worker uses the device. The worker calls Update and UpdateNow. The
// owner calls UpdateNow when the worker has ended. So one thread at a time is in the library. Any thread
// calls Value. The device is not owned and outlives the counter.
#ifndef FLOWLANE_LOSTFRAMECOUNTER_H
#define FLOWLANE_LOSTFRAMECOUNTER_H

#include <cstdint>

#include "base/PipelineClock.h"
#include "base/RelaxedCounter.h"
#include "device/QuaysideDevice.h"

namespace flowlane {

class LostFrameCounter {
public:
    // Asks the library for its number, from which the losses are counted.
    void Start(QuaysideDevice& device, PipelineClock::TimePoint now);
    // Asks again when at least a second has passed since the last time.
    void Update(PipelineClock::TimePoint now);
    // Asks again at once. Does nothing before Start.
    void UpdateNow();

    std::uint64_t Value() const noexcept { return mLost.Value(); }

private:
    bool Read(std::uint64_t& lost);

    QuaysideDevice* mDevice = nullptr; // null when the library is not to be asked
    std::uint64_t mBase = 0;
    PipelineClock::TimePoint mLastUpdate;
    RelaxedCounter mLost;
};

} // namespace flowlane

#endif
