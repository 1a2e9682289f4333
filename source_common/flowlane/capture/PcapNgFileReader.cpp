#include "capture/PcapNgFileReader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "base/KEByteOrder.h"
#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr KETimeoutInterval cWithoutLimit = -1;
constexpr unsigned cMacAddressSize = 6;
constexpr std::size_t cEthernetHeaderSize = 14;
constexpr std::size_t cEthernetSourceOffset = 6;
constexpr std::size_t cEthernetTypeOffset = 12;
constexpr std::uint32_t cNanosecondsPerMicrosecond = 1000;

// The block buffer has room for a packet block of a frame, rounded up.
constexpr std::size_t cBlockBufferUnit = 1024;

// One call of FillSendQueue reads about so many bytes: files may have any number of blocks without a frame to
// send, between which the thread has to send what is due and the user has to be heard. A short block takes
// the time of some more bytes.
constexpr std::size_t cMaxReadPerFill = 64u << 20;
constexpr std::size_t cMinBlockCost = 256;

// What stands for an external trigger when its length field has this value, which is not the one that
// captures of this program have: theirs are replayed.
constexpr std::uint16_t cTriggerPayloadSize = 10;
constexpr unsigned char cTriggerAddresses[2 * cMacAddressSize] = {0,    0,    0,    0,    0,    0,
                                                                  0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

bool IsTriggerFrame(KEConstBufferReference frame) {
    return frame.mLength >= cEthernetHeaderSize &&
           std::memcmp(frame.mData, cTriggerAddresses, sizeof cTriggerAddresses) == 0 &&
           KELoadBE16(frame.mData + cEthernetTypeOffset) == cTriggerPayloadSize;
}

// The end of the clock's range when the sum is beyond it: a frame of that time is never due.
RawFrameTimePoint Later(RawFrameTimePoint time, std::uint64_t units, std::uint32_t nanosecondsPerUnit) {
    const auto start = static_cast<std::uint64_t>(time.time_since_epoch().count());
    const auto end = static_cast<std::uint64_t>(RawFrameTimePoint::max().time_since_epoch().count());
    if (units > (end - start) / nanosecondsPerUnit) {
        return RawFrameTimePoint::max();
    }
    return RawFrameTimePoint(
        RawFrameTimeDuration(static_cast<std::int64_t>(start + units * nanosecondsPerUnit)));
}

} // namespace

PcapNgFileReader::PcapNgFileReader(PipelineClock& clock) noexcept
    : mClock(clock), mFramesToSent(&RawFrame::mListEntry) {}

PcapNgFileReader::~PcapNgFileReader() {
    StopFileReader();
}

const char* PcapNgFileReader::StrForState(State state) noexcept {
    switch (state) {
    case State::ExpSectionHeader:
        return "ExpSectionHeader";
    case State::ExpInterfaceDesc:
        return "ExpInterfaceDesc";
    case State::ReadPacket:
        return "ReadPacket";
    case State::Done:
        return "Done";
    case State::Error:
        return "Error";
    }
    return "???";
}

