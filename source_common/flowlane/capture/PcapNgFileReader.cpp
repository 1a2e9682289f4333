#include "capture/PcapNgFileReader.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "KELinuxThreadTiming.h"
#include "device/DeviceMacAddress.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;
using Cause = ReplayFailure::Cause;

namespace {

constexpr KETimeoutInterval cWithoutLimit = -1;

// How many due frames are read before the first of them is sent, with precise timing. It is what the device
// sends with one system call.
constexpr std::size_t cFramesPerSend = 64;

// The sleeps before the first frame become shorter down to this one.
constexpr RawFrameTimeDuration cShortestApproach = std::chrono::microseconds(50);

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

} // namespace

PcapNgFileReader::PcapNgFileReader(PipelineClock& clock) noexcept
    : mClock(clock),
      mFramesToSent(&RawFrame::mListEntry),
      mPacketReader(clock, mFiles, mFramePool, mFramesToSent, mStats),
      mFrameSender(mFramesToSent, mFramePool, mStats) {}

PcapNgFileReader::~PcapNgFileReader() {
    StopFileReader();
}

// --- Start and stop ------------------------------------------------------------------------------

KESTATUS PcapNgFileReader::StartFileReader(const T_UNICHAR* fileName, unsigned startFileIndex,
                                           QuaysideDevice& device, unsigned frameCount, unsigned frameSize,
                                           bool replaceSrcMacAddr, bool readFileSet, bool loopMode,
                                           const StopCheck& isStopRequested) {
    if (mIsStarted) {
        Log(KEERROR, "already started");
        return KESTATUS_ALREADY_DONE;
    }
    TNET_EthernetMacAddress address{};
    KESTATUS st = ReadDeviceMacAddress(device, address, "GetDevicePropertyBinary failed, st={}",
                                       "MAC address size mismatch, got {}, exp. {}");
    if (st != KESTATUS_SUCCESS) {
        mPacketReader.NoteFailure(Cause::DeviceAddress, st);
        return st;
    }
    mFrameSender.SetDevice(device);
    mLostFrames.Start(device, mClock.Now());
    try {
        mFiles.SetFiles(fileName, startFileIndex, readFileSet, loopMode);
        mAreAllFramesSent.store(false, std::memory_order_relaxed);
        ResetStatistics();
        mFailure.store(KESTATUS_SUCCESS, std::memory_order_relaxed);
        mPosition.store(0, std::memory_order_relaxed);
        mPacketReader.Start(replaceSrcMacAddr, address);
        st = OpenFirstFileAndStart(frameCount, frameSize, isStopRequested);
    } catch (const std::bad_alloc&) {
        st = KEOutputFailure(logger::Global, "StartFileReader failed, st={}", KESTATUS_NO_MEMORY);
        mPacketReader.NoteFailure(Cause::Other, st);
    }
    if (st != KESTATUS_SUCCESS) {
        mFrameSender.ClearSendList();
        mFiles.CloseFile();
        mFramePool.FreeFramePool();
        return st;
    }
    mIsStarted = true;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileReader::OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize,
                                                 const StopCheck& isStopRequested) {
    KESTATUS st = mFiles.OpenFirstFile();
    if (st != KESTATUS_SUCCESS) {
        mPacketReader.NoteFailure(Cause::FirstFile, st);
        return st;
    }
    try {
        // A pool without frames would never be filled, and nothing would be read.
        st = frameCount != 0 ? mFramePool.AllocateFramePool(frameCount, frameSize)
                             : KESTATUS_INVALID_PARAMETER;
    } catch (const std::bad_alloc&) {
        st = KESTATUS_NO_MEMORY;
    }
    if (st != KESTATUS_SUCCESS) {
        mPacketReader.NoteFailure(Cause::FramePool, st);
        return KEOutputFailure(logger::Global, "AllocateFramePool failed, st={}", st);
    }
    mPacketReader.ReserveBlock(frameSize);
    st = ReadAhead(isStopRequested);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "FillSendQueue failed, st={}", st);
    }
    st = mThread.CreateThread(this);
    if (st != KESTATUS_SUCCESS) {
        mPacketReader.NoteFailure(Cause::Other, st);
        return KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
    }
    return st;
}

// Reads until there is a frame to send, because files without one are refused, or until the user asks for the
// end.
KESTATUS PcapNgFileReader::ReadAhead(const StopCheck& isStopRequested) {
    KESTATUS st = mPacketReader.FillSendQueue({});
    while (st == KESTATUS_SUCCESS && mFramesToSent.IsEmpty() && !AreAllFilesRead() && !IsInErrorState() &&
           !(isStopRequested && isStopRequested())) {
        st = mPacketReader.FillSendQueue({});
    }
    return st;
}

