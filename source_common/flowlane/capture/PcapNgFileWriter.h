// Records received frames in a pcap-ng file or a numbered set of files. The receive loop (FrameReceiver)
// borrows a frame, has the device fill it and hands it over. A worker thread writes the frames, gives them
// back to the pool and starts the next file of a set. Lost frames are counted, and the next packet in the
// file carries their number.
//
// The receive loop's calls for each received frame:
//   1. GetRawFrame. The frame is received into its buffer, or into a spare buffer when there is no frame.
//   2. CheckRawFrame.
//   3. When that is false, ReleaseRawFrame. When it is true, WriteRawFrame with size and type set, or
//      PoolUnderflowOccurred when there was no frame.
// When it takes many frames one after the other, it makes these calls within a Batch.
//
// One owner thread starts and stops, one receiving thread makes the calls above, any thread asks for the
// statistics. Messages go to the Global logger, except that an invalid time is reported on Cons.
#ifndef FLOWLANE_PCAPNGFILEWRITER_H
#define FLOWLANE_PCAPNGFILEWRITER_H

#include <cstdint>
#include <string>

#include "KEOsThreadMutex.h"
#include "KEOsWaitableQueue.h"
#include "KEOsWorkerThread.h"
#include "base/KEBuffer.h"
#include "base/KEEmptyLock.h"
#include "capture/PcapNgPacketWriter.h"
#include "capture/PcapNgWriterStatistics.h"
#include "capture/RawFramePool.h"
#include "capture/TriggerFrame.h"
#include "device/QuaysideDevice.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgFileWriter {
public:
    // The first four bytes of the payload of a trigger frame, see TriggerFrame.h.
    static constexpr std::uint32_t TriggerEthernetFrameMagic = triggerframe::cMagic;

    using Statistics = PcapNgWriterStatistics;

    // While it exists, the frames that are handed over are gathered, so that one lock and one wake-up serve
    // many of them. Its end passes on what is gathered. For the receiving thread; one at a time.
    class Batch {
    public:
        explicit Batch(PcapNgFileWriter& writer) noexcept : mWriter(writer) { mWriter.BeginBatch(); }
        ~Batch() { mWriter.EndBatch(); }
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        PcapNgFileWriter& mWriter;
    };

    PcapNgFileWriter() noexcept;
    // Stops the writer.
    ~PcapNgFileWriter();
    PcapNgFileWriter(const PcapNgFileWriter&) = delete;
    PcapNgFileWriter& operator=(const PcapNgFileWriter&) = delete;

    // Opens the first file and starts the thread.
    //   fileName     ".pcapng" is appended, and before it a number when there is a limit (CaptureFileName.h)
    //   device       its name, description and address are recorded in each file
    //   frameCount   how many frames can wait to be written, of frameSize bytes each, receive header included
    //   maxFileSize  bytes; a file ends with the first packet that takes it beyond; 0 for no limit
    // Status:
    //   KESTATUS_ALREADY_DONE       the writer was not stopped since the last start
    //   KESTATUS_INVALID_PARAMETER  the frames would exceed 4 GiB
    //   KESTATUS_NO_MEMORY
    // Other failures are the system's. A failed start leaves nothing open or allocated.
    [[nodiscard]] KESTATUS StartFileWriter(const kestrelon::T_UNICHAR* fileName, QuaysideDevice& device,
                                           unsigned frameCount, unsigned frameSize,
                                           std::uint64_t maxFileSize);
    // Writes the frames that were handed over, closes the file and frees the pool. All frames have to be
    // handed over or released before. Does nothing without a start.
    void StopFileWriter();

    // A free frame, or null when there is none. The caller has it until it is handed over or released.
    RawFrame* GetRawFrame() noexcept;
    void ReleaseRawFrame(RawFrame* frame) noexcept;
    // Counts a received frame that was discarded because there was no free frame.
    void PoolUnderflowOccurred() noexcept;
    // True when the frame is to be recorded. Counts the frames that are missing before it, by its sequence
    // number. frame begins with its receive header.
    bool CheckRawFrame(QBXRawFrameType type, kestrelon::KEConstBufferReference frame);
    // Hands over a frame whose size and type are set. The caller gives it up, whatever the status.
    //   KESTATUS_NOT_POSSIBLE  the thread has ended with a failure; the frame is not written
    [[nodiscard]] KESTATUS WriteRawFrame(RawFrame* frame);

    // The failure that has ended the thread; success while it runs.
    [[nodiscard]] KESTATUS ThreadStatus() const noexcept;

    // Success while writing works; else why the file cannot be opened or written, also after a failed start:
    // the status of an errno where there is one. For any thread.
    [[nodiscard]] KESTATUS WriteStatus() const noexcept { return mPacketWriter.WriteStatus(); }
    // The file that is written or could not be opened. For any thread behind the start. Throws
    // std::bad_alloc.
    std::string FileName() const { return mPacketWriter.FileName(); }

    void QuerryStatistics(Statistics& statistics) const noexcept { statistics = mStats.Snapshot(); }
    void ResetStatistics() noexcept { mStats.Clear(); }

    // What the worker thread does.
    void ThreadRoutine();