void PcapNgFileReader::SetState(State state) {
    const State old = CurrentState();
    if (state != old) {
        Log(KEVERBOSE, "{} --> {}", StrForState(old), StrForState(state));
        mCurrentState.store(state, std::memory_order_release);
    }
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
    mDevice = &device;
    KESTATUS st = ReadDeviceAddress();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mLostFrames.Start(device, mClock.Now());
    try {
        mFileName = fileName;
        mStartFileIndex = startFileIndex;
        mFileNumber = startFileIndex;
        mReplaceSrcMacAddr = replaceSrcMacAddr;
        mReadFileSet = readFileSet;
        mLoopMode = loopMode;
        mAddInitialOffset = true;
        mLastReadTimestampValid = false;
        mIsFrameQueued = false;
        mIsThreadRunning = false;
        mAreAllFramesSent.store(false, std::memory_order_relaxed);
        ResetStatistics();
        mFailure.store(KESTATUS_SUCCESS, std::memory_order_relaxed);
        SetState(State::ExpSectionHeader);
        st = OpenFirstFileAndStart(frameCount, frameSize, isStopRequested);
    } catch (const std::bad_alloc&) {
        st = KEOutputFailure(logger::Global, "StartFileReader failed, st={}", KESTATUS_NO_MEMORY);
    }
    if (st != KESTATUS_SUCCESS) {
        ClearSendList();
        mFile.CloseFile();
        mFramePool.FreeFramePool();
        return st;
    }
    mIsStarted = true;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileReader::ReadDeviceAddress() {
    mDeviceMacAddress = {};
    unsigned size = 0;
    const KESTATUS st = mDevice->GetDevicePropertyBinary(QBX_PROPERTY_MAC_ADDRESS, mDeviceMacAddress.mac,
                                                         cMacAddressSize, &size);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "GetDevicePropertyBinary failed, st={}", st);
    }
    if (size != cMacAddressSize) {
        Log(KEERROR, "MAC address size mismatch, got {}, exp. {}", size, cMacAddressSize);
        return KESTATUS_LENGTH_MISMATCH;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileReader::OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize,
                                                 const StopCheck& isStopRequested) {
    mCurrentFilePath = CreateNextFilePath();
    if (!mCurrentFilePath.Exists()) {
        KEOutputLogMessage(logger::Cons, KEERROR, "File '{}' does not exist.", mCurrentFilePath);
        return KESTATUS_NOT_PRESENT;
    }
    KESTATUS st = OpenCurrentFile();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    try {
        // Without frames nothing would ever be read.
        st = frameCount != 0 ? mFramePool.AllocateFramePool(frameCount, frameSize)
                             : KESTATUS_INVALID_PARAMETER;
    } catch (const std::bad_alloc&) {
        st = KESTATUS_NO_MEMORY;
    }
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "AllocateFramePool failed, st={}", st);
    }
    const std::size_t blockSize =
        (std::size_t{frameSize} + pcapng::cEnhPacketFixedSize + cBlockBufferUnit - 1) &
        ~(cBlockBufferUnit - 1);
    if (mBlockData.mBufferSize < blockSize) {
        mBlockData = KEBufferBlock(blockSize);
    }
    mBlockData.mDataLength = 0;
    st = ReadAhead(isStopRequested);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "FillSendQueue failed, st={}", st);
    }
    st = mThread.CreateThread(this);
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
}

// Until there is a frame to send, since files without one are refused, or the user has had enough.
KESTATUS PcapNgFileReader::ReadAhead(const StopCheck& isStopRequested) {
    KESTATUS st = FillSendQueue();
    while (st == KESTATUS_SUCCESS && mFramesToSent.IsEmpty() && !AreAllFilesRead() && !IsInErrorState() &&
           !(isStopRequested && isStopRequested())) {
        st = FillSendQueue();
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
    mFile.CloseFile();
    mFramePool.FreeFramePool();
}

// --- Files ---------------------------------------------------------------------------------------

KEStdPath PcapNgFileReader::CreateNextFilePath() {
    KEStdPath path(mFileName);
    if (path.Extension().IsEmpty() && path.Concat(".pcapng") != KESTATUS_SUCCESS) {
        return KEStdPath(); // without a name the open fails and reports it
    }
    if (!mReadFileSet) {
        return path;
    }
    KEStdPath ofSet = path.ParentPath();
    const std::string name = KEStdStringFormat("{}_{:05}{}", path.Stem(), mFileNumber++, path.Extension());
    return ofSet.Append(name.c_str()) == KESTATUS_SUCCESS ? ofSet : KEStdPath();
}

KESTATUS PcapNgFileReader::OpenCurrentFile() {
    const KESTATUS st = mFile.OpenForRead(mCurrentFilePath.c_str());
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "OpenForRead failed, st={}", st);
}

// Whether the pass that has ended has brought no frame at all, so that there is nothing to go on with.
bool PcapNgFileReader::IsPassWithoutFrames(const char* message) {
    if (mIsFrameQueued) {
        mIsFrameQueued = false;
        return false;
    }
    Log(KEERROR, message);
    return true;
}

KESTATUS PcapNgFileReader::OpenNextFile() {
    if (mReadFileSet) {
        return OpenNextFileOfSet();
    }
    if (IsPassWithoutFrames("file does not contain any valid frames")) {
        return KESTATUS_INVALID_FILE;
    }
    if (!mLoopMode) {
        SetState(State::Done);
        return KESTATUS_SUCCESS;
    }
    mLastReadTimestampValid = false;
    SetState(State::ExpSectionHeader);
    return mFile.RewindFile();
}

KESTATUS PcapNgFileReader::OpenNextFileOfSet() {
    KEStdPath path = CreateNextFilePath();
    if (!path.Exists()) {
        if (IsPassWithoutFrames("file(s) does not contain any valid frames")) {
            return KESTATUS_INVALID_FILE;
        }
        if (!mLoopMode) {
            SetState(State::Done);
            return KESTATUS_SUCCESS;
        }
        mFileNumber = mStartFileIndex;
        mLastReadTimestampValid = false;
        path = CreateNextFilePath();
    }
    mCurrentFilePath = path;
    SetState(State::ExpSectionHeader);
    return OpenCurrentFile();
}

