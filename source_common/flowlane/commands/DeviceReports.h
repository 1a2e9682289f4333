// What the commands report of their device and their worker besides the statistics: frames that were lost,
// and a worker that has ended by itself. All lines go to the Cons logger. Called from the main thread. The
// formats are not copied and must outlive the objects.
#ifndef FLOWLANE_DEVICEREPORTS_H
#define FLOWLANE_DEVICEREPORTS_H

#include <cstdint>

#include "device/QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

// Reports how many frames were lost, when the number has changed.
class LostFramesReport {
public:
    // format has one field, for the number.
    explicit LostFramesReport(const char* format) : mFormat(format) {}
    // lost: all frames lost so far.
    void Print(std::uint64_t lost);

private:
    const char* mFormat;
    std::uint64_t mReported = 0;
};

// Reports once why a worker has ended by itself. A device that was removed is named.
class FailureReport {
public:
    // format has one field, for the status. The device is the worker's.
    FailureReport(const QuaysideDevice& device, const char* format) : mDevice(device), mFormat(format) {}
    // failure: success while the worker runs.
    void Print(KESTATUS failure);

private:
    const QuaysideDevice& mDevice;
    const char* mFormat;
    bool mIsReported = false;
};

} // namespace flowlane

#endif
