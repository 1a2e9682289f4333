#include "streaming/TSFileSource.h"

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include "KELinuxThreadTiming.h"
#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

namespace {

// The longest time between two PCRs of one segment, in nanoseconds.
constexpr TSPacketDuration cMaxTimeDiff{999999999};
// How many packets one call of FillDeliverQueue drops, or a few more if they are in one segment. It takes
// some milliseconds to read them.
constexpr std::uint32_t cMaxDroppedPackets = 10000;
// How long one call of FillDeliverQueue waits for a pipe: as long as the pause that it replaces.
constexpr std::chrono::milliseconds cMaxPipeWait{10};
// How long a packet may wait until its frame is full, with precise timing.
constexpr std::chrono::milliseconds cMaxFrameDelay{10};

KESTATUS AllocatePackets(TSPacketPool& pool, unsigned count) noexcept {
    try {
        return pool.AllocatePool(count);
    } catch (const std::bad_alloc&) {
        return KESTATUS_NO_MEMORY;
    }
}

} // namespace

TSFileSource::~TSFileSource() {
    TSFileSource::StopSource();
}

KESTATUS TSFileSource::CreateTSFileSource(const T_UNICHAR* fileName, SinkBase& sink, bool rewindFile,
                                          unsigned numberOfPackets) {
    KESTATUS st = mFile.OpenFile(fileName, "rb");
    PublishEndOfFile();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "OpenFile failed, st={}", st);
    }
    mIsPipe = IsPipe();
    if (mIsPipe) {
        mFile.DisableBuffering(); // no data are hidden from poll
    }
    st = AllocatePackets(mPacketPool, numberOfPackets);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "AllocatePool failed, st={}", st);
    }
    mSink = &sink;
    mRewindFile = rewindFile;
    return KESTATUS_SUCCESS;
}

KESTATUS TSFileSource::StartSource() {
    const KEOsWorkerThreadState state = mThread.State();
    if (state == KEOsWorkerThreadState::NotCreated || state == KEOsWorkerThreadState::Terminated) {
        mPCRTimeOffsetValid = false;
        mAddInitialOffset = true;
        mHasToReadOn = false;
        mStats.Clear();
        mPosition.store(0, std::memory_order_relaxed);
        mReadFailure = KESTATUS_SUCCESS;
        mFailure.store(KESTATUS_SUCCESS, std::memory_order_relaxed);
        const KESTATUS st = FillDeliverQueue();
        if (st != KESTATUS_SUCCESS) {
            ReleaseAllPackets();
            return KEOutputFailure(logger::Global, "FillDeliverQueue failed, st={}", st);
        }
    }
    const KESTATUS st = mThread.CreateThread(this); // runs ThreadRoutine
    if (st != KESTATUS_SUCCESS) {
        if (st != KESTATUS_ALREADY_DONE) { // otherwise everything belongs to the running worker
            ReleaseAllPackets();
        }
        return KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
    }
    return KESTATUS_SUCCESS;
}

void TSFileSource::StopSource() {
    mThread.RequestTermination();
    mThread.WaitForTerminationAndDestroy(-1);
}

KESTATUS TSFileSource::FillDeliverQueue() {
    if (!mHasToReadOn) {
        mMayRewind = true;
    }
    mHasToReadOn = false;
    mDroppedPackets = 0;
    if (mIsPipe) {
        mWaitEnd = mClock.Now() + cMaxPipeWait;
    }
    while (TSPacket* packet = mPacketPool.GetItem()) {
        const ReadResult result = ReadPacket(*packet);
        if (result != ReadResult::Packet) {
            packet->ReleaseToPool();
            return EndReading(result);
        }
        TakeReadPacket(*packet);
        if (mDroppedPackets >= cMaxDroppedPackets || IsFullFrameDue()) {
            mHasToReadOn = true;
            return KESTATUS_SUCCESS;
        }
    }
    if (mPacketsToDeliver.IsEmpty()) {
        DropUnfinishedSegment();
    }
    return KESTATUS_SUCCESS;
}

// When there was no packet to read.
KESTATUS TSFileSource::EndReading(ReadResult result) {
    if (result == ReadResult::NotYet) {
        mHasToReadOn = true;
        return KESTATUS_SUCCESS;
    }
    PublishEndOfFile();
    if (result == ReadResult::Failed) {
        KEOutputLogMessage(logger::Global, KEERROR, "ReadFromFile failed");
        return KESTATUS_READ_FILE_FAILED;
    }
    return KESTATUS_SUCCESS;
}

