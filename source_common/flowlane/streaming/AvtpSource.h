// The source that receives an AVTP stream (AvtpFormat.h) from a device opened for raw reception. It checks
// each frame layer by layer, puts the transport stream packets together again and hands them to its sink.
// Frames that are not for this receiver are ignored. After damage or loss the stream goes on with the next
// source packet.
//
// The device, the sink and the clock are not owned and must outlive the source. One owner thread creates,
// starts and stops the source. While it is started only the worker thread calls the sink and uses the device,
// except that StopSource disables reception, which wakes the worker. The statistics are for any thread. All
// messages go to the Global logger.
#ifndef FLOWLANE_AVTPSOURCE_H
#define FLOWLANE_AVTPSOURCE_H

#include <atomic>
#include <cstdint>

#include "KEOsWorkerThread.h"
#include "base/PipelineClock.h"
#include "base/StatisticsCounters.h"
#include "device/LostFrameCounter.h"
#include "device/QuaysideDevice.h"
#include "streaming/AvtpFormat.h"
#include "streaming/SinkBase.h"
#include "streaming/SourceBase.h"
#include "streaming/TSPacket.h"
#include "values/TNetAddress.h"

namespace flowlane {

enum class TSPacketAssemblerState {
    Synchronizing = 0,       // waits for the start of a source packet
    ReceivingDataBlocks = 1, // inside a source packet or between two
};

class AvtpSource final : public SourceBase {
public:
    struct Statistics {
        std::uint64_t infAvtpPacketsReceived = 0; // frames that passed the Ethernet and AVTP checks
        std::uint64_t infTsPacketsDelivered = 0;  // packets handed to the sink
        std::uint64_t infFramesTaken = 0;         // all frames that the device has delivered
        // Frames that were ignored.
        std::uint64_t infOtherDestination = 0; // for another receiver or a multicast group
        std::uint64_t infOtherSender = 0;      // not from the only sender to accept
        std::uint64_t infOtherUniqueId = 0;    // another stream than that of the unique ID, or without an ID
        std::uint64_t infOtherProtocol = 0;    // no AVTP
        std::uint64_t infOtherFormat = 0;      // AVTP that carries no transport stream
        // Losses.
        std::uint64_t errGaps = 0;          // places where the counters of the stream jump
        std::uint64_t errFramesDamaged = 0; // frames whose lengths do not agree
    };

    explicit AvtpSource(PipelineClock& clock = PipelineClock::System()) noexcept : mClock(clock) {}
    // Stops the source.
    ~AvtpSource();

    // sourceAddress: the only sender to accept; the broadcast address accepts any. The unique ID of the
    // stream is checked only when filterByUniqueId is true.
    //   KESTATUS_LENGTH_MISMATCH  the device's MAC address does not have 6 bytes
    // Other failures are the device's.
    [[nodiscard]] KESTATUS CreateAvtpSource(QuaysideDevice& device, SinkBase& sink,
                                            const kestrelon::TNET_EthernetMacAddress& sourceAddress,
                                            std::uint16_t uniqueId, bool filterByUniqueId);

    // Enables reception and starts the worker thread; the statistics begin at 0.
    //   KESTATUS_NOT_INITIALIZED  the source was not created
    //   KESTATUS_ALREADY_DONE     it was not stopped since the last start
    // Other failures are the device's or the system's.
    [[nodiscard]] KESTATUS StartSource() override;
    // Gives the worker thread up to a second to take what has been received. Then wakes it and waits for its
    // end without a time limit.
    void StopSource() override;

    Statistics QuerryStatistics() const noexcept;
    // Why the worker has ended by itself; success otherwise. From any thread.
    KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_acquire); }
    // Received frames that the device has lost since the source was created. 0 with a device library that
    // does not count them. At most a second old while frames come; exact after a failure and after
    // StopSource.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    // Runs on the worker thread.
    void ThreadRoutine();

private:
    void ReceiveUntilStopped();
    [[nodiscard]] KESTATUS WaitForFrames();
    [[nodiscard]] KESTATUS ProcessData();
    [[nodiscard]] KESTATUS ProcessFrames();
    void GiveUp(const char* format, KESTATUS st);
    void WaitUntilAllIsTaken();
    void ProcessEthernetFrame(const std::uint8_t* frame, unsigned length);
    bool CheckEthernetHeader(const std::uint8_t* frame, unsigned length, unsigned& headerSize);
    bool CheckDestinationAddress(const std::uint8_t* destination) const;
    bool CheckAvtpHeader(const std::uint8_t* header, unsigned length);
    bool CheckUniqueId(const std::uint8_t* header) const;
    static bool CheckCipFormat(const std::uint8_t* header);
    bool CheckCipHeader(const std::uint8_t* header, unsigned length);
    void ProcessDataBlocks(const std::uint8_t* data, unsigned length);
    void ProcessDataBlock(const std::uint8_t* block);
    void DeliverPacket();
    void NoteDamage() noexcept;
    void ResetTsPacketAssembler() noexcept;

    PipelineClock& mClock;
    LostFrameCounter mLostFrames;
    QuaysideDevice* mDevice = nullptr;
    kestrelon::KEOsWorkerThread mThread;
    std::atomic<bool> mIsWaiting{false}; // the worker has taken all frames and waits for the next one
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    kestrelon::TNET_EthernetMacAddress mMacAddress{};    // the device's own
    kestrelon::TNET_EthernetMacAddress mSourceAddress{}; // the only sender accepted, or broadcast
    AVTP_StreamID mStreamID{}; // for debugging: the checks compare only the unique ID
    TSPacket mTsPacket;        // being put together
    std::uint8_t* mCurTsPacketData = mTsPacket.mData;
    TSPacketAssemblerState mTsPacketState = TSPacketAssemblerState::Synchronizing;
    SinkBase* mSink = nullptr;
    StatisticsCounters<Statistics> mStats;
    std::uint16_t mUniqueID = 0;
    std::uint8_t mSequenceNumber = 0;  // expected next
    std::uint8_t mDataBlockCount = 0;  // expected of the next data block
    bool mSequenceNumberValid = false; // a frame has been accepted since the start
    bool mFilterByUniqueId = false;
    bool mIsReceptionEnabled = false;
};

} // namespace flowlane

#endif
