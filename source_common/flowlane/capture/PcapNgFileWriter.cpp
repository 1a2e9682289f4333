#include "capture/PcapNgFileWriter.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

#include "base/KEByteOrder.h"
#include "device/RawReceiveHeader.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr KETimeoutInterval cWithoutLimit = -1;
// The largest batch, and the part of the pool that a batch may be.
constexpr unsigned cMaxBatchSize = 1024;
constexpr unsigned cBatchesPerPool = 16;
// How many frames one acquisition of the lock takes from the pool or the queue, at most.
constexpr unsigned cMaxFramesTaken = 64;
// The processor fetches the rest of a longer frame by itself.
constexpr std::size_t cPrefetchedBytes = 256;

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

} // namespace

PcapNgFileWriter::PcapNgFileWriter() noexcept
    : mPendingFrames(&RawFrame::mListEntry),
      mPacketWriter(mStats),
      mTakenFrames(&RawFrame::mListEntry),
      mWrittenFrames(&RawFrame::mListEntry),
      mFreeFrames(&RawFrame::mListEntry),
      mGatheredFrames(&RawFrame::mListEntry) {}

PcapNgFileWriter::~PcapNgFileWriter() {
    StopFileWriter();
}

// --- Start and stop ------------------------------------------------------------------------------

KESTATUS PcapNgFileWriter::StartFileWriter(const T_UNICHAR* fileName, QuaysideDevice& device,
                                           unsigned frameCount, unsigned frameSize,
                                           std::uint64_t maxFileSize) {
    if (mIsStarted) {
        Log(KEERROR, "already started");
        return KESTATUS_ALREADY_DONE;
    }
    KESTATUS st = KESTATUS_SUCCESS;
    try {
        st = mPacketWriter.InitBlocks(device);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        mFramesDropped = 0;
        mSequenceNumber = 0;
        mSequenceNumberValid = false;
        ResetStatistics();
        st = OpenFirstFileAndStart(fileName, maxFileSize, frameCount, frameSize);
    } catch (const std::bad_alloc&) {
        st = KEOutputFailure(logger::Global, "StartFileWriter failed, st={}", KESTATUS_NO_MEMORY);
    }
    if (st != KESTATUS_SUCCESS) {
        mPacketWriter.CloseFile(); // it holds no packets
        mFramePool.FreeFramePool();
        return st;
    }
    mIsStarted = true;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileWriter::OpenFirstFileAndStart(const T_UNICHAR* fileName, std::uint64_t maxFileSize,
                                                 unsigned frameCount, unsigned frameSize) {
    KESTATUS st = mPacketWriter.OpenFirstFile(fileName, maxFileSize);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    try {
        st = mFramePool.AllocateFramePool(frameCount, frameSize);
    } catch (const std::bad_alloc&) {
        st = KESTATUS_NO_MEMORY;
    }
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "AllocateFramePool failed, st={}", st);
    }
    mBatchSize = std::clamp(frameCount / cBatchesPerPool, 1u, cMaxBatchSize);
    st = mPendingFrames.InitQueue();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "InitQueue failed, st={}", st);
    }
    st = mThread.CreateThread(this);
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
}

void PcapNgFileWriter::StopFileWriter() {
    if (!mIsStarted) {
        return;
    }
    mIsStarted = false;
    mThread.RequestTermination();
    mPendingFrames.DisableWait();
    mPendingFrames.QueueEvent();
    mThread.WaitForTerminationAndDestroy(cWithoutLimit);
    TakeBackAllFrames();
    mPacketWriter.CloseFile();
    mFramePool.FreeFramePool();
}

// The thread leaves frames unwritten when it has ended early.
void PcapNgFileWriter::TakeBackAllFrames() noexcept {
    GiveBackWrittenFrames();
    while (TakePendingFrames()) {
        while (RawFrame* const frame = mTakenFrames.RemoveHead()) {
            mStats.Add(&Statistics::errWriteFileFailed);
            mFramePool.PutRawFrame(frame);
        }
    }
    while (RawFrame* const frame = mFreeFrames.RemoveHead()) {
        mFramePool.PutRawFrame(frame);
    }
}

// --- The receive loop's side ---------------------------------------------------------------------

RawFrame* PcapNgFileWriter::GetRawFrame() noexcept {
    if (mFreeFrames.IsEmpty()) {
        const std::lock_guard lock(mMutex);
        for (unsigned i = 0; i < cMaxFramesTaken; ++i) {
            RawFrame* const frame = mFramePool.GetRawFrame();
            if (!frame) {
                break;
            }
            mFreeFrames.AppendTail(*frame);
        }
    }
    RawFrame* const frame = mFreeFrames.RemoveHead();
    PrefetchRawFrame(mFreeFrames.Head(), cPrefetchedBytes);
    return frame;
}

void PcapNgFileWriter::ReleaseRawFrame(RawFrame* frame) noexcept {
    mFreeFrames.AppendTail(*frame);
}

void PcapNgFileWriter::PoolUnderflowOccurred() noexcept {
    ++mFramesDropped;
    mStats.Add(&Statistics::errPoolUnderflow);
}