// --- Reading -------------------------------------------------------------------------------------

KESTATUS PcapNgFileReader::FillSendQueue() {
    std::size_t cost = 0; // of what has been read, in bytes
    while (mFramePool.CurrentCount() != 0 && cost < cMaxReadPerFill) {
        const State state = CurrentState();
        if (state == State::Done || state == State::Error) {
            return KESTATUS_SUCCESS;
        }
        if (mIsThreadRunning && mThread.IsTerminationRequested()) {
            return KESTATUS_SUCCESS;
        }
        KESTATUS st = mFile.ReadNextBlock(mBlockData);
        cost += std::max(mBlockData.mDataLength, cMinBlockCost);
        if (st == KESTATUS_SUCCESS) {
            ProcessBlock();
        } else if (st == KESTATUS_NO_DATA) {
            st = OpenNextFile();
            if (st != KESTATUS_SUCCESS) {
                mStats.errInvalidFile.Add();
                return KEOutputFailure(logger::Global, "OpenNextFile failed, st={}", st);
            }
        } else {
            mStats.errReadFileFailed.Add();
            return KEOutputFailure(logger::Global, "ReadNextBlock failed, st={}", st);
        }
    }
    return KESTATUS_SUCCESS;
}

// Blocks of other types are skipped.
void PcapNgFileReader::ProcessBlock() {
    const auto type = KELoadNative<std::uint32_t>(mBlockData.mBuffer + pcapng::cBlockTypeOffset);
    const State state = CurrentState();
    if (type == pcapng::cSectionHeaderBlockType) {
        ProcessSectionHeaderBlock();
    } else if (type == pcapng::cInterfaceDescBlockType && state != State::ExpSectionHeader) {
        ProcessInterfaceDescBlock();
    } else if (type == pcapng::cEnhPacketBlockType && state == State::ReadPacket) {
        ProcessEnhPacketBlock();
    }
}

void PcapNgFileReader::ProcessSectionHeaderBlock() {
    PcapNgSectionHeaderBlock block;
    const KESTATUS st = block.InitSectionHeaderBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitSectionHeaderBlock failed, st={}", st);
        mStats.errInvalidSectionHeader.Add();
        SetState(State::ExpSectionHeader);
        return;
    }
    ProcessSectionHeader(block);
}

void PcapNgFileReader::ProcessSectionHeader(const PcapNgSectionHeaderBlock& block) {
    if (block.MajorVersion() != 1 || block.MinorVersion() != 0) {
        Log(KEWARN, "ignore section with unsupported version {}.{}", block.MajorVersion(),
            block.MinorVersion());
        mStats.errUnsupportedVersion.Add();
        SetState(State::ExpSectionHeader);
        return;
    }
    SetState(State::ExpInterfaceDesc);
}

void PcapNgFileReader::ProcessInterfaceDescBlock() {
    PcapNgInterfaceDescBlock block;
    const KESTATUS st = block.InitInterfaceDescBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitInterfaceDescBlock failed, st={}", st);
        mStats.errInvalidInterfaceDesc.Add();
        SetState(State::ExpInterfaceDesc);
        return;
    }
    ProcessInterfaceDescription(block);
}

void PcapNgFileReader::ProcessInterfaceDescription(const PcapNgInterfaceDescBlock& block) {
    if (block.LinkType() != pcapng::cLinkTypeEthernet) {
        Log(KEWARN, "ignore invalid linkType {}", block.LinkType());
        mStats.errInvalidLinkType.Add();
        SetState(State::ExpInterfaceDesc);
        return;
    }
    SetState(ReadTimestampFactor(block) ? State::ReadPacket : State::ExpInterfaceDesc);
}

bool PcapNgFileReader::ReadTimestampFactor(const PcapNgInterfaceDescBlock& block) {
    mTimestampFactor = cNanosecondsPerMicrosecond;
    const PcapNgOption* const option = block.LookupOptionByCode(pcapng::cOptionTimestampResolution);
    if (!option) {
        return true;
    }
    std::uint8_t resolution = 0;
    const KESTATUS st = option->GetNumericValue(resolution);
    if (st != KESTATUS_SUCCESS) {
        Log(KEWARN, "GetNumericValue failed, st={} (ignore option)", KEFormatArgKEStatus(st));
        mStats.errInvalidOption.Add();
        return true;
    }
    if (resolution == pcapng::cResolutionNanoseconds) {
        mTimestampFactor = 1;
    } else if (resolution != pcapng::cResolutionMicroseconds) {
        Log(KEWARN, "unsupported timestamp resolution {}", resolution);
        mStats.errUnsupportedTimestampResolution.Add();
        return false;
    }
    return true;
}

