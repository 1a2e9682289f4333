// Sends the frames of a list through a device when they are due, and gives them back to their pool. Frames
// that are due at the same time go out with one call to the device.
//
// The list is in the order of the frames' send times. List, pool, counters and device are not owned and
// outlive the sender. One thread at a time. Failures are logged on Global.
#ifndef FLOWLANE_RAWFRAMESENDER_H
#define FLOWLANE_RAWFRAMESENDER_H

#include <cstdint>

#include "capture/PcapNgReaderStatistics.h"
#include "capture/RawFrame.h"
#include "capture/RawFramePool.h"
#include "device/QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

class RawFrameSender {
public:
    RawFrameSender(RawFrameList& framesToSent, RawFramePool& framePool, PcapNgReaderCounters& stats) noexcept
        : mFramesToSent(framesToSent), mFramePool(framePool), mStats(stats) {}

    // The device that frames are sent through from now on; it is open for raw transmission. Nothing has been
    // submitted to it yet.
    void SetDevice(QuaysideDevice& device) noexcept {
        mDevice = &device;
        mLastSubmitted = {};
    }

    // Sends the frames that are due at now. The status of a failure is the device's; the frame that failed is
    // back in the pool, and those behind it are still in the list.
    [[nodiscard]] KESTATUS SendFrames(RawFrameTimePoint now);
    // The frame that was submitted last, or that the device refused.
    struct Submitted {
        RawFrameOrigin origin;
        std::uint32_t size = 0; // bytes
    };
    const Submitted& LastSubmitted() const noexcept { return mLastSubmitted; }
    bool HasSubmitted() const noexcept { return mLastSubmitted.origin.packetNumber != 0; }
    // Gives all frames of the list back without sending them.
    void ClearSendList() noexcept;

private:
    [[nodiscard]] KESTATUS SubmitFrame(const RawFrame& frame);
    [[nodiscard]] KESTATUS FlushDevice();

    RawFrameList& mFramesToSent;
    RawFramePool& mFramePool;
    PcapNgReaderCounters& mStats;
    QuaysideDevice* mDevice = nullptr;
    Submitted mLastSubmitted;
};

} // namespace flowlane

#endif