bool PcapNgFileWriter::CheckRawFrame(QBXRawFrameType type, KEConstBufferReference frame) {
    if (frame.mLength < rawheader::cSize) {
        Log(KEWARN, "invalid frame size {}", frame.mLength);
        ++mFramesDropped;
        mStats.Add(&Statistics::errInvalidFrameSize);
        return false;
    }
    const auto sequenceNumber = KELoadNative<std::uint32_t>(frame.mData + rawheader::cSequenceNumberOffset);
    if (!mSequenceNumberValid) {
        mSequenceNumberValid = true;
    } else if (sequenceNumber != mSequenceNumber) {
        Log(KEWARN, "sequence number mismatch, got {}, exp. {}", sequenceNumber, mSequenceNumber);
        const std::uint32_t gap = sequenceNumber - mSequenceNumber;
        mFramesDropped += gap;
        mStats.Add(&Statistics::errMissingFrames, gap);
    }
    mSequenceNumber = sequenceNumber + 1;
    if (type == QBXRawFrameType_Data || type == QBXRawFrameType_ExternalTrigger) {
        return true;
    }
    mStats.Add(&Statistics::infIgnoredFrames);
    return false;
}

KESTATUS PcapNgFileWriter::WriteRawFrame(RawFrame* frame) {
    const KESTATUS threadStatus = ThreadStatus();
    if (threadStatus != KESTATUS_SUCCESS) {
        Log(KEERROR, "internal thread terminates with status {}", KEFormatArgKEStatus(threadStatus));
        ReleaseRawFrame(frame);
        return KESTATUS_NOT_POSSIBLE;
    }
    frame->mFramesDropped = std::exchange(mFramesDropped, 0);
    mGatheredFrames.AppendTail(*frame);
    ++mGatheredCount;
    return mGatheredCount < mGatherLimit ? KESTATUS_SUCCESS : HandOverGatheredFrames();
}

KESTATUS PcapNgFileWriter::HandOverGatheredFrames() noexcept {
    mGatheredCount = 0;
    const std::lock_guard lock(mMutex);
    return mPendingFrames.PutItems(mGatheredFrames);
}

void PcapNgFileWriter::EndBatch() noexcept {
    mGatherLimit = 1;
    static_cast<void>(HandOverGatheredFrames()); // fails only on a writer that was not started
}

KESTATUS PcapNgFileWriter::ThreadStatus() const noexcept {
    return mThread.HasEnded() ? mThread.StatusCode() : KESTATUS_SUCCESS;
}

// --- The writer thread ---------------------------------------------------------------------------

void PcapNgFileWriter::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    const KESTATUS st = WriteUntilStopped();
    mThread.SetState(KEOsWorkerThreadState::Stopping, st);
}

KESTATUS PcapNgFileWriter::WriteUntilStopped() {
    while (!mThread.IsTerminationRequested()) {
        mPendingFrames.WaitOnQueue(cWithoutLimit);
        const KESTATUS st = WriteAllFramesToFile();
        if (st != KESTATUS_SUCCESS) {
            Log(KEFATAL, "WriteAllFramesToFile failed, st={}, terminate thread", KEFormatArgKEStatus(st));
            return st;
        }
    }
    static_cast<void>(WriteAllFramesToFile());
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileWriter::WriteAllFramesToFile() {
    while (TakePendingFrames()) {
        while (RawFrame* const frame = mTakenFrames.RemoveHead()) {
            PrefetchRawFrame(mTakenFrames.Head(), cPrefetchedBytes);
            mPacketWriter.WriteFrameToFile(*frame);
            mWrittenFrames.AppendTail(*frame);
            if (!mPacketWriter.IsFileFull()) {
                continue;
            }
            GiveBackWrittenFrames(); // opening a file may take long
            const KESTATUS st = OpenNextFile();
            if (st != KESTATUS_SUCCESS) {
                return st;
            }
        }
        GiveBackWrittenFrames();
    }
    mPacketWriter.FlushFile(); // before the thread waits
    return KESTATUS_SUCCESS;
}

// Takes the frames that are written next. False when there are none.
bool PcapNgFileWriter::TakePendingFrames() noexcept {
    const std::lock_guard lock(mMutex);
    const unsigned limit = std::min(mBatchSize, cMaxFramesTaken);
    for (unsigned i = 0; i < limit; ++i) {
        RawFrame* const frame = mPendingFrames.GetItem();
        if (!frame) {
            break;
        }
        mTakenFrames.AppendTail(*frame);
    }
    return !mTakenFrames.IsEmpty();
}

void PcapNgFileWriter::GiveBackWrittenFrames() noexcept {
    const std::lock_guard lock(mMutex);
    while (RawFrame* const frame = mWrittenFrames.RemoveHead()) {
        mFramePool.PutRawFrame(frame);
    }
}

KESTATUS PcapNgFileWriter::OpenNextFile() {
    try {
        return mPacketWriter.OpenNextFile();
    } catch (const std::bad_alloc&) {
        return KEOutputFailure(logger::Global, "OpenNextFile failed, st={}", KESTATUS_NO_MEMORY);
    }
}

} // namespace flowlane
