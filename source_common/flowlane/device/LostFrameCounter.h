// The frames that a device has lost since it was opened, as far as its library counts them
// (QBX_PROPERTY_LOST_FRAMES). The library is asked once at the beginning; a library that does not answer
// with a number of 8 bytes is never asked again, and the count stays 0.
//
// Threads: Start before a worker uses the device. Update is for the thread that uses the device then, and
// UpdateNow for the owner when the worker has ended, so that one thread at a time is in the library. Value is
// for any thread. The device is not owned and outlives the counter.
#ifndef FLOWLANE_LOSTFRAMECOUNTER_H
#define FLOWLANE_LOSTFRAMECOUNTER_H

#include <cstdint>

#include "base/PipelineClock.h"
#include "base/RelaxedCounter.h"
#include "device/QuaysideDevice.h"

namespace flowlane {

class LostFrameCounter {
public:
    // Asks for the number that the losses are counted from.
    void Start(QuaysideDevice& device, PipelineClock::TimePoint now);
    // Asks again when a second has passed since the last time.
    void Update(PipelineClock::TimePoint now);
    // Asks again whatever the time. Does nothing before Start.
    void UpdateNow();

    std::uint64_t Value() const noexcept { return mLost.Value(); }

private:
    bool Read(std::uint64_t& lost);

    QuaysideDevice* mDevice = nullptr; // null while there is nobody to ask
    std::uint64_t mBase = 0;
    PipelineClock::TimePoint mLastUpdate;
    RelaxedCounter mLost;
};

} // namespace flowlane

#endif
