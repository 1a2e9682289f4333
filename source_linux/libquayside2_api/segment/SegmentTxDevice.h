// A port of the segment opened to send: the batch goes into the port's ring.
//
// Nothing is lost here: what a receiver misses is that receiver's loss.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTTXDEVICE_H
#define QUAYSIDE2_SEGMENT_SEGMENTTXDEVICE_H

#include <memory>
#include <string>

#include "common/TransmitDevice.h"
#include "segment/FlowControl.h"
#include "segment/RingWriter.h"
#include "segment/SegmentPort.h"

namespace quayside2::segment {

class SegmentTxDevice : public TransmitDevice {
public:
    // The port was opened with Rings::Own.
    SegmentTxDevice(const DeviceProperties& properties, std::unique_ptr<SegmentPort> port);

    // The segment has no link that could be down.
    [[nodiscard]] KESTATUS GetState(std::string& state) const override {
        state = "in use";
        return KESTATUS_SUCCESS;
    }
    [[nodiscard]] KESTATUS GetLostFrames(std::uint64_t& count) override;
    void Shutdown() noexcept override;

protected:
    // Always succeeds. At the deadline the rest overwrites what receivers have not read.
    [[nodiscard]] KESTATUS SendBatch(Lock& lock, const SendTerms& terms) override;

private:
    enum class Room { Free, Changed, None };
    Room MakeRoom(Lock& lock, const SendTerms& terms);
    void SleepForRoom(Lock& lock, std::uint64_t reclaim, std::int64_t deadline);
    void PublishAndWake() noexcept;

    const std::unique_ptr<SegmentPort> mPort;
    // With the lock held.
    RingWriter mWriter;
    FlowControl mFlowControl;
};

} // namespace quayside2::segment

#endif
