// The source that plays a transport stream file at its recorded rate. The packets between two packets with
// a program clock reference (PCR) are spread over the time between the two references; each is handed to
// the sink when its time has come, the first one 500 ms after the start.
//
// The file, the packets and the worker thread are owned, the sink and the clock are not and outlive the
// source. Threads: the owner creates, starts and stops; while started the file and the packets belong to
// the worker. IsEndOfFileReached, FailureStatus and QuerryStatistics are for any thread. No allocation while
// started. All messages go to the Global logger.
#ifndef FLOWLANE_TSFILESOURCE_H
#define FLOWLANE_TSFILESOURCE_H

#include <atomic>
#include <cstdint>

#include "KEOsWorkerThread.h"
#include "base/PipelineClock.h"
#include "base/RelaxedCounter.h"
#include "files/KEStdFileStream.h"
#include "streaming/SinkBase.h"
#include "streaming/SourceBase.h"
#include "streaming/TSPacketQueue.h"
#include "text/KEUnicode.h"

namespace flowlane {

class TSFileSource final : public SourceBase {
public:
    // Packets that reading may run ahead of delivery, for everyday streams.
    static constexpr unsigned cDefaultNumberOfPackets = 10000;

    struct Statistics {
        std::uint64_t infTsPacketsDelivered = 0; // packets that the sink took
    };

    explicit TSFileSource(PipelineClock& clock = PipelineClock::System()) noexcept : mClock(clock) {}
    // Stops a source that still runs.
    ~TSFileSource();

    // Opens the file and creates numberOfPackets packets, all that the source will ever use. rewindFile:
    // play the file again and again.
    //   KESTATUS_NO_MEMORY       there is none for the packets
    //   KESTATUS_INTERNAL_ERROR  the source was created before
    // A file that cannot be opened gives the status of errno.
    KESTATUS CreateTSFileSource(const kestrelon::T_UNICHAR* fileName, SinkBase& sink, bool rewindFile,
                                unsigned numberOfPackets);

    // Reads ahead as far as the packets go, then starts the worker thread, which ends by itself at the end
    // of the file or after a failure. Started again after a stop, the source goes on where the file is.
    //   KESTATUS_READ_FILE_FAILED
    //   KESTATUS_ALREADY_DONE  started and not stopped since, even if the worker has ended
    KESTATUS StartSource() override;
    // Waits until the worker has ended; it looks for the request every 10 ms.
    void StopSource() override;

    // True when a source that does not loop has read its whole file and all packets that have a time were
    // sent or given up. What stands behind the last PCR of the file is never delivered.
    bool IsEndOfFileReached() const noexcept { return mIsEndOfFileReached.load(std::memory_order_acquire); }
    // Why the worker gave up; success while it has not. Ask after IsEndOfFileReached.
    KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_acquire); }

    // Counted since the last start.
    Statistics QuerryStatistics() const noexcept { return {mStats.infTsPacketsDelivered.Value()}; }

    // The parts of the worker's loop, for the thread that runs the source.

    // Reads packets while there are free ones, and times those whose segment is complete. So that a stop does
    // not have to wait, it ends early when it has dropped many packets, and when a pipe brings nothing for
    // 10 ms; the next call reads on.
    //   KESTATUS_READ_FILE_FAILED
    KESTATUS FillDeliverQueue();
    // Hands the packets that are due at now to the sink. The sink's failure is returned at once; the packet
    // that it did not take is gone.
    KESTATUS DeliverPackets(TSPacketTimePoint now);
    void ThreadRoutine();
    // The pause between two passes of the loop.
    void BlockThread() noexcept { mClock.Sleep(mBlockDelay); }

private:
    enum class ReadResult { Packet, NothingMore, NotYet, Failed };

    bool IsPipe() const noexcept;
    bool WaitForData() noexcept;
    ReadResult ReadPacket(TSPacket& packet);
    bool RewindFile();
    void AppendReadPacket(TSPacket& packet);
    void DropReadPacket(TSPacket& packet);
    void DropReadPacketsUntil(std::uint32_t count);
    void SetTimeBase(const TSPacket& packet) noexcept;
    void TimeSegment(TSPacketDuration t0, TSPacketDuration timeDiff) noexcept;
    void DropUnfinishedSegment();
    void DeliverUntilStopped();
    void GiveUp(const char* format, KESTATUS st);
    void ReleaseAllPackets();
    void PublishEndOfFile() noexcept;

    PipelineClock& mClock;
    kestrelon::KEStdFileStream mFile;
    kestrelon::KEOsWorkerThread mThread;
    TSPacketPool mPacketPool;
    // Packets without a time yet: from one packet with a PCR to the next one.
    TSPacketQueue mReadPackets;
    TSPacketQueue mPacketsToDeliver;
    TSPacketDuration mPCRTimeOffset{}; // from a PCR's time to the clock's
    const TSPacketDuration mInitialOffset = std::chrono::milliseconds(500);
    TSPacketTimePoint mLastDeliverTime; // of the packet that was timed last
    // Pause between the last packet of one pass through the file and the first of the next.
    const TSPacketDuration mLoopbackOffset = std::chrono::milliseconds(100);
    const std::uint32_t mBlockDelay = 10; // ms, between two passes of the worker's loop
    SinkBase* mSink = nullptr;
    struct {
        RelaxedCounter infTsPacketsDelivered;
    } mStats;
    bool mPCRTimeOffsetValid = false; // a PCR was seen since the start or the last rewind
    bool mAddInitialOffset = false;   // the next time base is taken from the clock
    bool mRewindFile = false;
    // Of FillDeliverQueue.
    std::uint32_t mDroppedPackets = 0; // in this call
    TSPacketTimePoint mWaitEnd;        // until then this call waits for a pipe
    bool mIsPipe = false;
    bool mHasToReadOn = false; // the last call ended early: no pause before the next one
    bool mMayRewind = true;    // a packet was timed since the last rewind, or there was no rewind
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    std::atomic<bool> mIsEndOfFileReached{false}; // what IsEndOfFileReached answers to other threads
};

} // namespace flowlane

#endif
