// The sink that sends transport stream packets as an AVTP stream (AvtpFormat.h) through a device opened for
// raw transmission. Packets are gathered in one frame buffer; a frame goes to the device when it is full or
// when a batch ends. A device without transmit resources loses frames, which is counted and no failure.
//
// The device and the clock are not owned and outlive the sink. Creating, starting and stopping are for the
// owner while no source uses the sink; delivering and sending are for the thread of the source, which alone
// uses the device then; the statistics are for any thread. All messages go to the Global logger.
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
        std::uint64_t errNoResourcesToSent = 0; // frames dropped or delayed for want of transmit resources
    };

    explicit AvtpSink(PipelineClock& clock = PipelineClock::System()) noexcept : mClock(clock) {}

    // Reads the device's MAC address, which is the frames' source and the first part of the stream ID.
    // vlanTCI 0: frames without a VLAN tag. maxSourcePacketCount: packets a frame; 0, and whatever a frame
    // cannot hold, stand for the 7 that fit.
    //   KESTATUS_LENGTH_MISMATCH  the device's MAC address is not one
    KESTATUS CreateAvtpSink(QuaysideDevice& device,
                            const kestrelon::TNET_EthernetMacAddress& destinationAddress,
                            std::uint16_t uniqueId, std::uint16_t vlanTCI, unsigned maxSourcePacketCount);

    // Begins a new stream: sequence number and data block count start at 0. Always succeeds.
    KESTATUS StartSink() override;
    // Looks once more how many frames the device has lost. A part-filled frame is abandoned.
    void StopSink() override;

    //   KESTATUS_NOT_INITIALIZED  the sink was not created or not started
    // Other failures are the device's.
    KESTATUS DeliverTSPacket(const TSPacket& packet) override;
    // Sends a part-filled frame and flushes the device's queue. With nothing gathered it does neither: a
    // full frame that was submitted before waits for the next part-filled one or for a full queue.
    KESTATUS SendDeliveredPackets() override;

    // Counted since construction.
    Statistics QuerryStatistics() const noexcept;
    // Frames that were submitted and that the device did not send, since the sink was created; 0 with device
    // libraries that do not count them. At most a second old, exact after a failure and after StopSink.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    // The parts of building a frame; the sink calls them itself.

    // Writes the Ethernet header, once a start.
    void InitEthernetHeader();
    // Write the headers of the frame being built. Only after StartSink; the AVTP header uses up a sequence
    // number.
    void InitAvtpHeader() noexcept;
    void InitCipHeader() noexcept;

private:
    bool IsReady() const noexcept { return mDevice && mCurSourcePacket; }
    KESTATUS AppendPacket(const TSPacket& packet);
    KESTATUS SendPartFilledFrame();
    KESTATUS CompleteFrame();
    KESTATUS SubmitEthernetFrame();
    KESTATUS WaitUntilSubmittable(unsigned frameLength, bool& isDropped);
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
    bool mWaitForResources = false;   // the device had no transmit resources at the last try
};

} // namespace flowlane

namespace kestrelon::fmtimpl {

// Prints the type's number.
template <>
int DoFormatAction<flowlane::EthernetHeaderType>(KEFormatterContext& context, const void* arg);

} // namespace kestrelon::fmtimpl

#endif