void TSFileSource::TakeReadPacket(TSPacket& packet) {
    mStats.Add(&Statistics::infTsPacketsRead);
    ++mPacketNumber;
    if (!packet.HasSyncByte()) {
        KEOutputLogMessage(logger::Global, KEWARN, "ignore invalid TS packet");
        CountFault(&Statistics::errInvalidPackets, 1, &Statistics::infFirstInvalidPacket);
        DropReadPacket(packet);
        return;
    }
    if (packet.HasPCR()) {
        CountPCR(packet);
    }
    if (!mPCRTimeOffsetValid && !packet.HasPCR()) {
        DropReadPacket(packet); // no time base yet
    } else {
        AppendReadPacket(packet);
    }
}

void TSFileSource::CountPCR(const TSPacket& packet) noexcept {
    if (mStats.Value(&Statistics::infPCRs) == 0) {
        mFirstPCR = packet.PCR();
        mFirstPCRPID = packet.PID();
    } else if (packet.PID() != mFirstPCRPID) {
        mStats.Add(&Statistics::infOtherPCRs);
    }
    mStats.Add(&Statistics::infPCRs);
}

// Found with the packet that was read last.
void TSFileSource::CountFault(Counter counter, std::uint64_t count, Counter firstPacket) noexcept {
    mStats.Add(counter, count);
    if (mStats.Value(firstPacket) == 0) {
        mStats.Add(firstPacket, mPacketNumber);
    }
}

