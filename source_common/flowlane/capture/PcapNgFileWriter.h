// Records received frames in a pcap-ng file or a numbered set of files. The receive loop borrows a frame, has
// the device fill it and hands it over; a worker thread writes the frames, gives them back to the pool and
// starts the next file of a set. Frames that are lost on the way are counted, and their number stands with
// the next packet in the file.
//
// The receive loop, for each frame: GetRawFrame; receive into its buffer, or into one of the loop's own when
// there is none; CheckRawFrame. When that is false, ReleaseRawFrame. When it is true, PoolUnderflowOccurred
// without a frame, else set size and type, and WriteRawFrame.
//
// Starting and stopping are for one owner thread, the calls above for one receiving thread, the statistics
// for any. Messages go to the Global logger, but for that of an invalid time (Cons).
#ifndef FLOWLANE_PCAPNGFILEWRITER_H
#define FLOWLANE_PCAPNGFILEWRITER_H

#include <cstdint>

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
    // Begins the payload of the frame that stands for an external trigger.
    static constexpr std::uint32_t TriggerEthernetFrameMagic = triggerframe::cMagic;

    using Statistics = PcapNgWriterStatistics;

    PcapNgFileWriter() noexcept;
    // Stops the writer.
    ~PcapNgFileWriter();
    PcapNgFileWriter(const PcapNgFileWriter&) = delete;
    PcapNgFileWriter& operator=(const PcapNgFileWriter&) = delete;

    // Opens the first file and starts the thread. fileName: "_" and a number of five digits are appended to
    // it when there is a limit, and ".pcapng". The device gives the file its interface's name, description
    // and address. frameCount frames of frameSize bytes, receive header included, may wait to be written.
    // maxFileSize: in bytes, a file ends with the first packet that takes it beyond; 0 for no limit.
    //   KESTATUS_ALREADY_DONE  the writer was not stopped since the last start
    //   KESTATUS_NO_MEMORY
    // Other failures are the system's. Nothing is left open or allocated after a failure.
    [[nodiscard]] KESTATUS StartFileWriter(const kestrelon::T_UNICHAR* fileName, QuaysideDevice& device,
                                           unsigned frameCount, unsigned frameSize,
                                           std::uint64_t maxFileSize);
    // Writes what has been handed over, closes the file and frees the pool, which has to have all frames
    // back. Does nothing when the writer was not started.
    void StopFileWriter();

    // A free frame, null when there is none; it is the caller's until handed over or released.
    RawFrame* GetRawFrame() noexcept;
    void ReleaseRawFrame(RawFrame* frame) noexcept;
    // A received frame was discarded because there was no free frame.
    void PoolUnderflowOccurred() noexcept;
    // Whether the frame is to be recorded; looks for gaps in the sequence. frame: with its receive header.
    bool CheckRawFrame(QBXRawFrameType type, kestrelon::KEConstBufferReference frame);
    // Hands a frame over, with its size and type set, whatever the status.
    //   KESTATUS_NOT_POSSIBLE  the thread has ended with a failure; the frame is not written
    [[nodiscard]] KESTATUS WriteRawFrame(RawFrame* frame);

    // With what the thread has ended by itself; success as long as it has not.
    [[nodiscard]] KESTATUS ThreadStatus() const noexcept;

    void QuerryStatistics(Statistics& statistics) const noexcept { statistics = mStats.Snapshot(); }
    void ResetStatistics() noexcept { mStats.Clear(); }

    // The worker's work; it runs on its thread.
    void ThreadRoutine();

private:
    [[nodiscard]] KESTATUS OpenFirstFileAndStart(const kestrelon::T_UNICHAR* fileName,
                                                 std::uint64_t maxFileSize, unsigned frameCount,
                                                 unsigned frameSize);
    [[nodiscard]] KESTATUS OpenNextFile();
    [[nodiscard]] KESTATUS WriteUntilStopped();
    [[nodiscard]] KESTATUS WriteAllFramesToFile();

    kestrelon::KEOsWorkerThread mThread;
    kestrelon::KEOsThreadMutexAutoCreate mMutex; // guards the pool and the list of pending frames
    RawFramePool mFramePool;
    kestrelon::KEOsWaitableQueue<RawFrame, kestrelon::KEEmptyLock> mPendingFrames;
    PcapNgWriterCounters mStats;      // each is raised by one thread
    PcapNgPacketWriter mPacketWriter; // the thread's while it runs
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
    bool mIsStarted = false;
};

} // namespace flowlane

#endif
