// What the commands tell the user about their device and their worker besides the statistics: frames that
// were lost, and a worker that has given up. All lines go to the Cons logger. Called from the main thread.
#ifndef FLOWLANE_DEVICEREPORTS_H
#define FLOWLANE_DEVICEREPORTS_H

#include <cstdint>

#include "QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

// Tells of frames that the device has lost since the last call. Silent with device libraries that do not
// count them.
class LostFramesReport {
public:
    // format has one field, for the number of all frames lost so far. The device outlives the report.
    LostFramesReport(QuaysideDevice& device, const char* format) : mDevice(device), mFormat(format) {}
    void Print();

private:
    QuaysideDevice& mDevice;
    const char* mFormat;
    std::uint64_t mReported = 0;
};

// Tells once why a worker has ended by itself.
class FailureReport {
public:
    // format has one field, for the status.
    explicit FailureReport(const char* format) : mFormat(format) {}
    void Print(KESTATUS failure);

private:
    const char* mFormat;
    bool mIsReported = false;
};

} // namespace flowlane

#endif
