#include "streaming/AvtpSource.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/KEByteOrder.h"
#include "device/DeviceMacAddress.h"
#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;
using namespace avtp;

namespace {

constexpr std::int32_t cWaitWithoutLimit = -1;
// So many frames are processed between two looks at the clock.
constexpr unsigned cFramesPerUpdate = 64;
constexpr PipelineClock::Duration cTakeLimit = std::chrono::seconds(1); // after a stop
constexpr TNET_EthernetMacAddress cBroadcastAddress = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

bool IsAddress(const std::uint8_t* bytes, const TNET_EthernetMacAddress& address) noexcept {
    return std::memcmp(bytes, address.mac, cMacAddressSize) == 0;
}

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

} // namespace

AvtpSource::~AvtpSource() {
    AvtpSource::StopSource();
}

KESTATUS AvtpSource::CreateAvtpSource(QuaysideDevice& device, SinkBase& sink,
                                      const TNET_EthernetMacAddress& sourceAddress, std::uint16_t uniqueId,
                                      bool filterByUniqueId) {
    const KESTATUS st = ReadDeviceMacAddress(device, mMacAddress);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mSourceAddress = sourceAddress;
    std::memcpy(mStreamID.bytes, sourceAddress.mac, cMacAddressSize);
    KEStoreBE16(mStreamID.bytes + cMacAddressSize, uniqueId);
    mDevice = &device;
    mSink = &sink;
    mUniqueID = uniqueId;
    mFilterByUniqueId = filterByUniqueId;
    mLostFrames.Start(device, mClock.Now());
    return KESTATUS_SUCCESS;
}

KESTATUS AvtpSource::StartSource() {
    if (!mDevice) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const KEOsWorkerThreadState state = mThread.State();
    if (state == KEOsWorkerThreadState::NotCreated || state == KEOsWorkerThreadState::Terminated) {
        mSequenceNumber = 0;
        mDataBlockCount = 0;
        mStats.Clear();
        mFailure.store(KESTATUS_SUCCESS, std::memory_order_relaxed);
        ResetTsPacketAssembler();
        mSequenceNumberValid = false;
        const KESTATUS st = mDevice->EnableRawRx();
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "EnableRawRx failed, st={}", st);
        }
        mIsReceptionEnabled = true;
    }
    const KESTATUS st = mThread.CreateThread(this); // runs ThreadRoutine
    if (st != KESTATUS_SUCCESS) {
        if (st != KESTATUS_ALREADY_DONE) { // otherwise a running worker needs it
            mIsReceptionEnabled = false;
            static_cast<void>(mDevice->DisableRawRx()); // the start fails anyway
        }
        return KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
    }
    return KESTATUS_SUCCESS;
}

void AvtpSource::StopSource() {
    mThread.RequestTermination();
    const bool wasReceiving = std::exchange(mIsReceptionEnabled, false);
    if (wasReceiving) {
        WaitUntilAllIsTaken();
        const KESTATUS st = mDevice->DisableRawRx(); // wakes the thread
        if (st != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Global, "DisableRawRx failed, st={}", st);
        }
    }
    mThread.WaitForTerminationAndDestroy(-1);
    if (wasReceiving) {
        mLostFrames.UpdateNow();
    }
}

// Disabling reception discards the frames that the worker has not taken. Under full load there are always
// some, so the wait is limited.
void AvtpSource::WaitUntilAllIsTaken() {
    const PipelineClock::TimePoint deadline = mClock.Now() + cTakeLimit;
    while (!mIsWaiting.load() && !mThread.HasEnded() && mClock.Now() < deadline) {
        mClock.Sleep(1);
    }
}

void AvtpSource::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    ReceiveUntilStopped();
    mThread.SetState(KEOsWorkerThreadState::Stopping, KESTATUS_SUCCESS);
}

void AvtpSource::ReceiveUntilStopped() {
    while (!mThread.IsTerminationRequested()) {
        KESTATUS st = WaitForFrames();
        if (st == KESTATUS_NOT_ENABLED) {
            continue; // either this is the stop, or reception is enabled again
        }
        if (st != KESTATUS_SUCCESS) {
            GiveUp("WaitForRawFrame failed, st={}, stop thread", st);
            return;
        }
        st = ProcessData();
        if (st != KESTATUS_SUCCESS) {
            GiveUp("ProcessData failed, st={}, stop thread", st);
            return;
        }
    }
}

