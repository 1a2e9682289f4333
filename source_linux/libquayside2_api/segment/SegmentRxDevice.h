// A port of the segment opened to receive the frames of the other ports.
//
// From any thread; one lock makes taking frames exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTRXDEVICE_H
#define QUAYSIDE2_SEGMENT_SEGMENTRXDEVICE_H

#include <memory>
#include <mutex>
#include <string>

#include "common/Device.h"
#include "common/ReceiveDelivery.h"
#include "segment/RingMerge.h"
#include "segment/SegmentPort.h"

namespace quayside2::segment {

class SegmentRxDevice : public Device {
public:
    // The port was opened with Rings::All.
    SegmentRxDevice(const DeviceProperties& properties, bool receiveHeader,
                    std::unique_ptr<SegmentPort> port);
    ~SegmentRxDevice() override;

    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    // The segment has no link that could be down.
    [[nodiscard]] KESTATUS GetState(std::string& state) const override {
        state = "in use";
        return KESTATUS_SUCCESS;
    }
    [[nodiscard]] KESTATUS GetLostFrames(std::uint64_t& count) override;
    [[nodiscard]] KESTATUS EnableRawRx() override;
    [[nodiscard]] KESTATUS DisableRawRx() override;
    [[nodiscard]] KESTATUS WaitForRawFrame(std::int32_t timeoutMs) override;
    [[nodiscard]] KESTATUS GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                               std::uint32_t bufferSize,
                                               std::uint32_t& receivedLength) override;
    void Shutdown() noexcept override;

private:
    bool HasData();
    [[nodiscard]] KESTATUS WaitState(std::uint32_t epoch) const noexcept;
    void ChangeEpoch() noexcept;

    const DeviceProperties mProperties;
    const std::unique_ptr<SegmentPort> mPort;
    std::atomic<bool> mIsShutdown{false};
    // Odd while enabled, as in the shared state, which is a copy of it. Changed with the lock held.
    std::atomic<std::uint32_t> mEpoch;
    std::mutex mMutex; // everything below
    RingMerge mFrames;
    ReceiveDelivery mDelivery;
};

} // namespace quayside2::segment

#endif
