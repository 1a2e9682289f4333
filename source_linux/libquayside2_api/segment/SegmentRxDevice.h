// A port of the segment opened to receive: the frames of the other ports, merged in the order of their time
// stamps.
//
// The times that it delivers never go back, unless the clock of the machine was set back. A sender stamps its
// frames just before they can be seen; when it is held up in between, frames that others stamped later may
// have been delivered. A frame that comes so late gets the time of the one before it.
//
// From any thread; one lock makes taking frames exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTRXDEVICE_H
#define QUAYSIDE2_SEGMENT_SEGMENTRXDEVICE_H

#include <memory>
#include <mutex>
#include <vector>

#include "common/Device.h"
#include "common/ReceiveSequence.h"
#include "segment/RingReader.h"
#include "segment/SegmentPort.h"

namespace quayside2::segment {

class SegmentRxDevice : public Device {
public:
    // The port was opened with Rings::All.
    SegmentRxDevice(const DeviceProperties& properties, bool receiveHeader,
                    std::unique_ptr<SegmentPort> port);
    ~SegmentRxDevice() override;

    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    KESTATUS GetLostFrames(std::uint64_t& count) override;
    KESTATUS EnableRawRx() override;
    KESTATUS DisableRawRx() override;
    KESTATUS WaitForRawFrame(std::int32_t timeoutMs) override;
    KESTATUS GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer, std::uint32_t bufferSize,
                                 std::uint32_t& receivedLength) override;
    void Shutdown() noexcept override;

private:
    bool HasData();
    KESTATUS WaitState(std::uint32_t epoch) const noexcept;
    RingReader* ChooseReader() noexcept;
    void ChangeEpoch() noexcept;
    std::uint64_t DeliveryTime(std::uint64_t time) noexcept;
    std::uint32_t WriteItem(std::uint8_t* buffer, std::uint64_t time, std::uint32_t frameBytes) noexcept;

    const DeviceProperties mProperties;
    const std::uint32_t mHeaderBytes; // 0 without the receive header
    const std::unique_ptr<SegmentPort> mPort;
    std::atomic<bool> mShutdown{false};
    // Odd while enabled, as in the shared state, which is a copy of it. Changed with the lock held.
    std::atomic<std::uint32_t> mEpoch;
    std::mutex mMutex; // everything below
    std::vector<RingReader> mReaders;
    ReceiveSequence mSequence;
    std::uint64_t mLastTime = 0; // that was delivered since the enabling
};

} // namespace quayside2::segment

#endif
