// Replays a pcap-ng file, or a numbered set of files, through a device opened for raw transmission, with the
// packets' recorded spacing. A worker thread sends the frames that are due and reads ahead as far as there
// are free frames in the pool. Blocks and packets that cannot be replayed are counted and skipped; a time
// that goes back and failures to read or send end the replay.
//
// The device is not owned and outlives the reader. Starting and stopping are for one owner thread; state and
// statistics for any. While the thread runs, it alone uses the device. Messages go to the Global logger, but
// for that of a file that does not exist (Cons).
#ifndef FLOWLANE_PCAPNGFILEREADER_H
#define FLOWLANE_PCAPNGFILEREADER_H

#include <atomic>
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
#include "device/LostFrameCounter.h"
#include "device/QuaysideDevice.h"
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

    // Opens the first file, reads ahead and starts the thread; the first frame is due half a second later.
    // fileName: ".pcapng" is appended when it has no extension; for a set, "_" and a number of five digits
    // from startFileIndex on stand before the extension. frameCount frames of frameSize bytes are read ahead.
    // replaceSrcMacAddr: frames are sent with the device's own address. loopMode: again and again.
    // isStopRequested: whether the user asks for the end meanwhile; asked now and then on this thread while a
    // long file has brought no frame yet. Reading on is left to the thread when it answers true.
    //   KESTATUS_ALREADY_DONE       the reader was not stopped since the last start; nothing changes
    //   KESTATUS_NOT_PRESENT        the first file does not exist
    //   KESTATUS_LENGTH_MISMATCH    the device's MAC address is not one
    //   KESTATUS_INVALID_PARAMETER  no frames, or more than 4 GiB of them
    //   KESTATUS_NO_MEMORY
    // Other failures are those of opening and of reading ahead. Nothing stays open or allocated after one.
    [[nodiscard]] KESTATUS StartFileReader(const kestrelon::T_UNICHAR* fileName, unsigned startFileIndex,
                                           QuaysideDevice& device, unsigned frameCount, unsigned frameSize,
                                           bool replaceSrcMacAddr, bool readFileSet, bool loopMode,
                                           const StopCheck& isStopRequested = {});
    // Ends the replay; frames that are not due yet are not sent. Does nothing without a start.
    void StopFileReader();

    // All files have been read and all their frames sent.
    bool AreAllFramesSent() const noexcept { return mAreAllFramesSent.load(std::memory_order_acquire); }
    bool AreAllFilesRead() const noexcept { return CurrentState() == State::Done; }
    bool IsInErrorState() const noexcept { return CurrentState() == State::Error; }
    State CurrentState() const noexcept { return mPacketReader.CurrentState(); }

    // Why sending or reading ahead has failed, when CurrentState tells of an error; success when it was the
    // file's contents.
    [[nodiscard]] KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_relaxed); }

    // Frames that the device has not sent although they were submitted, since the start, as far as its
    // library counts them; about a second old while the thread runs, current after a failure to send and
    // after the end.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    void QuerryStatistics(Statistics& statistics) const noexcept { statistics = mStats.Snapshot(); }
    void ResetStatistics() noexcept { mStats.Clear(); }

    // The worker's work; it runs on its thread.
    void ThreadRoutine();

private:
    [[nodiscard]] KESTATUS OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize,
                                                 const StopCheck& isStopRequested);
    [[nodiscard]] KESTATUS ReadAhead(const StopCheck& isStopRequested);
    [[nodiscard]] KESTATUS ReadOn();
    void SendUntilStopped();
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
    const unsigned mBlockDelay = 10; // ms, between two rounds of the thread
    bool mIsStarted = false;
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    std::atomic<bool> mAreAllFramesSent{false};
};

} // namespace flowlane

#endif