// Or a socket: reading from either may wait for ever.
bool TSFileSource::IsPipe() const noexcept {
    struct stat status {};
    return fstat(fileno(mFile.GetHandle()), &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

// False when no data have come until mWaitEnd, or until a frame is due.
bool TSFileSource::WaitForData() noexcept {
    const TSPacketTimePoint end = IsTimingPrecise() ? std::min(mWaitEnd, NextFrameTime()) : mWaitEnd;
    const TSPacketDuration left = std::max(end - mClock.Now(), TSPacketDuration::zero());
    const timespec timeout{0, static_cast<long>(left.count())}; // below a second
    pollfd descriptor{fileno(mFile.GetHandle()), POLLIN, 0};
    return ppoll(&descriptor, 1, &timeout, nullptr) > 0;
}

// Reads the next packet of the file. At its end a source that loops goes on with the first packet, unless
// this pass through the file timed no packet: a file without two PCRs would be rewound here for ever.
TSFileSource::ReadResult TSFileSource::ReadPacket(TSPacket& packet) {
    if (mIsPipe && !WaitForData()) {
        return ReadResult::NotYet;
    }
    while (mFile.ReadFromFile(packet.mData, sizeof packet.mData) != sizeof packet.mData) {
        if (!mFile.IsEndOfFile()) {
            return FailReading(KEStatusFromErrno(errno));
        }
        mStats.Add(&Statistics::infEndsOfFile);
        if (!mRewindFile || !mMayRewind) {
            return ReadResult::NothingMore;
        }
        mMayRewind = false;
        const KESTATUS st = RewindFile();
        if (st != KESTATUS_SUCCESS) {
            return FailReading(st);
        }
    }
    return ReadResult::Packet;
}

TSFileSource::ReadResult TSFileSource::FailReading(KESTATUS reason) noexcept {
    mReadFailure = reason;
    return ReadResult::Failed;
}

KESTATUS TSFileSource::RewindFile() {
    const KESTATUS st = mFile.RewindFile();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    KEOutputLogMessage(logger::Global, KEINFO, "rewind done");
    mPCRTimeOffsetValid = false;
    mPacketNumber = 0;
    DropReadPacketsUntil(0);
    return KESTATUS_SUCCESS;
}

void TSFileSource::DropReadPacket(TSPacket& packet) {
    packet.ReleaseToPool();
    ++mDroppedPackets;
}

void TSFileSource::DropReadPacketsUntil(std::uint32_t count) {
    mDroppedPackets += mReadPackets.Count() - count;
    mReadPackets.ReleaseToPoolUntil(count);
}

void TSFileSource::AppendReadPacket(TSPacket& packet) {
    if (!mPCRTimeOffsetValid) {
        SetTimeBase(packet);
        mReadPackets.Append(packet);
        return;
    }
    mReadPackets.Append(packet);
    const TSPacket& head = *mReadPackets.Head();
    if (mReadPackets.Count() < 2 || !packet.HasPCR() || !head.HasPCR()) {
        return;
    }
    const TSPacketDuration t0 = head.PCRTime();
    const TSPacketDuration timeDiff = packet.PCRTime() - t0;
    if (timeDiff > cMaxTimeDiff) {
        KEOutputLogMessage(logger::Global, KEERROR, "unexpected timeDiff {} ({} us)", timeDiff.count(),
                           timeDiff.count() / 1000);
        CountFault(&Statistics::errForwardStepPackets, mReadPackets.Count() - 1,
                   &Statistics::infFirstForwardStep);
        DropReadPacketsUntil(1);
    } else {
        if (timeDiff > TSPacketDuration::zero()) {
            mStats.Add(&Statistics::infRunningSegments);
        } else if (timeDiff < TSPacketDuration::zero()) {
            CountFault(&Statistics::errBackwardSteps, 1, &Statistics::infFirstBackwardStep);
        }
        TimeSegment(t0, timeDiff);
        mMayRewind = true;
    }
}

void TSFileSource::SetTimeBase(const TSPacket& packet) noexcept {
    TSPacketTimePoint timeBase = mLastDeliverTime + mLoopbackOffset;
    if (mAddInitialOffset) {
        timeBase = mClock.Now() + mInitialOffset;
        mAddInitialOffset = false;
    }
    mPCRTimeOffset = timeBase.time_since_epoch() - packet.PCRTime();
    mPCRTimeOffsetValid = true;
}

// Moves all read packets to those to deliver, except the last one, which begins the next segment. The time is
// divided by the number of all of them, the last one included, so the last gap is two steps long. A PCR that
// jumps backwards gives times in the past: these packets are sent at once.
void TSFileSource::TimeSegment(TSPacketDuration t0, TSPacketDuration timeDiff) noexcept {
    mStats.Add(&Statistics::infTsPacketsTimed, mReadPackets.Count() - 1);
    const TSPacketDuration step = timeDiff / std::int64_t{mReadPackets.Count()};
    TSPacketTimePoint deliverTime(t0 + mPCRTimeOffset);
    while (mReadPackets.Count() > 1) {
        TSPacket& packet = *mReadPackets.RemoveHead();
        packet.mDeliverTime = deliverTime;
        mLastDeliverTime = deliverTime;
        mPacketsToDeliver.Append(packet);
        deliverTime += step;
    }
}

// All packets are in one segment whose end is not read yet, and none is free to read on. Only the first one
// is kept, so that playing goes on. If there is only one packet, none is kept.
void TSFileSource::DropUnfinishedSegment() {
    const std::uint32_t count = mReadPackets.Count();
    if (count == 0) {
        return;
    }
    KEOutputLogMessage(logger::Global, KEERROR, "no PCR within {} packets, drop the packets", count);
    CountFault(&Statistics::errUnfinishedPackets, count > 1 ? count - 1 : count,
               &Statistics::infFirstUnfinished);
    TSPacket& head = *mReadPackets.RemoveHead();
    mReadPackets.ReleaseToPoolUntil(0);
    if (count > 1) {
        mReadPackets.Append(head);
    } else {
        head.ReleaseToPool();
    }
}

KESTATUS TSFileSource::DeliverPackets(TSPacketTimePoint now) {
    return DeliverBatch(now, mPacketsToDeliver.Count());
}

KESTATUS TSFileSource::DeliverBatch(TSPacketTimePoint now, std::uint32_t maxCount) {
    std::uint32_t count = 0;
    while (count < maxCount && mPacketsToDeliver.Head()->mDeliverTime <= now) {
        TSPacket& packet = *mPacketsToDeliver.RemoveHead();
        const KESTATUS st = mSink->DeliverTSPacket(packet);
        PublishPosition(packet);
        packet.ReleaseToPool();
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "DeliverTSPacket failed, st={}", st);
        }
        mStats.Add(&Statistics::infTsPacketsDelivered);
        ++count;
    }
    if (count != 0) {
        const KESTATUS st = mSink->SendDeliveredPackets();
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SendDeliveredPackets failed, st={}", st);
        }
        PublishEndOfFile();
    }
    return KESTATUS_SUCCESS;
}

