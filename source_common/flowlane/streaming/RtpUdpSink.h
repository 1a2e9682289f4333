// The sink that sends transport stream packets over UDP to one host and port: up to seven packets per
// datagram, with an RTP header or without.
//
// The RTP header (RFC 3550, payload type 33 of RFC 3551: an MPEG-2 transport stream as in RFC 2250), 12
// bytes, big-endian: 0x80 (version 2), 0x21 (no marker, payload type 33), the sequence number (16 bits,
// counting the datagrams sent), the timestamp (32 bits) and the SSRC (32 bits). The last two are 0: a
// receiver times the stream by its clock references.
//
// The socket never blocks the calling thread. A datagram that cannot be sent stays in the buffer, and every
// SendDeliveredPackets tries it again. A part-filled one takes further packets. A full one is tried for the
// last time when the next packet comes, and is dropped if that fails. So a receiver that comes back is served
// at once, and old packets do not pile up.
//
// Delivering and sending are for one thread, the statistics for any. All messages go to the Global logger.
#ifndef FLOWLANE_RTPUDPSINK_H
#define FLOWLANE_RTPUDPSINK_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "KEOsSocket.h"
#include "base/RelaxedCounter.h"
#include "streaming/SinkBase.h"

namespace flowlane {

class RtpUdpSink final : public SinkBase {
public:
    static constexpr std::size_t MaxUdpPayloadSize = 1400; // bytes

    struct Statistics {
        std::uint64_t infUdpPacketsSent = 0;
        std::uint64_t errSendFailed = 0;        // attempts that failed or would have blocked
        std::uint64_t errUdpPacketsDropped = 0; // datagrams whose last attempt failed
        std::uint64_t errUdpPacketsRefused = 0; // failures that tell of an earlier datagram that nobody took
        KESTATUS lastSendFailure = KESTATUS_SUCCESS;
    };

    RtpUdpSink() = default;

    // Resolves the host, which may wait for name servers, and connects a socket to its first address. port is
    // in host byte order. sendBufferSize: bytes of the socket's send buffer; 0 leaves the system's default.
    //   KESTATUS_NO_ADDRESS  the host cannot be resolved
    // Other failures are the system's.
    [[nodiscard]] KESTATUS CreateRtpUdpSink(const char* hostName, std::uint16_t port, unsigned sendBufferSize,
                                            bool rtpHeaderContained);

    // Sequence number and statistics begin at 0. Always succeeds.
    [[nodiscard]] KESTATUS StartSink() override;
    // Counts what is lost at the end: a datagram that could not be sent, and one that was refused since the
    // last attempt. The destructor closes the socket.
    void StopSink() override;

    // The packet is always taken. A failure is that of sending a datagram; a send that would block is no
    // failure.
    [[nodiscard]] KESTATUS DeliverTSPacket(const TSPacket& packet) override;
    [[nodiscard]] KESTATUS SendDeliveredPackets() override;

    // The numeric address of the host, without the port. For the owner, after CreateRtpUdpSink.
    const std::string& SocketAddress() const noexcept { return mSocketAddrStr; }
    // Why the host could not be resolved: an error of getaddrinfo, 0 when it was resolved. For the owner.
    int LookupError() const noexcept { return mLookupError; }
    // Counted since the start.
    Statistics QuerryStatistics() const noexcept;

    // The steps of creating the sink and of building a datagram. The sink calls them itself.

    // Resolves and connects; parameters and failures as for CreateRtpUdpSink.
    [[nodiscard]] KESTATUS ConfigureSocket(const char* hostName, std::uint16_t port, unsigned sendBufferSize);
    // Writes the header at the start of the datagram; the payload follows it. Uses up a sequence number.
    void InitRtpHeader() noexcept;

private:
    static constexpr std::uint32_t cMaxTsPackets = 7;
    static constexpr std::size_t cRtpHeaderSize = 12;
    static_assert(cRtpHeaderSize + cMaxTsPackets * TSPacket::cSize <= MaxUdpPayloadSize);

    void BeginDatagram() noexcept;
    void DropDatagram() noexcept;
    void CountFailure(KESTATUS st) noexcept;
    [[nodiscard]] KESTATUS SendUdpPacket();
    std::size_t RtpHeaderSize() const noexcept;

    kestrelon::KEOsSocket mSocket;
    std::uint8_t mUdpPacket[MaxUdpPayloadSize] = {};
    std::uint8_t* mCurPayloadData = mUdpPacket; // where the next bytes go
    std::string mSocketAddrStr;
    int mLookupError = 0;
    std::uint32_t mMaxTsPacketCount = cMaxTsPackets;
    std::uint32_t mTsPacketCount = 0; // in the datagram being built
    struct {
        RelaxedCounter infUdpPacketsSent;
        std::atomic<std::uint64_t> errSendFailed = 0; // stored after the failure's status
        RelaxedCounter errUdpPacketsDropped;
        RelaxedCounter errUdpPacketsRefused;
        std::atomic<KESTATUS> lastSendFailure = KESTATUS_SUCCESS;
    } mStats;
    std::uint16_t mRtpSequenceNumber = 0; // for the next header
    bool mRtpHeaderContained = false;
};

} // namespace flowlane

#endif
