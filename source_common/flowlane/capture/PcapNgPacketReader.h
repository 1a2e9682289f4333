// Reads the blocks of a replay's files and puts the packets that can be sent into a list of frames, each with
// the time at which it is to be sent. A small state machine follows the blocks: section header, interface
// description, packets. Blocks and packets that cannot be replayed are counted and skipped. A packet that is
// earlier than the one before ends the replay.
//
// Files, pool, list, counters and clock are not owned and outlive the reader. One thread at a time, but
// CurrentState is for any. Messages go to the Global logger.
#ifndef FLOWLANE_PCAPNGPACKETREADER_H
#define FLOWLANE_PCAPNGPACKETREADER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "PcapNgEnhPacketBlock.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgSectionHeaderBlock.h"
#include "base/KEBuffer.h"
#include "base/PipelineClock.h"
#include "capture/PcapNgFileSet.h"
#include "capture/PcapNgReaderStatistics.h"
#include "capture/RawFrame.h"
#include "capture/RawFramePool.h"
#include "capture/ReplayFailure.h"
#include "capture/ReplayedPackets.h"
#include "kestatus.h"
#include "values/TNetAddress.h"

namespace flowlane {

class PcapNgPacketReader {
public:
    // What is read next.
    enum class State : std::uint32_t {
        ExpSectionHeader = 0, // a section header of version 1.0
        ExpInterfaceDesc = 1, // a description of an Ethernet interface with times in micro- or nanoseconds
        ReadPacket = 2,       // packets, or one of the above again
        Done = 3,             // nothing: all files have been read
        Error = 4             // nothing: the replay has failed
    };
    // "???" for any other value.
    static const char* StrForState(State state) noexcept;

    using StopCheck = std::function<bool()>;

    PcapNgPacketReader(PipelineClock& clock, PcapNgFileSet& files, RawFramePool& framePool,
                       RawFrameList& framesToSent, PcapNgReaderCounters& stats) noexcept
        : mClock(clock), mFiles(files), mFramePool(framePool), mFramesToSent(framesToSent), mStats(stats) {}

    // Begins a replay; the first frame is due half a second after it is read. replaceSrcMacAddr: all frames
    // get deviceMacAddress as their source address.
    void Start(bool replaceSrcMacAddr, const kestrelon::TNET_EthernetMacAddress& deviceMacAddress);
    // Makes room for the block of a frame of this many bytes, so that reading it allocates nothing. Throws
    // std::bad_alloc.
    void ReserveBlock(unsigned frameSize);

    // Reads blocks while the pool has free frames, but at most for a moment, and until isStopRequested is
    // true (which may be empty). It reads nothing in the states Done and Error. Throws std::bad_alloc.
    //   KESTATUS_INVALID_FILE  the files have no frame that can be sent
    // Other failures are those of opening a file and of reading a block.
    [[nodiscard]] KESTATUS FillSendQueue(const StopCheck& isStopRequested);

    // Keeps why the replay cannot go on at the packet just read. The caller may add to it.
    ReplayFailure& NoteFailure(ReplayFailure::Cause cause, KESTATUS st) noexcept;
    // Ends the replay because of that failure. The frames that are read ahead are not sent.
    void Fail();
    // For the thread that runs the reader, and for any in the state Error.
    const ReplayFailure& Failure() const noexcept { return mFailure; }
    // For any thread.
    ReplayedPackets Packets() const noexcept { return mPackets.Snapshot(); }

    State CurrentState() const noexcept { return mCurrentState.load(std::memory_order_acquire); }
    void SetState(State state);

private:
    [[nodiscard]] KESTATUS OpenNextFile();
    void NoteReadFailure(KESTATUS st) noexcept;
    void CountPacket(std::uint32_t blockType, State state) noexcept;
    void ProcessBlock();
    void ProcessSectionHeaderBlock();
    void ProcessInterfaceDescBlock();
    void ProcessEnhPacketBlock();
    void ProcessSectionHeader(const PcapNgSectionHeaderBlock& block);
    void ProcessInterfaceDescription(const PcapNgInterfaceDescBlock& block);
    bool ReadTimestampFactor(const PcapNgInterfaceDescBlock& block);
    void ProcessEnhancedPacket(const PcapNgEnhPacketBlock& packet);
    void FailBecauseTimeGoesBack(std::uint64_t timestamp);
    bool AdvanceSendTime(std::uint64_t timestamp);
    void QueueFrame(const PcapNgEnhPacketBlock& packet);
    void PatchRawFrameData(RawFrame& frame) const noexcept;

    PipelineClock& mClock;
    PcapNgFileSet& mFiles;
    RawFramePool& mFramePool;
    RawFrameList& mFramesToSent; // in the order of the file
    PcapNgReaderCounters& mStats;
    ReplayedPacketCounters mPackets;
    std::uint64_t ReplayedPackets::*mLeftOut = nullptr; // as what packets count while none can be read
    std::uint64_t mPacketNumber = 0;                    // of the packet just read, in its file
    ReplayFailure mFailure;
    kestrelon::KEBufferBlock mBlockData; // the block just read
    std::atomic<State> mCurrentState{State::ExpSectionHeader};
    RawFrameTimePoint mCurSendTime;   // of the last packet read
    RawFrameTimePoint mFirstSendTime; // of the first packet of the pass
    const RawFrameTimeDuration mInitialOffset = std::chrono::milliseconds(500);
    const RawFrameTimeDuration mLoopbackOffset = std::chrono::milliseconds(100);
    std::uint64_t mLastReadTimestamp = 0;
    std::uint32_t mTimestampFactor = 1;     // nanoseconds per unit of a timestamp
    std::uint32_t mLastTimestampFactor = 1; // of the last packet read
    kestrelon::TNET_EthernetMacAddress mDeviceMacAddress{};
    bool mLastReadTimestampValid = false;
    bool mIsFirstOfFile = false; // no packet of the file has advanced the time yet
    bool mAddInitialOffset = false;
    bool mReplaceSrcMacAddr = false;
    bool mIsFrameQueued = false; // since the start of this pass through the file or the set
};

} // namespace flowlane

#endif
