#include "streaming/RtpUdpSink.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "KEOsSocketAddressInfo.h"
#include "KEOsSocketName.h"
#include "base/KEByteOrder.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint8_t cRtpVersion2 = 0x80;         // no padding, no extension, no CSRC
constexpr std::uint8_t cRtpPayloadTypeMp2t = 33;    // RFC 3551; no marker
constexpr std::size_t cRtpSequenceNumberOffset = 2; // 16 bits
constexpr std::size_t cRtpTimestampOffset = 4;      // 32 bits
constexpr std::size_t cRtpSsrcOffset = 8;           // 32 bits

} // namespace

KESTATUS RtpUdpSink::CreateRtpUdpSink(const char* hostName, std::uint16_t port, unsigned sendBufferSize,
                                      bool rtpHeaderContained) {
    const KESTATUS st = ConfigureSocket(hostName, port, sendBufferSize);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "ConfigureSocket failed, st={}", st);
    }
    mRtpHeaderContained = rtpHeaderContained;
    BeginDatagram();
    return KESTATUS_SUCCESS;
}

KESTATUS RtpUdpSink::ConfigureSocket(const char* hostName, std::uint16_t port, unsigned sendBufferSize) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICSERV;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    KEOsSocketAddressInfo addresses;
    KESTATUS st = addresses.GetAddressInfo(hostName, port, &hints);
    mLookupError = addresses.LookupError();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "GetAddressInfo failed, st={}", st);
    }
    const addrinfo& address = *addresses.AddressInfo();
    st = KEOsGetSocketHostName(*address.ai_addr, address.ai_addrlen, mSocketAddrStr,
                               NI_NUMERICHOST | NI_DGRAM);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "KEOsGetSocketHostName failed, st={}", st);
    }
    st = mSocket.CreateSocket(address.ai_family, address.ai_socktype, address.ai_protocol);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "CreateSocket failed, st={}", st);
    }
    st = mSocket.Connect(*address.ai_addr, address.ai_addrlen);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "Connect failed, st={}", st);
    }
    st = mSocket.EnableNonBlockingMode(true);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "EnableNonBlockingMode failed, st={}", st);
    }
    if (sendBufferSize != 0) {
        st = mSocket.SetSocketOption(SOL_SOCKET, SO_SNDBUF, &sendBufferSize, sizeof sendBufferSize);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SetSendBufferSize failed, st={}", st);
        }
    }
    return KESTATUS_SUCCESS;
}

KESTATUS RtpUdpSink::StartSink() {
    mMaxTsPacketCount = cMaxTsPackets;
    mRtpSequenceNumber = 0;
    mStats.infUdpPacketsSent.Clear();
    mStats.errSendFailed.store(0, std::memory_order_relaxed);
    mStats.errUdpPacketsDropped.Clear();
    mStats.errUdpPacketsRefused.Clear();
    mStats.lastSendFailure.store(KESTATUS_SUCCESS, std::memory_order_relaxed);
    BeginDatagram();
    return KESTATUS_SUCCESS;
}

void RtpUdpSink::StopSink() {
    if (mSocket.Handle() == KEOsSocket::InvalidSocket) {
        return;
    }
    if (mTsPacketCount != 0) {
        DropDatagram(); // all that was delivered has been tried
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(mSocket.Handle(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) {
        CountFailure(KEStatusFromErrno(error));
        mStats.errUdpPacketsDropped.Add();
    }
}

KESTATUS RtpUdpSink::DeliverTSPacket(const TSPacket& packet) {
    KESTATUS st = KESTATUS_SUCCESS;
    if (mTsPacketCount >= mMaxTsPacketCount) {
        // The full datagram could not be sent before.
        st = SendUdpPacket();
        if (mTsPacketCount >= mMaxTsPacketCount) {
            DropDatagram();
        }
    }
    std::memcpy(mCurPayloadData, packet.mData, TSPacket::cSize);
    mCurPayloadData += TSPacket::cSize;
    ++mTsPacketCount;
    if (mTsPacketCount == mMaxTsPacketCount) {
        st = SendUdpPacket();
    }
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "SendUdpPacket failed, st={}", st);
}

KESTATUS RtpUdpSink::SendDeliveredPackets() {
    if (mTsPacketCount == 0) {
        return KESTATUS_SUCCESS;
    }
    const KESTATUS st = SendUdpPacket();
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "SendUdpPacket failed, st={}", st);
}