void PcapNgFileReader::ProcessEnhPacketBlock() {
    PcapNgEnhPacketBlock packet;
    const KESTATUS st = packet.InitEnhPacketBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}", st);
        mStats.errInvalidEnhPacket.Add();
        return;
    }
    ProcessEnhancedPacket(packet);
}

void PcapNgFileReader::ProcessEnhancedPacket(const PcapNgEnhPacketBlock& packet) {
    if (packet.IsPacketDataTruncated()) {
        Log(KEWARN, "ignore truncated packet");
        mStats.errPacketTruncated.Add();
    } else if (packet.CapturedLength() < cEthernetHeaderSize) {
        Log(KEWARN, "ignore frame with invalid length {}", packet.CapturedLength());
        mStats.errInvalidFrameLength.Add();
    } else if (IsTriggerFrame(packet.PacketData())) {
        Log(KEINFO, "ignore dummy Ethernet frame for external trigger event");
    } else if (AdvanceSendTime(packet.Timestamp())) {
        QueueFrame(packet);
    }
}

// False when the time has gone back, which ends the replay.
bool PcapNgFileReader::AdvanceSendTime(std::uint64_t timestamp) {
    if (!mLastReadTimestampValid) {
        mLastReadTimestampValid = true;
        if (mAddInitialOffset) {
            mAddInitialOffset = false;
            mCurSendTime = mClock.Now() + mInitialOffset;
        } else {
            mCurSendTime = Later(mCurSendTime, static_cast<std::uint64_t>(mLoopbackOffset.count()), 1);
        }
    } else if (timestamp < mLastReadTimestamp) {
        Log(KEERROR, "invalid timestamp lies before timestamp of last packet");
        mStats.errInvalidTimestamp.Add();
        SetState(State::Error);
        return false;
    } else {
        mCurSendTime = Later(mCurSendTime, timestamp - mLastReadTimestamp, mTimestampFactor);
    }
    mLastReadTimestamp = timestamp;
    return true;
}

void PcapNgFileReader::QueueFrame(const PcapNgEnhPacketBlock& packet) {
    RawFrame* const frame = mFramePool.GetRawFrame();
    if (frame->mFrameBuffer.mLength < packet.CapturedLength()) {
        Log(KEWARN, "franme buffer too small, got {}, req. {}", frame->mFrameBuffer.mLength,
            packet.CapturedLength());
        mStats.errFrameBufferTooSmall.Add();
        mFramePool.PutRawFrame(frame);
        return;
    }
    if (packet.IsPacketDataCut()) {
        Log(KEWARN, "ignore packet with more data than its block");
        mStats.errInvalidEnhPacket.Add();
        mFramePool.PutRawFrame(frame);
        return;
    }
    const KEConstBufferReference data = packet.PacketData();
    std::memcpy(frame->mFrameBuffer.mData, data.mData, data.mLength);
    frame->mFrameSize = static_cast<std::uint32_t>(data.mLength);
    if (mReplaceSrcMacAddr) {
        PatchRawFrameData(*frame);
    }
    frame->SetSendTime(mCurSendTime);
    mFramesToSent.AppendTail(*frame);
    mIsFrameQueued = true;
}

void PcapNgFileReader::PatchRawFrameData(RawFrame& frame) const noexcept {
    std::memcpy(frame.mFrameBuffer.mData + cEthernetSourceOffset, mDeviceMacAddress.mac, cMacAddressSize);
}

// --- Sending -------------------------------------------------------------------------------------

KESTATUS PcapNgFileReader::SendFrames(RawFrameTimePoint now) {
    bool isSubmitted = false;
    while (mFramesToSent.Head() && mFramesToSent.Head()->SendTime() <= now) {
        RawFrame* const frame = mFramesToSent.RemoveHead();
        const KESTATUS st = SubmitFrame(*frame);
        mFramePool.PutRawFrame(frame);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SubmitFrame failed, st={}", st);
        }
        isSubmitted = true;
    }
    if (isSubmitted) {
        const KESTATUS st = mDevice->SendRawFrames();
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SendRawFrames failed, st={}", st);
        }
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileReader::SubmitFrame(const RawFrame& frame) {
    const KEConstBufferReference data = frame.FrameData();
    const auto length = static_cast<unsigned>(data.mLength);
    KESTATUS st = mDevice->CheckSubmitRawFrame(length);
    if (st == KESTATUS_NO_SPACE) {
        st = mDevice->SendRawFrames();
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SendRawFrames failed, st={}", st);
        }
    } else if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "CheckSubmitRawFrame failed, st={}", st);
    }
    st = mDevice->SubmitRawFrame(data.mData, length, nullptr);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "SubmitRawFrame failed, st={}", st);
    }
    mStats.infFramesSent.Add();
    return KESTATUS_SUCCESS;
}

