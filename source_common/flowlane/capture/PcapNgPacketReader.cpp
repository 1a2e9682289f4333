#include "capture/PcapNgPacketReader.h"

#include <algorithm>
#include <cstring>

#include "base/KEByteOrder.h"
#include "capture/TriggerFrame.h"
#include "device/EthernetFormat.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;
using Statistics = PcapNgReaderStatistics;

namespace {

constexpr std::uint32_t cNanosecondsPerMicrosecond = 1000;

// The size of the block buffer is a multiple of this.
constexpr std::size_t cBlockBufferUnit = 1024;

// One call of FillSendQueue reads about this many bytes. A file may have any number of blocks without a frame
// to send. Between them the thread has to send what is due, and to look whether the user asks for the end. A
// short block costs as much time as one of cMinBlockCost bytes.
constexpr std::size_t cMaxReadPerFill = 64u << 20;
constexpr std::size_t cMinBlockCost = 256;

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

// A time that is so many units later. A sum beyond the clock's range gives the end of the range, so that the
// frame is never due.
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

const char* PcapNgPacketReader::StrForState(State state) noexcept {
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

void PcapNgPacketReader::SetState(State state) {
    const State old = CurrentState();
    if (state != old) {
        Log(KEVERBOSE, "{} --> {}", StrForState(old), StrForState(state));
        mCurrentState.store(state, std::memory_order_release);
    }
}

void PcapNgPacketReader::Start(bool replaceSrcMacAddr, const TNET_EthernetMacAddress& deviceMacAddress) {
    mReplaceSrcMacAddr = replaceSrcMacAddr;
    mDeviceMacAddress = deviceMacAddress;
    mAddInitialOffset = true;
    mLastReadTimestampValid = false;
    mIsFrameQueued = false;
    mPacketNumber = 0;
    mPackets.Clear();
    mLeftOut = &ReplayedPackets::withoutInterface;
    mFailure = {};
    SetState(State::ExpSectionHeader);
}

void PcapNgPacketReader::ReserveBlock(unsigned frameSize) {
    const std::size_t blockSize =
        (std::size_t{frameSize} + pcapng::cEnhPacketFixedSize + cBlockBufferUnit - 1) &
        ~(cBlockBufferUnit - 1);
    if (mBlockData.mBufferSize < blockSize) {
        mBlockData = KEBufferBlock(blockSize);
    }
    mBlockData.mDataLength = 0;
}

KESTATUS PcapNgPacketReader::FillSendQueue(const StopCheck& isStopRequested) {
    std::size_t cost = 0; // bytes
    while (mFramePool.CurrentCount() != 0 && cost < cMaxReadPerFill) {
        const State state = CurrentState();
        if (state == State::Done || state == State::Error || (isStopRequested && isStopRequested())) {
            return KESTATUS_SUCCESS;
        }
        KESTATUS st = mFiles.ReadNextBlock(mBlockData);
        cost += std::max(mBlockData.mDataLength, cMinBlockCost);
        if (st == KESTATUS_SUCCESS) {
            ProcessBlock();
        } else if (st == KESTATUS_NO_DATA) {
            st = OpenNextFile();
            if (st != KESTATUS_SUCCESS) {
                mStats.Add(&Statistics::errInvalidFile);
                return KEOutputFailure(logger::Global, "OpenNextFile failed, st={}", st);
            }
        } else {
            NoteReadFailure(st);
            mStats.Add(&Statistics::errReadFileFailed);
            return KEOutputFailure(logger::Global, "ReadNextBlock failed, st={}", st);
        }
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgPacketReader::OpenNextFile() {
    PcapNgFileSet::Next next = PcapNgFileSet::Next::End;
    KESTATUS st = mFiles.SelectNext(mIsFrameQueued, next);
    if (st != KESTATUS_SUCCESS) {
        NoteFailure(ReplayFailure::Cause::NoFrames, st);
        return st;
    }
    if (next == PcapNgFileSet::Next::End) {
        SetState(State::Done);
        return KESTATUS_SUCCESS;
    }
    if (next == PcapNgFileSet::Next::Pass) {
        mIsFrameQueued = false;
        mLastReadTimestampValid = false;
    }
    SetState(State::ExpSectionHeader);
    mPacketNumber = 0;
    mIsFirstOfFile = next == PcapNgFileSet::Next::File;
    mLeftOut = &ReplayedPackets::withoutInterface;
    st = mFiles.OpenSelected();
    if (st != KESTATUS_SUCCESS) {
        NoteFailure(ReplayFailure::Cause::NextFile, st);
    }
    return st;
}

// --- Failures ------------------------------------------------------------------------------------

ReplayFailure& PcapNgPacketReader::NoteFailure(ReplayFailure::Cause cause, KESTATUS st) noexcept {
    mFailure = {};
    mFailure.cause = cause;
    mFailure.status = st;
    mFailure.fileNumber = mFiles.CurrentFileNumber();
    mFailure.packetNumber = mPacketNumber;
    return mFailure;
}

void PcapNgPacketReader::Fail() {
    mFailure.unsentFrames = mFramePool.TotalCount() - mFramePool.CurrentCount();
    SetState(State::Error); // last: with it another thread sees the failure
}

void PcapNgPacketReader::NoteReadFailure(KESTATUS st) noexcept {
    using Cause = ReplayFailure::Cause;
    switch (mFiles.LastReadFault()) {
    case PcapNgFile::ReadFault::CutShort:
        NoteFailure(Cause::CutShort, st);
        return;
    case PcapNgFile::ReadFault::Damaged:
        NoteFailure(Cause::Damaged, st);
        return;
    case PcapNgFile::ReadFault::System:
    case PcapNgFile::ReadFault::None:
        break;
    }
    const KESTATUS reason = mFiles.SystemError();
    NoteFailure(Cause::ReadFailed, reason != KESTATUS_SUCCESS ? reason : st);
}

// --- Blocks --------------------------------------------------------------------------------------

// Blocks of other types are skipped.
void PcapNgPacketReader::ProcessBlock() {
    const auto type = KELoadNative<std::uint32_t>(mBlockData.mBuffer + pcapng::cBlockTypeOffset);
    const State state = CurrentState();
    CountPacket(type, state);
    if (type == pcapng::cSectionHeaderBlockType) {
        ProcessSectionHeaderBlock();
    } else if (type == pcapng::cInterfaceDescBlockType && state != State::ExpSectionHeader) {
        ProcessInterfaceDescBlock();
    } else if (type == pcapng::cEnhPacketBlockType && state == State::ReadPacket) {
        ProcessEnhPacketBlock();
    }
}

// Packets that are looked into are counted as read only.
void PcapNgPacketReader::CountPacket(std::uint32_t blockType, State state) noexcept {
    if (blockType == pcapng::cSimplePacketBlockType) {
        mPackets.Add(&ReplayedPackets::withoutTime);
    } else if (blockType == pcapng::cObsoletePacketBlockType) {
        mPackets.Add(&ReplayedPackets::obsolete);
    } else if (blockType != pcapng::cEnhPacketBlockType) {
        return;
    } else if (state != State::ReadPacket) {
        mPackets.Add(mLeftOut);
    }
    ++mPacketNumber;
    mPackets.Add(&ReplayedPackets::read);
}

void PcapNgPacketReader::ProcessSectionHeaderBlock() {
    mLeftOut = &ReplayedPackets::withoutInterface;
    PcapNgSectionHeaderBlock block;
    const KESTATUS st = block.InitSectionHeaderBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitSectionHeaderBlock failed, st={}", st);
        mStats.Add(&Statistics::errInvalidSectionHeader);
        SetState(State::ExpSectionHeader);
        return;
    }
    ProcessSectionHeader(block);
}

void PcapNgPacketReader::ProcessSectionHeader(const PcapNgSectionHeaderBlock& block) {
    if (block.MajorVersion() != pcapng::cMajorVersion || block.MinorVersion() != pcapng::cMinorVersion) {
        Log(KEWARN, "ignore section with unsupported version {}.{}", block.MajorVersion(),
            block.MinorVersion());
        mStats.Add(&Statistics::errUnsupportedVersion);
        SetState(State::ExpSectionHeader);
        return;
    }
    SetState(State::ExpInterfaceDesc);
}

void PcapNgPacketReader::ProcessInterfaceDescBlock() {
    mLeftOut = &ReplayedPackets::withoutInterface;
    PcapNgInterfaceDescBlock block;
    const KESTATUS st = block.InitInterfaceDescBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitInterfaceDescBlock failed, st={}", st);
        mStats.Add(&Statistics::errInvalidInterfaceDesc);
        SetState(State::ExpInterfaceDesc);
        return;
    }
    ProcessInterfaceDescription(block);
}

void PcapNgPacketReader::ProcessInterfaceDescription(const PcapNgInterfaceDescBlock& block) {
    if (block.LinkType() != pcapng::cLinkTypeEthernet) {
        Log(KEWARN, "ignore invalid linkType {}", block.LinkType());
        mStats.Add(&Statistics::errInvalidLinkType);
        mLeftOut = &ReplayedPackets::otherLinkType;
        SetState(State::ExpInterfaceDesc);
        return;
    }
    SetState(ReadTimestampFactor(block) ? State::ReadPacket : State::ExpInterfaceDesc);
}

bool PcapNgPacketReader::ReadTimestampFactor(const PcapNgInterfaceDescBlock& block) {
    mTimestampFactor = cNanosecondsPerMicrosecond;
    const PcapNgOption* const option = block.LookupOptionByCode(pcapng::cOptionTimestampResolution);
    if (!option) {
        return true;
    }
    std::uint8_t resolution = 0;
    const KESTATUS st = option->GetNumericValue(resolution);
    if (st != KESTATUS_SUCCESS) {
        Log(KEWARN, "GetNumericValue failed, st={} (ignore option)", KEFormatArgKEStatus(st));
        mStats.Add(&Statistics::errInvalidOption);
        return true;
    }
    if (resolution == pcapng::cResolutionNanoseconds) {
        mTimestampFactor = 1;
    } else if (resolution != pcapng::cResolutionMicroseconds) {
        Log(KEWARN, "unsupported timestamp resolution {}", resolution);
        mStats.Add(&Statistics::errUnsupportedTimestampResolution);
        mLeftOut = &ReplayedPackets::otherTimeUnit;
        return false;
    }
    return true;
}

// --- Packets -------------------------------------------------------------------------------------

void PcapNgPacketReader::ProcessEnhPacketBlock() {
    PcapNgEnhPacketBlock packet;
    const KESTATUS st = packet.InitEnhPacketBlock({mBlockData.mBuffer, mBlockData.mDataLength});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}", st);
        mStats.Add(&Statistics::errInvalidEnhPacket);
        return;
    }
    ProcessEnhancedPacket(packet);
}

