// A port of the segment opened to send: a batch of submitted frames and the port's ring.
//
// From any thread; one lock makes submitting and sending exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTTXDEVICE_H
#define QUAYSIDE2_SEGMENT_SEGMENTTXDEVICE_H

#include <memory>
#include <mutex>

#include "common/Device.h"
#include "segment/FlowControl.h"
#include "segment/RingWriter.h"
#include "segment/SegmentPort.h"
#include "segment/TxBatch.h"

namespace quayside2::segment {

class SegmentTxDevice : public Device {
public:
    // The port was opened with Rings::Own.
    SegmentTxDevice(const DeviceProperties& properties, std::unique_ptr<SegmentPort> port);

    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    // None: what a receiver misses is that receiver's loss.
    KESTATUS GetLostFrames(std::uint64_t& count) override;
    KESTATUS CheckSubmitRawFrame(std::uint32_t length) override;
    KESTATUS WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) override;
    KESTATUS SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) override;
    KESTATUS SendRawFrames() override;
    void Shutdown() noexcept override;
    void Finish() noexcept override;

private:
    using Lock = std::unique_lock<std::mutex>;
    // What happens to frames that found no room until the deadline.
    enum class AtDeadline { Keep, Overwrite };

    void MoveBatch(Lock& lock, std::uint32_t enough, std::int64_t deadline, AtDeadline atDeadline);
    void SleepForRoom(Lock& lock, std::uint64_t reclaim, std::int64_t deadline);
    void PublishAndWake() noexcept;

    const DeviceProperties mProperties;
    const std::unique_ptr<SegmentPort> mPort;
    std::atomic<bool> mShutdown{false};
    std::mutex mMutex; // everything below
    RingWriter mWriter;
    FlowControl mFlowControl;
    TxBatch mBatch;
};

} // namespace quayside2::segment

#endif
