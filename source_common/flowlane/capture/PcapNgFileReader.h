// Replays a pcap-ng file, or a numbered set of files, through a device opened for raw transmission. The
// frames keep the spacing of the recording. A worker thread sends the frames that are due, and reads ahead
// while the pool has free frames. It does so every 10 ms, or with precise timing whenever a frame is due.
// Blocks and packets that cannot be replayed are counted and skipped. A packet that is earlier than the one
// before ends the replay, and so does a failure to read or to send.
//
// PcapNgFileSet chooses the files, PcapNgPacketReader reads them, and RawFrameSender sends. This class starts
// and stops them, and runs the thread.
//
// The device is not owned and outlives the reader. One owner thread starts and stops; any thread asks for
// state and statistics. While the worker thread runs, it alone uses the device. Messages go to the Global
// logger, except that a first file that does not exist is reported on Cons.
#ifndef FLOWLANE_PCAPNGFILEREADER_H
#define FLOWLANE_PCAPNGFILEREADER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "KEOsWorkerThread.h"
#include "base/PipelineClock.h"
#include "capture/PcapNgFileSet.h"
#include "capture/PcapNgPacketReader.h"
#include "capture/PcapNgReaderStatistics.h"
#include "capture/RawFrame.h"
#include "capture/RawFramePool.h"
#include "capture/RawFrameSender.h"
#include "capture/ReplayFailure.h"
#include "capture/ReplayedPackets.h"
#include "device/LostFrameCounter.h"
#include "device/QuaysideDevice.h"
#include "files/KEStdPath.h"
#include "kestatus.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgFileReader {
public:
    using State = PcapNgPacketReader::State;
    // "???" for any other value.
    static const char* StrForState(State state) noexcept { return PcapNgPacketReader::StrForState(state); }

    using Statistics = PcapNgReaderStatistics;
    using StopCheck = std::function<bool()>;

    explicit PcapNgFileReader(PipelineClock& clock = PipelineClock::System()) noexcept;
    // Stops the reader.
    ~PcapNgFileReader();
    PcapNgFileReader(const PcapNgFileReader&) = delete;
    PcapNgFileReader& operator=(const PcapNgFileReader&) = delete;

    // Sends each frame at its own time, instead of every 10 ms what is due then. For the owner thread, before
    // the start; off otherwise.
    void SetPreciseTiming(bool isPrecise) noexcept { mIsTimingPrecise = isPrecise; }

    // Opens the first file, reads ahead and starts the thread. The first frame is due half a second later.
    //   fileName           ".pcapng" is appended when it has no extension
    //   readFileSet        reads a set of files: "_" and a number come before the extension
    //                      (CaptureFileName.h), counted up from startFileIndex until a file is missing
    //   frameCount         how many frames are read ahead, of at most frameSize bytes each
    //   replaceSrcMacAddr  frames are sent with the device's own address as their source
    //   loopMode           the file or the set is replayed again and again
    //   isStopRequested    true when the user asks for the end; called from time to time on this thread while
    //                      a long file has no frame yet. When it is true, the thread does the reading.
    // Status:
    //   KESTATUS_ALREADY_DONE       the reader was not stopped since the last start; nothing changes
    //   KESTATUS_NOT_PRESENT        the first file does not exist
    //   KESTATUS_LENGTH_MISMATCH    the device's MAC address does not have 6 bytes
    //   KESTATUS_INVALID_PARAMETER  frameCount is 0, or the frames would exceed 4 GiB
    //   KESTATUS_NO_MEMORY
    // Other failures are those of opening a file and of reading ahead. A failed start leaves nothing open or
    // allocated.
    [[nodiscard]] KESTATUS StartFileReader(const kestrelon::T_UNICHAR* fileName, unsigned startFileIndex,
                                           QuaysideDevice& device, unsigned frameCount, unsigned frameSize,
                                           bool replaceSrcMacAddr, bool readFileSet, bool loopMode,
                                           const StopCheck& isStopRequested = {});
    // Ends the replay. Frames that are not due yet are not sent. Does nothing without a start.
    void StopFileReader();

    // All files have been read and all their frames sent.
    bool AreAllFramesSent() const noexcept { return mAreAllFramesSent.load(std::memory_order_acquire); }
    bool AreAllFilesRead() const noexcept { return CurrentState() == State::Done; }
    bool IsInErrorState() const noexcept { return CurrentState() == State::Error; }
    State CurrentState() const noexcept { return mPacketReader.CurrentState(); }

    // In the state Error: the status of the failure to send or to read, or success when the contents of the
    // file were the reason.
    [[nodiscard]] KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_relaxed); }

    // Why the last start has failed, or why the replay has ended in the state Error. For the owner thread.
    const ReplayFailure& Failure() const noexcept { return mPacketReader.Failure(); }
    // The name of a file of the replay by the number in ReplayFailure.
    kestrelon::KEStdPath FilePath(std::uint32_t number) const { return mFiles.FilePath(number); }
    // The recorded time from the first packet of this pass through the files to the frame that was sent last.
    std::chrono::nanoseconds Position() const noexcept {
        return std::chrono::nanoseconds(mPosition.load(std::memory_order_relaxed));
    }
    // The packets of the files so far.
    ReplayedPackets Packets() const noexcept { return mPacketReader.Packets(); }

    // Frames submitted since the start that the device has not sent, as far as its library counts them. The
    // number is about a second old while the thread runs. It is current after a failure to send and after the
    // end.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    void QuerryStatistics(Statistics& statistics) const noexcept { statistics = mStats.Snapshot(); }
    void ResetStatistics() noexcept { mStats.Clear(); }

    // What the worker thread does.
    void ThreadRoutine();

private:
    [[nodiscard]] KESTATUS OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize,
                                                 const StopCheck& isStopRequested);
    [[nodiscard]] KESTATUS ReadAhead(const StopCheck& isStopRequested);
    [[nodiscard]] KESTATUS ReadOn();
    void SendUntilStopped();
    bool HasDueFrames() noexcept;
    void Pause() noexcept;
    void SleepUntilNextFrame() noexcept;
    void NoteSendFailure(KESTATUS st) noexcept;
    void Fail(KESTATUS st);

    PipelineClock& mClock;
    kestrelon::KEOsWorkerThread mThread;
    PcapNgFileSet mFiles;
    RawFramePool mFramePool;
    RawFrameList mFramesToSent; // from the packet reader to the frame sender, in the order of the files
    PcapNgReaderCounters mStats;
    PcapNgPacketReader mPacketReader;
    RawFrameSender mFrameSender;
    LostFrameCounter mLostFrames;
    const unsigned mBlockDelay = 10; // ms, the pause of the thread between two rounds
    bool mIsStarted = false;
    bool mIsTimingPrecise = false;
    RawFrameTimePoint mLastLook; // at the clock, while reading with precise timing
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    std::atomic<bool> mAreAllFramesSent{false};
    std::atomic<std::int64_t> mPosition{0}; // ns
};

} // namespace flowlane

#endif
