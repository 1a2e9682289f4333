// The sink that sends transport stream packets as an AVTP stream (AvtpFormat.h) through a device opened for
// raw transmission. Packets are gathered in one frame buffer. A frame goes to the device when it is full or
// when a batch ends. Frames that the device has no transmit resources for are dropped and counted; that is no
// failure.
//
// The device and the clock are not owned and must outlive the sink. The owner creates, starts and stops the
// sink while no source uses it. Delivering and sending are for the thread of the source; no other thread may
// use the device then. The statistics are for any thread. All messages go to the Global logger.
#ifndef FLOWLANE_AVTPSINK_H
#define FLOWLANE_AVTPSINK_H

#include <cstdint>

#include "base/PipelineClock.h"
#include "base/RelaxedCounter.h"
#include "device/LostFrameCounter.h"
#include "device/QuaysideDevice.h"
#include "streaming/AvtpFormat.h"
#include "streaming/SinkBase.h"
#include "text/KEFormatter.h"
#include "values/TNetAddress.h"

namespace flowlane {

enum class EthernetHeaderType : std::uint32_t { Undefined = 0, IEEE_802_3 = 1, IEEE_802_1q = 2 };

class AvtpSink final : public SinkBase {
public:
    // Bytes of source packets that an AVTP frame may carry.
    static constexpr unsigned MaxStreamDataPayloadLength = avtp::cMaxSourcePacketBytes;

    struct Statistics {
        std::uint64_t infAvtpPacketsSent = 0;   // frames submitted to the device
        std::uint64_t errNoResourcesToSent = 0; // frames dropped or delayed: no transmit resources
    };

    explicit AvtpSink(PipelineClock& clock = PipelineClock::System()) noexcept : mClock(clock) {}

    // Reads the device's MAC address, which is the source of the frames and the first part of the stream ID.
    // vlanTCI: 0 for frames without a VLAN tag. maxSourcePacketCount: packets per frame, 1 to 7; 0 and higher
    // values mean 7, as many as fit.
    //   KESTATUS_LENGTH_MISMATCH  the device's MAC address does not have 6 bytes
    // Other failures are the device's.
    [[nodiscard]] KESTATUS CreateAvtpSink(QuaysideDevice& device,
                                          const kestrelon::TNET_EthernetMacAddress& destinationAddress,
                                          std::uint16_t uniqueId, std::uint16_t vlanTCI,
                                          unsigned maxSourcePacketCount);

    // From now on SendDeliveredPackets sends a full frame too. Off otherwise.
    void SetSendFullFrames(bool isOn) noexcept { mSendFullFrames = isOn; }
    // How many packets fill a frame, once the sink is created.
    std::uint32_t MaxSourcePacketCount() const noexcept { return mMaxSourcePacketCount; }

    // Begins a new stream: sequence number and data block count start at 0. Always succeeds.
    [[nodiscard]] KESTATUS StartSink() override;
    // Asks the device once more for its lost frames. Does not send a part-filled frame.
    void StopSink() override;

    //   KESTATUS_NOT_INITIALIZED  the sink was not created or not started
    // Other failures are the device's.
    [[nodiscard]] KESTATUS DeliverTSPacket(const TSPacket& packet) override;
    // Sends a part-filled frame and flushes the device's queue. Does neither when no packet is gathered: a
    // full frame that was submitted before stays in the queue until the next part-filled one, or until the
    // queue is full. Unless full frames are to be sent.
    [[nodiscard]] KESTATUS SendDeliveredPackets() override;

    // Counted since construction.
    Statistics QuerryStatistics() const noexcept;
    // Frames that were submitted but that the device did not send, since the sink was created. 0 with a
    // device library that does not count them. At most a second old; exact after a failure and after
    // StopSink.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    // The steps of building a frame. The sink calls them itself.

    // Once per start.
    void InitEthernetHeader();
    // Once per frame, after StartSink. The AVTP header uses up a sequence number.
    void InitAvtpHeader() noexcept;
    void InitCipHeader() noexcept;

private:
    bool IsReady() const noexcept { return mDevice && mCurSourcePacket; }
    [[nodiscard]] KESTATUS AppendPacket(const TSPacket& packet);
    [[nodiscard]] KESTATUS SendFrames();
    [[nodiscard]] KESTATUS CompleteFrame();
    [[nodiscard]] KESTATUS SubmitEthernetFrame();
    std::uint8_t TakeSequenceNumber() noexcept;
    void ResetFrame() noexcept;

    PipelineClock& mClock;
    LostFrameCounter mLostFrames;
    std::uint8_t mEthernetFrame[avtp::cEthMaxFrameSize] = {};
    QuaysideDevice* mDevice = nullptr;
    EthernetHeaderType mEthernetHeaderType = EthernetHeaderType::Undefined;
    std::uint32_t mEthernetHeaderSize = 0;
    // Into mEthernetFrame; null until the sink is started.
    std::uint8_t* mAvtpHeader = nullptr;
    std::uint8_t* mCipHeader = nullptr;
    std::uint8_t* mSourcePacketStart = nullptr;
    std::uint8_t* mCurSourcePacket = nullptr; // where the next source packet goes
    kestrelon::TNET_EthernetMacAddress mSourceAddress{};
    kestrelon::TNET_EthernetMacAddress mDestinationAddress{};
    AVTP_StreamID mStreamId{};
    std::uint32_t mMaxSourcePacketCount = 0;
    std::uint32_t mSourcePacketCount = 0; // in the frame being built
    struct {
        RelaxedCounter infAvtpPacketsSent;
        RelaxedCounter errNoResourcesToSent;
    } mStats;
    std::uint16_t mStreamDataLength = 0; // of the frame being built, CIP header included
    std::uint16_t mVlanTCI = 0;
    std::uint8_t mDataBlockCount = 0; // counter of the first data block of the frame being built
    std::uint8_t mSequenceNumber = 0; // of the next frame
    bool mSendFullFrames = false;
    bool mWaitForResources = false; // the device had no transmit resources at the last try
};

} // namespace flowlane

namespace kestrelon::fmtimpl {

// Prints the number of the type.
template <>
int DoFormatAction<flowlane::EthernetHeaderType>(KEFormatterContext& context, const void* arg);

} // namespace kestrelon::fmtimpl

#endif
