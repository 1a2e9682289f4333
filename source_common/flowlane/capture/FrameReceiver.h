// The receive loop of a capture. It takes the frames that a device has received and hands them to a file
// writer. It never waits for the disk: when the writer has no free frame, the received frame goes to a spare
// buffer and is dropped, which the writer counts.
//
// The device is open for reception with receive header type 2 and enabled, and the writer is started. Both
// outlive the receiver and are not owned. All calls are for one thread. Failures are logged on Cons, a
// dropped frame on Global.
#ifndef FLOWLANE_FRAMERECEIVER_H
#define FLOWLANE_FRAMERECEIVER_H

#include <cstdint>
#include <functional>
#include <memory>

#include "KEPosixTime.h"
#include "capture/PcapNgFileWriter.h"
#include "device/QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

class FrameReceiver {
public:
    using Report = std::function<void()>;
    using StopCheck = std::function<bool()>;
    // Milliseconds of a monotonic clock, which may wrap.
    using TickCount = std::function<std::uint32_t()>;

    // frameSize: bytes of each frame of the writer, receive header included. Throws std::bad_alloc.
    FrameReceiver(QuaysideDevice& device, PcapNgFileWriter& writer, unsigned frameSize,
                  TickCount tickCount = kestrelon::KEPosixGetTickCount);

    // Receives until the user asks for the end or a call fails. Once a second it calls report and then
    // isStopRequested. Frames that the device received before the user asked for the end are still taken.
    // Returns the status of the call that failed: the device's, or KESTATUS_NOT_POSSIBLE from WriteRawFrame.
    [[nodiscard]] KESTATUS WriteReceivedFramesToFile(const Report& report, const StopCheck& isStopRequested);

    // Moves one received frame from the device to the writer. A frame that the writer does not record, or has
    // no room for, is a success as well.
    //   KESTATUS_NO_DATA  the device has no frame; this is not logged
    // Other failures are those of the device and of PcapNgFileWriter::WriteRawFrame.
    [[nodiscard]] KESTATUS TakeFrame();

private:
    [[nodiscard]] KESTATUS TakeReceivedFrames();
    [[nodiscard]] KESTATUS HandOver(RawFrame& frame);
    void Release(RawFrame* frame) noexcept;
    bool IsReportDue() const;

    QuaysideDevice& mDevice;
    PcapNgFileWriter& mWriter;
    const unsigned mFrameSize;
    const std::unique_ptr<unsigned char[]> mSpareBuffer;
    const TickCount mTickCount;
    std::uint32_t mLastReport = 0; // ticks
};

} // namespace flowlane

#endif