void PcapNgPacketReader::ProcessEnhancedPacket(const PcapNgEnhPacketBlock& packet) {
    if (packet.IsPacketDataTruncated()) {
        Log(KEWARN, "ignore truncated packet");
        mStats.Add(&Statistics::errPacketTruncated);
    } else if (packet.CapturedLength() < ethernet::cEthHeaderSize) {
        Log(KEWARN, "ignore frame with invalid length {}", packet.CapturedLength());
        mStats.Add(&Statistics::errInvalidFrameLength);
    } else if (triggerframe::IsSkipped(packet.PacketData())) {
        Log(KEINFO, "ignore dummy Ethernet frame for external trigger event");
        mPackets.Add(&ReplayedPackets::triggers);
    } else if (AdvanceSendTime(packet.Timestamp())) {
        QueueFrame(packet);
    }
}

// False when the packet is earlier than the one before, which ends the replay.
bool PcapNgPacketReader::AdvanceSendTime(std::uint64_t timestamp) {
    if (!mLastReadTimestampValid) {
        mLastReadTimestampValid = true;
        if (mAddInitialOffset) {
            mAddInitialOffset = false;
            mCurSendTime = mClock.Now() + mInitialOffset;
        } else {
            mCurSendTime = Later(mCurSendTime, static_cast<std::uint64_t>(mLoopbackOffset.count()), 1);
        }
        mFirstSendTime = mCurSendTime;
    } else if (timestamp < mLastReadTimestamp) {
        Log(KEERROR, "invalid timestamp lies before timestamp of last packet");
        mStats.Add(&Statistics::errInvalidTimestamp);
        FailBecauseTimeGoesBack(timestamp);
        return false;
    } else {
        mCurSendTime = Later(mCurSendTime, timestamp - mLastReadTimestamp, mTimestampFactor);
    }
    mLastReadTimestamp = timestamp;
    mLastTimestampFactor = mTimestampFactor;
    mIsFirstOfFile = false;
    return true;
}