private:
    [[nodiscard]] KESTATUS OpenFirstFileAndStart(const kestrelon::T_UNICHAR* fileName,
                                                 std::uint64_t maxFileSize, unsigned frameCount,
                                                 unsigned frameSize);
    void TakeBackAllFrames() noexcept;

    void BeginBatch() noexcept { mGatherLimit = mBatchSize; }
    void EndBatch() noexcept;
    [[nodiscard]] KESTATUS HandOverGatheredFrames() noexcept;

    [[nodiscard]] KESTATUS OpenNextFile();
    [[nodiscard]] KESTATUS WriteUntilStopped();
    [[nodiscard]] KESTATUS WriteAllFramesToFile();
    bool TakePendingFrames() noexcept;
    void GiveBackWrittenFrames() noexcept;

    kestrelon::KEOsWorkerThread mThread;
    kestrelon::KEOsThreadMutexAutoCreate mMutex; // guards the pool and the list of pending frames
    RawFramePool mFramePool;
    kestrelon::KEOsWaitableQueue<RawFrame, kestrelon::KEEmptyLock> mPendingFrames;
    PcapNgWriterCounters mStats; // each field is raised by one thread
    unsigned mBatchSize = 1;     // frames; a small part of the pool
    bool mIsStarted = false;

    // The thread's while it runs. It shares no cache line with what the receive loop writes.
    alignas(64) PcapNgPacketWriter mPacketWriter;
    RawFrameList mTakenFrames;   // from the queue, to be written
    RawFrameList mWrittenFrames; // to be given back to the pool

    // The receive loop's.
    alignas(64) RawFrameList mFreeFrames; // from the pool, for the next frames
    RawFrameList mGatheredFrames;         // handed over, but not in the queue yet
    unsigned mGatheredCount = 0;
    unsigned mGatherLimit = 1; // so many gathered frames go into the queue
    // The number of lost frames has this name on its whole way into the file. It moves on with the next
    // frame, so that it reaches the packet behind the gap however far the thread is behind:
    //   1. PcapNgFileWriter::mFramesDropped    the receive loop counts frames lost since the last hand-over
    //   2. RawFrame::mFramesDropped            the frame that is handed over next takes the number with it
    //   3. PcapNgPacketWriter::mFramesDropped  the thread adds it up, and the packets that it cannot write
    //   4. the drop count of a packet          the next packet that is written takes the sum
    // Statistics::FramesDropped() is the sum of all losses since the start.
    std::uint64_t mFramesDropped = 0;
    std::uint32_t mSequenceNumber = 0; // expected next
    bool mSequenceNumberValid = false;
};

} // namespace flowlane

#endif