void PcapNgFileReader::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    mIsThreadRunning = true;
    SendUntilStopped();
    ClearSendList();
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
        KESTATUS st = SendFrames(now);
        if (st != KESTATUS_SUCCESS) {
            mFailure.store(KEOutputFailure(logger::Global, "SendFrames failed, st={}, stop thread", st),
                           std::memory_order_relaxed);
            mStats.errSendFramesFailed.Add();
            mLostFrames.UpdateNow(); // whoever sees the failure sees them as well
            SetState(State::Error);
            return;
        }
        try {
            st = FillSendQueue();
        } catch (const std::bad_alloc&) {
            st = KESTATUS_NO_MEMORY;
            mStats.errReadFileFailed.Add();
        }
        if (st != KESTATUS_SUCCESS) {
            mFailure.store(KEOutputFailure(logger::Global, "FillSendQueue failed, st={}, stop thread", st),
                           std::memory_order_relaxed);
            SetState(State::Error);
            return;
        }
        mLostFrames.Update(now);
        mClock.Sleep(mBlockDelay);
    }
}

void PcapNgFileReader::ClearSendList() noexcept {
    while (RawFrame* const frame = mFramesToSent.RemoveHead()) {
        mFramePool.PutRawFrame(frame);
    }
}

// --- Statistics ----------------------------------------------------------------------------------

std::uint64_t PcapNgFileReader::Statistics::TotalErrorsOccurred() const noexcept {
    return errInvalidFile + errReadFileFailed + errSendFramesFailed + errInvalidSectionHeader +
           errUnsupportedVersion + errInvalidInterfaceDesc + errInvalidLinkType + errInvalidEnhPacket +
           errPacketTruncated + errInvalidFrameLength + errFrameBufferTooSmall + errInvalidOption +
           errUnsupportedTimestampResolution + errInvalidTimestamp;
}

void PcapNgFileReader::QuerryStatistics(Statistics& statistics) const noexcept {
    // By name, so that the compiler checks their order.
    statistics = {.infFramesSent = mStats.infFramesSent.Value(),
                  .errInvalidFile = mStats.errInvalidFile.Value(),
                  .errReadFileFailed = mStats.errReadFileFailed.Value(),
                  .errSendFramesFailed = mStats.errSendFramesFailed.Value(),
                  .errInvalidSectionHeader = mStats.errInvalidSectionHeader.Value(),
                  .errUnsupportedVersion = mStats.errUnsupportedVersion.Value(),
                  .errInvalidInterfaceDesc = mStats.errInvalidInterfaceDesc.Value(),
                  .errInvalidLinkType = mStats.errInvalidLinkType.Value(),
                  .errInvalidEnhPacket = mStats.errInvalidEnhPacket.Value(),
                  .errPacketTruncated = mStats.errPacketTruncated.Value(),
                  .errInvalidFrameLength = mStats.errInvalidFrameLength.Value(),
                  .errFrameBufferTooSmall = mStats.errFrameBufferTooSmall.Value(),
                  .errInvalidOption = mStats.errInvalidOption.Value(),
                  .errUnsupportedTimestampResolution = mStats.errUnsupportedTimestampResolution.Value(),
                  .errInvalidTimestamp = mStats.errInvalidTimestamp.Value()};
}

void PcapNgFileReader::ResetStatistics() noexcept {
    for (RelaxedCounter* const counter :
         {&mStats.infFramesSent, &mStats.errInvalidFile, &mStats.errReadFileFailed,
          &mStats.errSendFramesFailed, &mStats.errInvalidSectionHeader, &mStats.errUnsupportedVersion,
          &mStats.errInvalidInterfaceDesc, &mStats.errInvalidLinkType, &mStats.errInvalidEnhPacket,
          &mStats.errPacketTruncated, &mStats.errInvalidFrameLength, &mStats.errFrameBufferTooSmall,
          &mStats.errInvalidOption, &mStats.errUnsupportedTimestampResolution, &mStats.errInvalidTimestamp}) {
        counter->Clear();
    }
}

} // namespace flowlane