// The frame is full, or no packet follows: it waits for its last packet. Otherwise more packets may still be
// read for it.
TSPacketTimePoint TSFileSource::NextFrameTime() const noexcept {
    const TSPacket* packet = mPacketsToDeliver.Head();
    if (!packet) {
        return TSPacketTimePoint::max();
    }
    const TSPacketTimePoint latest = packet->mDeliverTime + cMaxFrameDelay;
    TSPacketTimePoint complete = packet->mDeliverTime;
    std::uint32_t count = 0;
    for (; packet && count < mPacketsPerFrame; packet = mPacketsToDeliver.Next(*packet)) {
        complete = std::max(complete, packet->mDeliverTime);
        ++count;
    }
    const bool isComplete = count == mPacketsPerFrame || (!mRewindFile && mFile.IsEndOfFile());
    return isComplete ? std::min(complete, latest) : latest;
}

bool TSFileSource::IsFullFrameDue() const noexcept {
    return IsTimingPrecise() && mPacketsToDeliver.Count() >= mPacketsPerFrame &&
           NextFrameTime() <= mClock.Now();
}

// Behind a full frame only full ones: it has made room to read on for one that is not full.
KESTATUS TSFileSource::DeliverFrames() {
    if (NextFrameTime() > mClock.Now()) {
        return KESTATUS_SUCCESS;
    }
    KESTATUS st = KESTATUS_SUCCESS;
    do {
        st = DeliverBatch(mClock.Now(), std::min(mPacketsPerFrame, mPacketsToDeliver.Count()));
    } while (st == KESTATUS_SUCCESS && IsFullFrameDue());
    return st;
}

// No longer than the pause without precise timing, so that a stop is seen as soon.
void TSFileSource::SleepUntilNextFrame() noexcept {
    const TSPacketTimePoint latest = mClock.Now() + std::chrono::milliseconds(mBlockDelay);
    mClock.SleepUntil(std::min(NextFrameTime(), latest));
}

void TSFileSource::PublishPosition(const TSPacket& packet) noexcept {
    if (packet.HasPCR() && packet.PID() == mFirstPCRPID) {
        mPosition.store(TSPacketDurationBetweenPCRs(mFirstPCR, packet.PCR()).count(),
                        std::memory_order_relaxed);
    }
}

void TSFileSource::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    if (IsTimingPrecise()) {
        KELinuxUsePreciseTiming();
    }
    DeliverUntilStopped();
    ReleaseAllPackets();
    mThread.SetState(KEOsWorkerThreadState::Stopping, KESTATUS_SUCCESS);
}

void TSFileSource::DeliverUntilStopped() {
    while (!mThread.IsTerminationRequested()) {
        if (IsEndOfFileReached()) {
            KEOutputLogMessage(logger::Global, KEINFO, "all packets from file delivered, stop thread");
            return;
        }
        KESTATUS st = IsTimingPrecise() ? DeliverFrames() : DeliverPackets(mClock.Now());
        if (st != KESTATUS_SUCCESS) {
            GiveUp("DeliverPackets failed, st={}, stop thread", st);
            return;
        }
        st = FillDeliverQueue();
        if (st != KESTATUS_SUCCESS) {
            GiveUp("FillDeliverQueue failed, st={}, stop thread", st);
            return;
        }
        if (!mHasToReadOn) {
            Pause();
        }
    }
}

void TSFileSource::Pause() noexcept {
    if (IsTimingPrecise()) {
        SleepUntilNextFrame();
    } else {
        BlockThread();
    }
}

void TSFileSource::GiveUp(const char* format, KESTATUS st) {
    mFailure.store(KEOutputFailure(logger::Global, format, st), std::memory_order_release);
}

void TSFileSource::ReleaseAllPackets() {
    mReadPackets.ReleaseToPoolUntil(0);
    mPacketsToDeliver.ReleaseToPoolUntil(0);
    PublishEndOfFile();
}

void TSFileSource::PublishEndOfFile() noexcept {
    const bool isReached = !mRewindFile && mPacketsToDeliver.IsEmpty() && mFile.IsEndOfFile();
    mIsEndOfFileReached.store(isReached, std::memory_order_release);
}

} // namespace flowlane
