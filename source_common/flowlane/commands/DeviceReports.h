// What the commands report of their device and their worker besides the statistics: frames that were lost,
// and a worker that has ended by itself. All lines go to the Cons logger. Called from the main thread. The
// formats are not copied and must outlive the objects.
#ifndef FLOWLANE_DEVICEREPORTS_H
#define FLOWLANE_DEVICEREPORTS_H

#include <cstdint>

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

// Reports once why a worker has ended by itself.
class FailureReport {
public:
    // format has one field, for the status.
    explicit FailureReport(const char* format) : mFormat(format) {}
    // failure: success while the worker runs.
    void Print(KESTATUS failure);

private:
    const char* mFormat;
    bool mIsReported = false;
};

} // namespace flowlane

#endif