KESTATUS AvtpSource::WaitForFrames() {
    mIsWaiting.store(true);
    const KESTATUS st = mDevice->WaitForRawFrame(cWaitWithoutLimit);
    mIsWaiting.store(false);
    return st;
}

// A thread that sees the failure also sees how many frames were lost before.
void AvtpSource::GiveUp(const char* format, KESTATUS st) {
    KEOutputFailure(logger::Global, format, st);
    mLostFrames.UpdateNow();
    mFailure.store(st, std::memory_order_release);
}

// Takes all frames that are ready.
KESTATUS AvtpSource::ProcessData() {
    KESTATUS st = KESTATUS_SUCCESS;
    while (st == KESTATUS_SUCCESS) {
        st = ProcessFrames();
        mLostFrames.Update(mClock.Now());
    }
    return st == KESTATUS_NO_DATA || st == KESTATUS_NOT_ENABLED ? KESTATUS_SUCCESS : st;
}

// Takes some of the frames that are ready. Success when there may be more, else the status of the device.
KESTATUS AvtpSource::ProcessFrames() {
    std::uint8_t frame[cEthMaxFrameSize];
    for (unsigned count = 0; count < cFramesPerUpdate; ++count) {
        unsigned length = 0;
        const KESTATUS st = mDevice->GetReceivedRawFrame(nullptr, frame, sizeof frame, &length);
        if (st == KESTATUS_NO_DATA || st == KESTATUS_NOT_ENABLED) {
            return st;
        }
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "GetReceivedRawFrame failed, st={}", st);
        }
        ProcessEthernetFrame(frame, std::min<unsigned>(length, sizeof frame));
    }
    return KESTATUS_SUCCESS;
}

void AvtpSource::ProcessEthernetFrame(const std::uint8_t* frame, unsigned length) {
    mStats.Add(&Statistics::infFramesTaken);
    unsigned headerSize = 0;
    if (!CheckEthernetHeader(frame, length, headerSize)) {
        return;
    }
    const std::uint8_t* const avtpHeader = frame + headerSize;
    const unsigned avtpLength = length - headerSize;
    if (!CheckAvtpHeader(avtpHeader, avtpLength)) {
        return;
    }
    mStats.Add(&Statistics::infAvtpPacketsReceived);
    const unsigned cipLength = avtpLength - cAvtpHeaderSize;
    if (!CheckCipHeader(avtpHeader + cAvtpHeaderSize, cipLength)) {
        ResetTsPacketAssembler();
        return;
    }
    const unsigned dataLength = cipLength - cCipHeaderSize;
    if (dataLength % cDataBlockSize != 0) {
        Log(KEWARN, "unexpected byte count {} not multiple of data block size ({} bytes)", dataLength,
            cDataBlockSize);
        NoteDamage();
        return;
    }
    const std::uint8_t* const data = avtpHeader + cAvtpHeaderSize + cCipHeaderSize;
    ProcessDataBlocks(data, dataLength);
    const KESTATUS st = mSink->SendDeliveredPackets();
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "SendDeliveredPackets failed, st={}", st);
    }
}

bool AvtpSource::CheckEthernetHeader(const std::uint8_t* frame, unsigned length, unsigned& headerSize) {
    if (length < cEthHeaderSize) {
        Log(KEERROR, "frame length {} too small, min. {}", length, cEthHeaderSize);
        NoteDamage();
        return false;
    }
    if (!CheckDestinationAddress(frame + cEthDestinationOffset)) {
        mStats.Add(&Statistics::infOtherDestination);
        return false;
    }
    if (mSourceAddress != cBroadcastAddress && !IsAddress(frame + cEthSourceOffset, mSourceAddress)) {
        Log(KEINFO, "source MAC address mismatch");
        mStats.Add(&Statistics::infOtherSender);
        return false;
    }
    headerSize = cEthHeaderSize;
    std::uint16_t etherType = KELoadBE16(frame + cEthTypeOffset);
    if (etherType == cEtherTypeVlan) {
        if (length < cEthVlanHeaderSize) {
            Log(KEERROR, "VLAN frame length {} too small, min. {}", length, cEthVlanHeaderSize);
            NoteDamage();
            return false;
        }
        headerSize = cEthVlanHeaderSize;
        etherType = KELoadBE16(frame + cEthVlanTypeOffset);
    }
    if (etherType != cEtherTypeAvtp) {
        Log(KEINFO, "ignore frame with unsupported EtherType {:#X}", etherType);
        mStats.Add(&Statistics::infOtherProtocol);
        return false;
    }
    return true;
}

