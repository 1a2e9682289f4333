#include "streaming/AvtpSink.h"

#include <algorithm>
#include <cstring>

#include "base/KEByteOrder.h"
#include "device/DeviceMacAddress.h"
#include "log/KELogging.h"

namespace kestrelon::fmtimpl {

template <>
int DoFormatAction<flowlane::EthernetHeaderType>(KEFormatterContext& context, const void* arg) {
    if (!arg) {
        return 0;
    }
    const auto type = *static_cast<const flowlane::EthernetHeaderType*>(arg);
    return context.fmt.FmtInteger(static_cast<std::uint32_t>(type), context.fs);
}

} // namespace kestrelon::fmtimpl

namespace flowlane {

using namespace kestrelon;
using namespace avtp;

KESTATUS AvtpSink::CreateAvtpSink(QuaysideDevice& device, const TNET_EthernetMacAddress& destinationAddress,
                                  std::uint16_t uniqueId, std::uint16_t vlanTCI,
                                  unsigned maxSourcePacketCount) {
    const KESTATUS st = ReadDeviceMacAddress(device, mSourceAddress);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mDestinationAddress = destinationAddress;
    mMaxSourcePacketCount =
        maxSourcePacketCount == 0 ? cMaxSourcePackets : std::min(maxSourcePacketCount, cMaxSourcePackets);
    mDevice = &device;
    mEthernetHeaderType = vlanTCI != 0 ? EthernetHeaderType::IEEE_802_1q : EthernetHeaderType::IEEE_802_3;
    mEthernetHeaderSize = vlanTCI != 0 ? cEthVlanHeaderSize : cEthHeaderSize;
    std::memcpy(mStreamId.bytes, mSourceAddress.mac, cMacAddressSize);
    KEStoreBE16(mStreamId.bytes + cMacAddressSize, uniqueId);
    mVlanTCI = vlanTCI;
    mLostFrames.Start(device, mClock.Now());
    return KESTATUS_SUCCESS;
}

KESTATUS AvtpSink::StartSink() {
    mAvtpHeader = mEthernetFrame + mEthernetHeaderSize;
    mCipHeader = mAvtpHeader + cAvtpHeaderSize;
    mSourcePacketStart = mCipHeader + cCipHeaderSize;
    mCurSourcePacket = mSourcePacketStart;
    mSourcePacketCount = 0;
    mStreamDataLength = cCipHeaderSize;
    mDataBlockCount = 0;
    mSequenceNumber = 0;
    mWaitForResources = false;
    InitEthernetHeader();
    return KESTATUS_SUCCESS;
}

void AvtpSink::StopSink() {
    mLostFrames.UpdateNow();
}

KESTATUS AvtpSink::DeliverTSPacket(const TSPacket& packet) {
    if (!IsReady()) {
        return KESTATUS_NOT_INITIALIZED;
    }
    const KESTATUS st = AppendPacket(packet);
    if (st != KESTATUS_SUCCESS) {
        mLostFrames.UpdateNow(); // the source gives up: there is no later update
    }
    return st;
}

KESTATUS AvtpSink::SendDeliveredPackets() {
    const KESTATUS st = SendFrames();
    if (st != KESTATUS_SUCCESS) {
        mLostFrames.UpdateNow();
        return st;
    }
    mLostFrames.Update(mClock.Now());
    return KESTATUS_SUCCESS;
}

KESTATUS AvtpSink::AppendPacket(const TSPacket& packet) {
    if (mSourcePacketCount >= mMaxSourcePacketCount) {
        // A full frame was kept, because the device had no transmit resources or failed. This is its last
        // chance: the buffer takes no further packet.
        const KESTATUS st = CompleteFrame();
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        if (mSourcePacketCount != 0) {
            ResetFrame();
        }
    }
    KEStoreBE32(mCurSourcePacket, static_cast<std::uint32_t>(packet.mDeliverTime.time_since_epoch().count()));
    std::memcpy(mCurSourcePacket + cSourcePacketHeaderSize, packet.mData, TSPacket::cSize);
    mCurSourcePacket += cSourcePacketSize;
    ++mSourcePacketCount;
    mStreamDataLength = static_cast<std::uint16_t>(mStreamDataLength + cSourcePacketSize);
    return mSourcePacketCount == mMaxSourcePacketCount ? CompleteFrame() : KESTATUS_SUCCESS;
}

KESTATUS AvtpSink::SendFrames() {
    const bool isPartFilled = mSourcePacketCount != 0;
    if (!isPartFilled && (!mSendFullFrames || !IsReady())) {
        return KESTATUS_SUCCESS;
    }
    KESTATUS st = isPartFilled ? CompleteFrame() : KESTATUS_SUCCESS;
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    st = mDevice->SendRawFrames();
    if (st != KESTATUS_SUCCESS && st != KESTATUS_NO_DATA) {
        return KEOutputFailure(logger::Global, "SendRawFrames failed, st={}", st);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS AvtpSink::CompleteFrame() {
    InitAvtpHeader();
    InitCipHeader();
    const KESTATUS st = SubmitEthernetFrame();
    return st == KESTATUS_SUCCESS ? st
                                  : KEOutputFailure(logger::Global, "SubmitEthernetFrame failed, st={}", st);
}

void AvtpSink::InitEthernetHeader() {
    switch (mEthernetHeaderType) {
    case EthernetHeaderType::IEEE_802_3:
        KEStoreBE16(mEthernetFrame + cEthTypeOffset, cEtherTypeAvtp);
        break;
    case EthernetHeaderType::IEEE_802_1q:
        KEStoreBE16(mEthernetFrame + cEthTypeOffset, cEtherTypeVlan);
        KEStoreBE16(mEthernetFrame + cEthVlanTCIOffset, mVlanTCI);
        KEStoreBE16(mEthernetFrame + cEthVlanTypeOffset, cEtherTypeAvtp);
        break;
    default:
        KEOutputLogMessage(logger::Global, KEFATAL, "unsupported Ethernet header type {}",
                           mEthernetHeaderType);
        return;
    }
    std::memcpy(mEthernetFrame + cEthDestinationOffset, mDestinationAddress.mac, cMacAddressSize);
    std::memcpy(mEthernetFrame + cEthSourceOffset, mSourceAddress.mac, cMacAddressSize);
}

void AvtpSink::InitAvtpHeader() noexcept {
    mAvtpHeader[cAvtpSubtypeOffset] = cAvtpSubtype61883;
    mAvtpHeader[cAvtpFlagsOffset] = cAvtpStreamIdValid;
    mAvtpHeader[cAvtpSequenceNumberOffset] = TakeSequenceNumber();
    mAvtpHeader[cAvtpTimestampUncertainOffset] = 0;
    std::memcpy(mAvtpHeader + cAvtpStreamIdOffset, mStreamId.bytes, sizeof mStreamId.bytes);
    KEStoreBE32(mAvtpHeader + cAvtpTimestampOffset, 0);
    KEStoreBE32(mAvtpHeader + cAvtpGatewayInfoOffset, 0);
    KEStoreBE16(mAvtpHeader + cAvtpStreamDataLengthOffset, mStreamDataLength);
    mAvtpHeader[cAvtpTagChannelOffset] = cAvtpTagCipChannel31;
    mAvtpHeader[cAvtpTcodeSyOffset] = cAvtpTcodeASy0;
}

// Every frame that is built uses up a number, also one that is dropped: the receiver sees the gap.
std::uint8_t AvtpSink::TakeSequenceNumber() noexcept {
    return mSequenceNumber++;
}

void AvtpSink::InitCipHeader() noexcept {
    mCipHeader[cCipSidOffset] = cCipSid63;
    mCipHeader[cCipDbsOffset] = cCipDbsTS;
    mCipHeader[cCipFnOffset] = cCipFnTS;
    mCipHeader[cCipDbcOffset] = mDataBlockCount;
    mCipHeader[cCipFmtOffset] = cCipFmtTS;
    std::memset(mCipHeader + cCipFdfOffset, 0, cCipHeaderSize - cCipFdfOffset);
}

// The frame is submitted, kept for a later try, dropped for want of resources, or it fails. Only the last of
// these is not a success.
KESTATUS AvtpSink::SubmitEthernetFrame() {
    if (mWaitForResources) {
        const KESTATUS st = mDevice->WaitForTxResources(1, 0);
        if (st == KESTATUS_TIMEOUT) {
            mStats.errNoResourcesToSent.Add();
            return KESTATUS_SUCCESS; // kept: nothing is reset
        }
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "WaitForTxResources failed, st={}", st);
        }
        mWaitForResources = false;
    }
    const unsigned frameLength = mEthernetHeaderSize + cAvtpHeaderSize + mStreamDataLength;
    KESTATUS st = mDevice->CheckSubmitRawFrame(frameLength);
    while (st == KESTATUS_NO_SPACE) {
        st = mDevice->SendRawFrames(); // makes room in the device's queue
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SendRawFrames failed, st={}", st);
        }
        st = mDevice->CheckSubmitRawFrame(frameLength);
    }
    if (st == KESTATUS_NO_RESOURCES) {
        mWaitForResources = true;
        mStats.errNoResourcesToSent.Add();
        ResetFrame();
        return KESTATUS_SUCCESS; // dropped
    }
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "CheckSubmitRawFrame failed, st={}", st);
    }
    st = mDevice->SubmitRawFrame(mEthernetFrame, frameLength, nullptr);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "SubmitRawFrame failed, st={}", st);
    }
    mStats.infAvtpPacketsSent.Add();
    ResetFrame();
    return KESTATUS_SUCCESS;
}

// Begins a new frame. The data block counter also counts the blocks of a dropped frame: the receiver sees
// the gap.
void AvtpSink::ResetFrame() noexcept {
    mStreamDataLength = cCipHeaderSize;
    mDataBlockCount =
        static_cast<std::uint8_t>(mDataBlockCount + cDataBlocksPerSourcePacket * mSourcePacketCount);
    mCurSourcePacket = mSourcePacketStart;
    mSourcePacketCount = 0;
}

AvtpSink::Statistics AvtpSink::QuerryStatistics() const noexcept {
    return {.infAvtpPacketsSent = mStats.infAvtpPacketsSent.Value(),
            .errNoResourcesToSent = mStats.errNoResourcesToSent.Value()};
}

} // namespace flowlane