void PcapNgPacketReader::FailBecauseTimeGoesBack(std::uint64_t timestamp) {
    ReplayFailure& failure = NoteFailure(ReplayFailure::Cause::TimeGoesBack, KESTATUS_SUCCESS);
    failure.previousTime = mLastReadTimestamp * mLastTimestampFactor;
    failure.time = timestamp * mTimestampFactor;
    failure.isBetweenFiles = mIsFirstOfFile;
    Fail();
}

void PcapNgPacketReader::QueueFrame(const PcapNgEnhPacketBlock& packet) {
    RawFrame* const frame = mFramePool.GetRawFrame();
    if (frame->mFrameBuffer.mLength < packet.CapturedLength()) {
        Log(KEWARN, "franme buffer too small, got {}, req. {}", frame->mFrameBuffer.mLength,
            packet.CapturedLength());
        mStats.Add(&Statistics::errFrameBufferTooSmall);
        mFramePool.PutRawFrame(frame);
        return;
    }
    if (packet.IsPacketDataCut()) {
        Log(KEWARN, "ignore packet with more data than its block");
        mStats.Add(&Statistics::errInvalidEnhPacket);
        mFramePool.PutRawFrame(frame);
        return;
    }
    const KEConstBufferReference data = packet.PacketData();
    std::memcpy(frame->mFrameBuffer.mData, data.mData, data.mLength);
    PrefetchRawFrame(mFramePool.NextRawFrame(), data.mLength); // the next packet is likely to be as long
    frame->mFrameSize = static_cast<std::uint32_t>(data.mLength);
    if (mReplaceSrcMacAddr) {
        PatchRawFrameData(*frame);
    }
    frame->mOrigin = {mFiles.CurrentFileNumber(), mPacketNumber, mCurSendTime - mFirstSendTime};
    frame->SetSendTime(mCurSendTime);
    mFramesToSent.AppendTail(*frame);
    mIsFrameQueued = true;
}

void PcapNgPacketReader::PatchRawFrameData(RawFrame& frame) const noexcept {
    std::memcpy(frame.mFrameBuffer.mData + ethernet::cEthSourceOffset, mDeviceMacAddress.mac,
                sizeof mDeviceMacAddress.mac);
}

} // namespace flowlane