// The only group address that this receiver accepts is broadcast.
bool AvtpSource::CheckDestinationAddress(const std::uint8_t* destination) const {
    const bool isGroupAddress = (destination[0] & 0x01) != 0;
    if (isGroupAddress) {
        if (!IsAddress(destination, cBroadcastAddress)) {
            Log(KEINFO, "ignore frame with multicast MAC address");
            return false;
        }
    } else if (!IsAddress(destination, mMacAddress)) {
        Log(KEINFO, "destination MAC address mismatch");
        return false;
    }
    return true;
}

bool AvtpSource::CheckAvtpHeader(const std::uint8_t* header, unsigned length) {
    if (length < cAvtpHeaderSize) {
        Log(KEERROR, "AVTP packet length {} too small, min. {}", length, cAvtpHeaderSize);
        NoteDamage();
        return false;
    }
    const std::uint8_t subtype = header[cAvtpSubtypeOffset];
    if (subtype != cAvtpSubtype61883) {
        Log(KEINFO, "ignore unsupported subtype {:#X}", subtype);
        mStats.Add(&Statistics::infOtherFormat);
        return false;
    }
    const unsigned version = header[cAvtpFlagsOffset] >> 4 & 0x7;
    if (version != 0) {
        Log(KEINFO, "ignore unsupported version {}", version);
        mStats.Add(&Statistics::infOtherFormat);
        return false;
    }
    if (mFilterByUniqueId && !CheckUniqueId(header)) {
        mStats.Add(&Statistics::infOtherUniqueId);
        return false;
    }
    const std::uint8_t sequenceNumber = header[cAvtpSequenceNumberOffset];
    if (mSequenceNumberValid && sequenceNumber != mSequenceNumber) {
        Log(KEWARN, "sequence number mismatch, got {}, exp. {}", sequenceNumber, mSequenceNumber);
        mStats.Add(&Statistics::errGaps);
        ResetTsPacketAssembler();
    }
    mSequenceNumberValid = true;
    mSequenceNumber = static_cast<std::uint8_t>(sequenceNumber + 1);
    const std::uint16_t streamDataLength = KELoadBE16(header + cAvtpStreamDataLengthOffset);
    if (streamDataLength != length - cAvtpHeaderSize) {
        Log(KEWARN, "stream data length mismatch, got {}, exp. {}", streamDataLength,
            length - cAvtpHeaderSize);
        NoteDamage();
        return false;
    }
    return true;
}

bool AvtpSource::CheckUniqueId(const std::uint8_t* header) const {
    if ((header[cAvtpFlagsOffset] & cAvtpStreamIdValid) == 0) {
        Log(KEWARN, "ignore packet with invalid StreamID");
        return false;
    }
    const std::uint16_t uniqueId = KELoadBE16(header + cAvtpStreamIdOffset + cMacAddressSize);
    if (uniqueId != mUniqueID) {
        Log(KEINFO, "unique ID mismatch, got {}, exp. {}", uniqueId, mUniqueID);
        return false;
    }
    return true;
}