// A datagram that is not sent stays in the buffer.
KESTATUS RtpUdpSink::SendUdpPacket() {
    const std::size_t length = RtpHeaderSize() + mTsPacketCount * TSPacket::cSize;
    std::size_t sent = 0;
    const KESTATUS st = mSocket.SendData(mUdpPacket, length, sent);
    if (st != KESTATUS_SUCCESS) {
        CountFailure(st);
        if (st == KESTATUS_TIMEOUT || st == KESTATUS_WOULD_BLOCK) {
            // The datagram is kept, whatever the text says: it is not to change.
            KEOutputLogMessage(logger::Global, KEWARN, "SendData timed out, packet is dropped");
            return KESTATUS_SUCCESS;
        }
        return KEOutputFailure(logger::Global, "SendData failed, st={}", st);
    }
    if (sent != length) {
        KEOutputLogMessage(logger::Global, KEWARN, "unexpected length {}, exp. {}", sent, length);
    }
    BeginDatagram();
    mStats.infUdpPacketsSent.Add();
    return KESTATUS_SUCCESS;
}

void RtpUdpSink::CountFailure(KESTATUS st) noexcept {
    if (st == KEStatusFromErrno(ECONNREFUSED)) {
        mStats.errUdpPacketsRefused.Add();
    }
    mStats.lastSendFailure.store(st, std::memory_order_relaxed);
    mStats.errSendFailed.fetch_add(1, std::memory_order_release);
}

void RtpUdpSink::BeginDatagram() noexcept {
    mCurPayloadData = mUdpPacket;
    mTsPacketCount = 0;
    if (mRtpHeaderContained) {
        InitRtpHeader();
    }
}

// Discards the packets. The header stays: its sequence number was not used.
void RtpUdpSink::DropDatagram() noexcept {
    mCurPayloadData = mUdpPacket + RtpHeaderSize();
    mTsPacketCount = 0;
    mStats.errUdpPacketsDropped.Add();
}

void RtpUdpSink::InitRtpHeader() noexcept {
    mUdpPacket[0] = cRtpVersion2;
    mUdpPacket[1] = cRtpPayloadTypeMp2t;
    KEStoreBE16(mUdpPacket + cRtpSequenceNumberOffset, mRtpSequenceNumber);
    KEStoreBE32(mUdpPacket + cRtpTimestampOffset, 0);
    KEStoreBE32(mUdpPacket + cRtpSsrcOffset, 0);
    ++mRtpSequenceNumber;
    mCurPayloadData = mUdpPacket + cRtpHeaderSize;
}

std::size_t RtpUdpSink::RtpHeaderSize() const noexcept {
    return mRtpHeaderContained ? cRtpHeaderSize : 0;
}

RtpUdpSink::Statistics RtpUdpSink::QuerryStatistics() const noexcept {
    return {.infUdpPacketsSent = mStats.infUdpPacketsSent.Value(),
            // Read before the status, so that a failure that is counted has its status.
            .errSendFailed = mStats.errSendFailed.load(std::memory_order_acquire),
            .errUdpPacketsDropped = mStats.errUdpPacketsDropped.Value(),
            .errUdpPacketsRefused = mStats.errUdpPacketsRefused.Value(),
            .lastSendFailure = mStats.lastSendFailure.load(std::memory_order_relaxed)};
}

} // namespace flowlane
