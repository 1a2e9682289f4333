// The source that plays a transport stream file at its recorded rate. The packets between two packets with
// a program clock reference (PCR) are spread over the time between the two references. Each is handed to the
// sink when its time has come, the first one 500 ms after the start.
//
// The file, the packets and the worker thread are owned. The sink and the clock are not owned and must
// outlive the source. The owner's thread creates, starts and stops the source; while it is started, the file
// and the packets belong to the worker. IsEndOfFileReached, FailureStatus, ReadFailure, QuerryStatistics and
// Position are for any thread. Nothing is allocated while the source is started. All messages go to the
// Global logger.
#ifndef FLOWLANE_TSFILESOURCE_H
#define FLOWLANE_TSFILESOURCE_H

#include <atomic>
#include <cstdint>

#include "KEOsWorkerThread.h"
#include "base/PipelineClock.h"
#include "base/StatisticsCounters.h"
#include "files/KEStdFileStream.h"
#include "streaming/SinkBase.h"
#include "streaming/SourceBase.h"
#include "streaming/TSPacketQueue.h"
#include "text/KEUnicode.h"

namespace flowlane {

class TSFileSource final : public SourceBase {
public:
    // How many packets reading may run ahead of delivery; enough for everyday streams.
    static constexpr unsigned cDefaultNumberOfPackets = 10000;

    // Of all passes through the file. Reading runs ahead of delivery, so what reading counts may not have had
    // its turn yet. The first packet with a fault is given by its number in the file, from 1; 0 is none.
    struct Statistics {
        std::uint64_t infTsPacketsDelivered = 0; // packets that the sink took
        std::uint64_t infTsPacketsRead = 0;      // whole packets
        std::uint64_t infTsPacketsTimed = 0;     // packets between two PCRs: to be delivered
        std::uint64_t infPCRs = 0;               // packets with a PCR
        std::uint64_t infOtherPCRs = 0;          // of these, with another PID than the first
        std::uint64_t infRunningSegments = 0;    // segments that take time
        std::uint64_t infEndsOfFile = 0;         // how often reading came to the end of the file
        std::uint64_t errInvalidPackets = 0;     // dropped: no sync byte
        std::uint64_t infFirstInvalidPacket = 0;
        std::uint64_t errForwardStepPackets = 0; // dropped: the clock steps forward by a second or more
        std::uint64_t infFirstForwardStep = 0;   // number of the packet behind the step
        std::uint64_t errUnfinishedPackets = 0;  // dropped: too many packets without a PCR
        std::uint64_t infFirstUnfinished = 0;    // number of the packet that did not fit any more
        std::uint64_t errBackwardSteps = 0;      // how often the clock goes back
        std::uint64_t infFirstBackwardStep = 0;  // number of the packet behind the step
    };

    explicit TSFileSource(PipelineClock& clock = PipelineClock::System()) noexcept : mClock(clock) {}
    // Stops a source that still runs.
    ~TSFileSource();

    // Opens the file and creates numberOfPackets packets, all that the source will ever use. rewindFile:
    // play the file again and again.
    //   KESTATUS_NO_MEMORY       no memory for the packets
    //   KESTATUS_INTERNAL_ERROR  the source was created before
    // A file that cannot be opened gives the status of errno.
    [[nodiscard]] KESTATUS CreateTSFileSource(const kestrelon::T_UNICHAR* fileName, SinkBase& sink,
                                              bool rewindFile, unsigned numberOfPackets);

    // Hands packets over in groups that fill a frame of the sink: each group when the last of its packets is
    // due, but at the latest 10 ms after the first one is, with those that are due by then. Without this call
    // every 10 ms those that are due. For the owner's thread, before the start.
    void SetPreciseTiming(std::uint32_t packetsPerFrame) noexcept { mPacketsPerFrame = packetsPerFrame; }

    // Reads ahead until no packet is free, then starts the worker thread. The worker ends by itself at the
    // end of the file or after a failure. A source that was stopped goes on where it was in the file.
    //   KESTATUS_READ_FILE_FAILED
    //   KESTATUS_ALREADY_DONE  it was not stopped since the last start, even if the worker has ended
    // Other failures are the system's.
    [[nodiscard]] KESTATUS StartSource() override;
    // Waits until the worker has ended; it checks for the stop every 10 ms.
    void StopSource() override;