bool AvtpSource::CheckCipHeader(const std::uint8_t* header, unsigned length) {
    if (length < cCipHeaderSize) {
        Log(KEERROR, "CIP length {} too small, min. {}", length, cCipHeaderSize);
        mStats.Add(&Statistics::errFramesDamaged);
        return false;
    }
    if (!CheckCipFormat(header)) {
        mStats.Add(&Statistics::infOtherFormat);
        return false;
    }
    const std::uint8_t dataBlockCount = header[cCipDbcOffset];
    if (mTsPacketState == TSPacketAssemblerState::ReceivingDataBlocks && dataBlockCount != mDataBlockCount) {
        Log(KEWARN, "DBC mismatch, got {}, exp. {}", dataBlockCount, mDataBlockCount);
        mStats.Add(&Statistics::errGaps);
        ResetTsPacketAssembler();
    }
    mDataBlockCount = dataBlockCount;
    return true;
}

// Whether it carries a transport stream.
bool AvtpSource::CheckCipFormat(const std::uint8_t* header) {
    if (header[cCipDbsOffset] != cCipDbsTS) {
        Log(KEINFO, "ignore unsupported DBS {}", header[cCipDbsOffset]);
        return false;
    }
    const unsigned fractionNumber = header[cCipFnOffset] >> 6;
    if (fractionNumber != cCipFnTS >> 6) {
        Log(KEINFO, "ignore unsupported FN {}", fractionNumber);
        return false;
    }
    if ((header[cCipFnOffset] & cCipSphBit) == 0) {
        Log(KEINFO, "ignore data without source packet header");
        return false;
    }
    const unsigned format = header[cCipFmtOffset] & 0x3F;
    if (format != (cCipFmtTS & 0x3F)) {
        Log(KEINFO, "ignore unsupported FMT {}", format);
        return false;
    }
    return true;
}

void AvtpSource::ProcessDataBlocks(const std::uint8_t* data, unsigned length) {
    const std::uint8_t* const end = data + length;
    while (data != end) {
        const bool isWholeSourcePacket =
            mDataBlockCount % cDataBlocksPerSourcePacket == 0 && end - data >= cSourcePacketSize;
        if (isWholeSourcePacket) {
            mTsPacketState = TSPacketAssemblerState::ReceivingDataBlocks;
            std::memcpy(mTsPacket.mData, data + cSourcePacketHeaderSize, TSPacket::cSize);
            mDataBlockCount = static_cast<std::uint8_t>(mDataBlockCount + cDataBlocksPerSourcePacket);
            DeliverPacket();
            data += cSourcePacketSize;
        } else {
            ProcessDataBlock(data);
            data += cDataBlockSize;
        }
    }
}

// One data block of a source packet that two frames share.
void AvtpSource::ProcessDataBlock(const std::uint8_t* block) {
    const bool isFirstOfSourcePacket = mDataBlockCount % cDataBlocksPerSourcePacket == 0;
    if (mTsPacketState == TSPacketAssemblerState::Synchronizing) {
        if (!isFirstOfSourcePacket) {
            ++mDataBlockCount; // inside a source packet whose start was not received
            return;
        }
        mTsPacketState = TSPacketAssemblerState::ReceivingDataBlocks;
    }
    const unsigned skipped = isFirstOfSourcePacket ? cSourcePacketHeaderSize : 0;
    std::memcpy(mCurTsPacketData, block + skipped, cDataBlockSize - skipped);
    mCurTsPacketData += cDataBlockSize - skipped;
    ++mDataBlockCount;
    if (mDataBlockCount % cDataBlocksPerSourcePacket == 0) {
        DeliverPacket();
        mCurTsPacketData = mTsPacket.mData;
    }
}

void AvtpSource::DeliverPacket() {
    const KESTATUS st = mSink->DeliverTSPacket(mTsPacket);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "DeliverTSPacket failed, st={}", st);
    }
    mStats.Add(&Statistics::infTsPacketsDelivered);
}

// The frame cannot be used.
void AvtpSource::NoteDamage() noexcept {
    mStats.Add(&Statistics::errFramesDamaged);
    ResetTsPacketAssembler();
}

// Discards the part of a packet that was put together so far.
void AvtpSource::ResetTsPacketAssembler() noexcept {
    mCurTsPacketData = mTsPacket.mData;
    mTsPacketState = TSPacketAssemblerState::Synchronizing;
}

AvtpSource::Statistics AvtpSource::QuerryStatistics() const noexcept {
    return mStats.Snapshot();
}

} // namespace flowlane