void PcapNgFileReader::StopFileReader() {
    if (!mIsStarted) {
        return;
    }
    mIsStarted = false;
    mThread.RequestTermination();
    mThread.WaitForTerminationAndDestroy(cWithoutLimit);
    mLostFrames.UpdateNow();
    mFiles.CloseFile();
    mFramePool.FreeFramePool();
}

// --- The worker thread ---------------------------------------------------------------------------

void PcapNgFileReader::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    if (mIsTimingPrecise) {
        KELinuxUsePreciseTiming();
    }
    SendUntilStopped();
    mFrameSender.ClearSendList();
    mThread.SetState(KEOsWorkerThreadState::Stopping, KESTATUS_SUCCESS);
}

void PcapNgFileReader::SendUntilStopped() {
    while (!mThread.IsTerminationRequested()) {
        if (AreAllFilesRead() && mFramesToSent.IsEmpty()) {
            Log(KEINFO, "all frames are sent, stop thread");
            mAreAllFramesSent.store(true, std::memory_order_release);
            return;
        }
        if (IsInErrorState()) {
            Log(KEWARN, "unrecoverable error occurred, stop thread");
            return;
        }
        const RawFrameTimePoint now = mClock.Now();
        KESTATUS st = mFrameSender.SendFrames(now);
        if (st != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Global, "SendFrames failed, st={}, stop thread", st);
            mStats.Add(&Statistics::errSendFramesFailed);
            mLostFrames.UpdateNow(); // before the state says that there was a failure
            NoteSendFailure(st);
            Fail(st);
            return;
        }
        mPosition.store(mFrameSender.LastSubmitted().origin.time.count(), std::memory_order_relaxed);
        st = ReadOn();
        if (st != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Global, "FillSendQueue failed, st={}, stop thread", st);
            Fail(st);
            return;
        }
        mLostFrames.Update(now);
        Pause();
    }
}

void PcapNgFileReader::Pause() noexcept {
    if (mIsTimingPrecise) {
        SleepUntilNextFrame();
    } else {
        mClock.Sleep(mBlockDelay);
    }
}

// There is no sleep while a frame is due or while there is something to read. A sleep is no longer than the
// pause without precise timing, so that a stop is seen as soon.
//
// A processor wakes up later from a long sleep than from a short one. Who receives the frames measures all of
// them from the first one, so that one must not be later than the others. Each sleep before it takes half of
// the time that is left.
void PcapNgFileReader::SleepUntilNextFrame() noexcept {
    const bool mayReadOn = mFramePool.CurrentCount() != 0 && !AreAllFilesRead();
    const RawFrame* const next = mFramesToSent.Head();
    if (mayReadOn || !next) {
        return;
    }
    const RawFrameTimePoint now = mClock.Now();
    RawFrameTimeDuration sleep = next->SendTime() - now;
    if (!mFrameSender.HasSubmitted() && sleep > cShortestApproach) {
        sleep /= 2;
    }
    if (sleep.count() > 0) {
        mClock.SleepUntil(now +
                          std::min<RawFrameTimeDuration>(sleep, std::chrono::milliseconds(mBlockDelay)));
    }
}

// Whether reading has to end because a frame has to be sent. While all frames that were read are due, reading
// collects some of them, so that they share one send.
bool PcapNgFileReader::HasDueFrames() noexcept {
    const RawFrame* const next = mFramesToSent.Head();
    if (!next) {
        return false;
    }
    const RawFrameTimePoint last = mFramesToSent.Tail()->SendTime();
    if (last > mLastLook) { // otherwise all are known to be due, and looking costs time
        mLastLook = mClock.Now();
    }
    const std::size_t count = mFramePool.TotalCount() - mFramePool.CurrentCount();
    return next->SendTime() <= mLastLook && (count >= cFramesPerSend || last > mLastLook);
}

KESTATUS PcapNgFileReader::ReadOn() {
    try {
        return mPacketReader.FillSendQueue(
            [this] { return mThread.IsTerminationRequested() || (mIsTimingPrecise && HasDueFrames()); });
    } catch (const std::bad_alloc&) {
        mStats.Add(&Statistics::errReadFileFailed);
        mPacketReader.NoteFailure(Cause::Other, KESTATUS_NO_MEMORY);
        return KESTATUS_NO_MEMORY;
    }
}

void PcapNgFileReader::NoteSendFailure(KESTATUS st) noexcept {
    const RawFrameSender::Submitted& frame = mFrameSender.LastSubmitted();
    ReplayFailure& failure = mPacketReader.NoteFailure(Cause::SendFailed, st);
    failure.fileNumber = frame.origin.fileNumber;
    failure.packetNumber = frame.origin.packetNumber;
    failure.frameSize = frame.size;
}

void PcapNgFileReader::Fail(KESTATUS st) {
    mFailure.store(st, std::memory_order_relaxed);
    mPacketReader.Fail();
}

} // namespace flowlane
