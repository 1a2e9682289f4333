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
#include <string>

#include "KEOsWorkerThread.h"
#include "PcapNgEnhPacketBlock.h"
#include "PcapNgFile.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgSectionHeaderBlock.h"
#include "base/KEBuffer.h"
#include "base/PipelineClock.h"
#include "capture/PcapNgReaderStatistics.h"
#include "capture/RawFramePool.h"
#include "device/LostFrameCounter.h"
#include "device/QuaysideDevice.h"
#include "files/KEStdPath.h"
#include "text/KEUnicode.h"
#include "values/TNetAddress.h"

namespace flowlane {

class PcapNgFileReader {
public:
    // What is read next.
    enum class State : std::uint32_t {
        ExpSectionHeader = 0, // a section header block of a version that is understood
        ExpInterfaceDesc =
            1,          // an interface description block of Ethernet and a resolution that is understood
        ReadPacket = 2, // packets, or one of the above anew
        Done = 3,       // nothing: all has been read
        Error = 4       // nothing: the replay has failed
    };
    // "???" for any other value.
    static const char* StrForState(State state) noexcept;

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
    KESTATUS StartFileReader(const kestrelon::T_UNICHAR* fileName, unsigned startFileIndex,
                             QuaysideDevice& device, unsigned frameCount, unsigned frameSize,
                             bool replaceSrcMacAddr, bool readFileSet, bool loopMode,
                             const StopCheck& isStopRequested = {});
    // Ends the replay; frames that are not due yet are not sent. Does nothing without a start.
    void StopFileReader();

    // All files have been read and all their frames sent.
    bool AreAllFramesSent() const noexcept { return mAreAllFramesSent.load(std::memory_order_acquire); }
    bool AreAllFilesRead() const noexcept { return CurrentState() == State::Done; }
    bool IsInErrorState() const noexcept { return CurrentState() == State::Error; }
    State CurrentState() const noexcept { return mCurrentState.load(std::memory_order_acquire); }

    // Why sending or reading ahead has failed, when CurrentState tells of an error; success when it was the
    // file's contents.
    KESTATUS FailureStatus() const noexcept { return mFailure.load(std::memory_order_relaxed); }

    // Frames that the device has not sent although they were submitted, since the start, as far as its
    // library counts them; about a second old while the thread runs, current after a failure to send and
    // after the end.
    std::uint64_t LostFrames() const noexcept { return mLostFrames.Value(); }

    void QuerryStatistics(Statistics& statistics) const noexcept { statistics = mStats.Snapshot(); }
    void ResetStatistics() noexcept { mStats.Clear(); }

    // The parts of the worker's loop, for the thread that runs the reader.

    // Reads blocks while there are free frames, but no more than what takes a moment.
    KESTATUS FillSendQueue();
    // Sends the frames that are due at now.
    KESTATUS SendFrames(RawFrameTimePoint now);
    void ThreadRoutine();

private:
    KESTATUS ReadDeviceAddress();
    KESTATUS OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize, const StopCheck& isStopRequested);
    KESTATUS ReadAhead(const StopCheck& isStopRequested);
    kestrelon::KEStdPath CreateNextFilePath();
    KESTATUS OpenCurrentFile();
    KESTATUS OpenNextFile();
    KESTATUS OpenNextFileOfSet();
    bool IsPassWithoutFrames(const char* message);
    void ProcessBlock();
    void ProcessSectionHeaderBlock();
    void ProcessInterfaceDescBlock();
    void ProcessEnhPacketBlock();
    void ProcessSectionHeader(const PcapNgSectionHeaderBlock& block);
    void ProcessInterfaceDescription(const PcapNgInterfaceDescBlock& block);
    bool ReadTimestampFactor(const PcapNgInterfaceDescBlock& block);
    void ProcessEnhancedPacket(const PcapNgEnhPacketBlock& packet);
    bool AdvanceSendTime(std::uint64_t timestamp);
    void QueueFrame(const PcapNgEnhPacketBlock& packet);
    void PatchRawFrameData(RawFrame& frame) const noexcept;
    KESTATUS SubmitFrame(const RawFrame& frame);
    void SendUntilStopped();
    void ClearSendList() noexcept;
    void SetState(State state);

    PipelineClock& mClock;
    kestrelon::KEOsWorkerThread mThread;
    std::string mFileName;
    std::uint32_t mStartFileIndex = 0;
    std::uint32_t mFileNumber = 0; // of the next file of a set
    kestrelon::KEStdPath mCurrentFilePath;
    PcapNgFile mFile;
    kestrelon::KEBufferBlock mBlockData; // the block just read
    std::atomic<State> mCurrentState{State::ExpSectionHeader};
    RawFramePool mFramePool;
    RawFrameList mFramesToSent;     // in the order of the file
    RawFrameTimePoint mCurSendTime; // of the last packet read
    const RawFrameTimeDuration mInitialOffset = std::chrono::milliseconds(500);
    const RawFrameTimeDuration mLoopbackOffset = std::chrono::milliseconds(100);
    std::uint64_t mLastReadTimestamp = 0;
    std::uint32_t mTimestampFactor = 1; // nanoseconds of a unit
    QuaysideDevice* mDevice = nullptr;
    LostFrameCounter mLostFrames;
    kestrelon::TNET_EthernetMacAddress mDeviceMacAddress{};
    const unsigned mBlockDelay = 10; // ms, between two rounds of the thread
    PcapNgReaderCounters mStats;
    bool mLastReadTimestampValid = false;
    bool mAddInitialOffset = false;
    bool mReplaceSrcMacAddr = false;
    bool mLoopMode = false;
    bool mReadFileSet = false;
    bool mIsStarted = false;
    bool mIsThreadRunning = false; // a request to end is of this run
    bool mIsFrameQueued = false;   // since the start of this pass through the file or the set
    std::atomic<KESTATUS> mFailure{KESTATUS_SUCCESS};
    std::atomic<bool> mAreAllFramesSent{false}; // what AreAllFramesSent answers to other threads
};

} // namespace flowlane

#endif
