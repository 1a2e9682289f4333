// The layout of an Ethernet frame that carries an MPEG-2 transport stream as an AVTP stream, for the sender
// and the receiver. All fields of more than one byte are big-endian. In the order of the frame:
//
//   Ethernet header, 14 bytes (IEEE 802.3), or 18 bytes with a VLAN tag (IEEE 802.1Q)
//   AVTP common stream header, 24 bytes (IEEE 1722, subtype IEC 61883/IIDC)
//   CIP header, 8 bytes (IEC 61883-1, with the values of IEC 61883-4)
//   source packets, 192 bytes each: a 4-byte source packet header and a transport stream packet
//
// The frame check sequence belongs to the device: no length here includes it. An offset counts from the start
// of the header that its name begins with.
#ifndef FLOWLANE_AVTPFORMAT_H
#define FLOWLANE_AVTPFORMAT_H

#include <cstdint>

#include "device/EthernetFormat.h"
#include "streaming/TSPacket.h"

namespace flowlane {

// IEEE 1722 stream ID: the talker's MAC address and a 16-bit unique ID, in wire order.
struct AVTP_StreamID {
    std::uint8_t bytes[8];

    friend bool operator==(const AVTP_StreamID&, const AVTP_StreamID&) = default;
};
static_assert(sizeof(AVTP_StreamID) == 8);

namespace avtp {

using namespace ethernet; // the headers in front

constexpr std::uint16_t cEtherTypeAvtp = 0x22F0;

// --- AVTP common stream header (IEEE 1722) -------------------------------------------------------

constexpr unsigned cAvtpSubtypeOffset = 0;
constexpr unsigned cAvtpFlagsOffset = 1; // sv 1 bit, version 3, mr 1, reserved 1, gv 1, tv 1
constexpr unsigned cAvtpSequenceNumberOffset = 2;
constexpr unsigned cAvtpTimestampUncertainOffset = 3; // reserved 7 bits, tu 1
constexpr unsigned cAvtpStreamIdOffset = 4;
constexpr unsigned cAvtpTimestampOffset = 12;        // 32 bits
constexpr unsigned cAvtpGatewayInfoOffset = 16;      // 32 bits
constexpr unsigned cAvtpStreamDataLengthOffset = 20; // 16 bits: bytes behind this header, CIP header included
constexpr unsigned cAvtpTagChannelOffset = 22;       // tag 2 bits, channel 6
constexpr unsigned cAvtpTcodeSyOffset = 23;          // tcode 4 bits, sy 4
constexpr unsigned cAvtpHeaderSize = 24;

constexpr std::uint8_t cAvtpSubtype61883 = 0x00;
constexpr std::uint8_t cAvtpStreamIdValid = 0x80;   // sv; version 0 and all other flags off
constexpr std::uint8_t cAvtpTagCipChannel31 = 0x5F; // tag 1 (a CIP header follows), channel 31 (AVTP origin)
constexpr std::uint8_t cAvtpTcodeASy0 = 0xA0;

// --- CIP header (IEC 61883-1) as MPEG-2 transport streams use it (IEC 61883-4) -------------------

constexpr unsigned cCipSidOffset = 0; // QI 2 bits, SID 6
constexpr unsigned cCipDbsOffset = 1; // data block size in quadlets
constexpr unsigned cCipFnOffset = 2;  // FN 2 bits, QPC 3, SPH 1, reserved 2
constexpr unsigned cCipDbcOffset = 3; // counter of the first data block
constexpr unsigned cCipFmtOffset = 4; // QI 2 bits, FMT 6
constexpr unsigned cCipFdfOffset = 5; // 24 bits
constexpr unsigned cCipHeaderSize = 8;

constexpr std::uint8_t cCipSid63 = 0x3F;  // QI 0, SID 63
constexpr std::uint8_t cCipDbsTS = 6;     // 24 bytes
constexpr std::uint8_t cCipFnTS = 0xC4;   // FN 3 (8 data blocks per source packet), QPC 0, SPH 1
constexpr std::uint8_t cCipSphBit = 0x04; // within the byte of FN
constexpr std::uint8_t cCipFmtTS = 0xA0;  // QI 2, FMT 0x20

// --- Source packets (IEC 61883-4) ----------------------------------------------------------------

constexpr unsigned cSourcePacketHeaderSize = 4; // the low 32 bits of the delivery time in nanoseconds
constexpr unsigned cSourcePacketSize = cSourcePacketHeaderSize + TSPacket::cSize;
constexpr unsigned cDataBlockSize = cCipDbsTS * 4;
constexpr unsigned cDataBlocksPerSourcePacket = cSourcePacketSize / cDataBlockSize;
static_assert(cSourcePacketSize == 192 && cDataBlocksPerSourcePacket == 8);

// Bytes of source packets that fit behind the headers, and how many whole source packets that is.
constexpr unsigned cMaxSourcePacketBytes = cEthMaxPayloadSize - cAvtpHeaderSize - cCipHeaderSize;
constexpr unsigned cMaxSourcePackets = cMaxSourcePacketBytes / cSourcePacketSize;
static_assert(cMaxSourcePacketBytes == 1468 && cMaxSourcePackets == 7);

} // namespace avtp
} // namespace flowlane

#endif