    // True when a source that does not loop has read its whole file, and has sent or given up all packets
    // that have a time. Packets after the last PCR of the file have none and are never delivered.
    bool IsEndOfFileReached() const noexcept { return mIsEndOfFileReached.load(std::memory_order_acquire); }
    // Why the worker has failed; success while it has not. Final once IsEndOfFileReached has returned true.
    KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_acquire); }

    // Why reading has failed: the status of errno. Success while it has not. Only when FailureStatus or
    // StartSource has returned KESTATUS_READ_FILE_FAILED.
    KESTATUS ReadFailure() const noexcept { return mReadFailure; }

    // Counted since the last start.
    Statistics QuerryStatistics() const noexcept { return mStats.Snapshot(); }
    // The time from the first PCR of the file to the last one that was delivered, of the same PID. Begins
    // anew with each pass. Negative when that one is earlier.
    TSPacketDuration Position() const noexcept {
        return TSPacketDuration(mPosition.load(std::memory_order_relaxed));
    }

    // The steps of the worker's loop, for the thread that runs the source.

    // Reads packets while there are free ones, and times those whose segment is complete. Returns early when
    // it has dropped many packets, when a pipe brings nothing for 10 ms, or with precise timing when a frame
    // is due, so that neither a stop nor a frame has to wait. The next call reads on.
    //   KESTATUS_READ_FILE_FAILED
    [[nodiscard]] KESTATUS FillDeliverQueue();
    // Hands the packets that are due at now to the sink. Returns at once when the sink fails; the packet that
    // it did not take is lost.
    [[nodiscard]] KESTATUS DeliverPackets(TSPacketTimePoint now);
    void ThreadRoutine();
    // The pause between two passes of the loop.
    void BlockThread() noexcept { mClock.Sleep(mBlockDelay); }

private:
    enum class ReadResult { Packet, NothingMore, NotYet, Failed };

    using Counter = std::uint64_t Statistics::*;

    bool IsPipe() const noexcept;
    bool WaitForData() noexcept;
    ReadResult ReadPacket(TSPacket& packet);
    [[nodiscard]] KESTATUS EndReading(ReadResult result);
    [[nodiscard]] KESTATUS RewindFile();
    ReadResult FailReading(KESTATUS reason) noexcept;
    [[nodiscard]] KESTATUS DeliverBatch(TSPacketTimePoint now, std::uint32_t maxCount);
    bool IsTimingPrecise() const noexcept { return mPacketsPerFrame != 0; }
    TSPacketTimePoint NextFrameTime() const noexcept;
    bool IsFullFrameDue() const noexcept;
    [[nodiscard]] KESTATUS DeliverFrames();
    void Pause() noexcept;
    void SleepUntilNextFrame() noexcept;
    void TakeReadPacket(TSPacket& packet);
    void CountPCR(const TSPacket& packet) noexcept;
    void CountFault(Counter counter, std::uint64_t count, Counter firstPacket) noexcept;
    void AppendReadPacket(TSPacket& packet);
    void DropReadPacket(TSPacket& packet);
    void DropReadPacketsUntil(std::uint32_t count);
    void SetTimeBase(const TSPacket& packet) noexcept;
    void TimeSegment(TSPacketDuration t0, TSPacketDuration timeDiff) noexcept;
    void DropUnfinishedSegment();
    void PublishPosition(const TSPacket& packet) noexcept;
    void DeliverUntilStopped();
    void GiveUp(const char* format, KESTATUS st);
    void ReleaseAllPackets();
    // Called wherever the end may have been reached or left, and not earlier: a thread that sees the end also
    // sees that the last packet was sent, or why not.
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
    StatisticsCounters<Statistics> mStats;
    std::uint64_t mPacketNumber = 0; // of the packet that was read last, in this pass through the file
    // The first PCR of the file and its PID. Valid once a PCR was counted.
    std::uint64_t mFirstPCR = 0;
    std::uint16_t mFirstPCRPID = 0;
    std::atomic<std::int64_t> mPosition{0}; // ns
    KESTATUS mReadFailure = KESTATUS_SUCCESS;
    std::uint32_t mPacketsPerFrame = 0; // with precise timing; 0 without it
    bool mPCRTimeOffsetValid = false;   // a PCR was seen since the start or the last rewind
    bool mAddInitialOffset = false;     // the next time base is taken from the clock
    bool mRewindFile = false;
    // Of FillDeliverQueue.
    std::uint32_t mDroppedPackets = 0; // in this call
    TSPacketTimePoint mWaitEnd;        // how long this call waits for a pipe
    bool mIsPipe = false;
    bool mHasToReadOn = false; // the last call ended early: no pause before the next one
    bool mMayRewind = true;    // a packet was timed since the last rewind, or there was no rewind
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    std::atomic<bool> mIsEndOfFileReached{false}; // see PublishEndOfFile
};

} // namespace flowlane

#endif
