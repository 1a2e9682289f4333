// The header that the device library puts before each received frame (receive header type 2), 16 bytes in the
// machine's own byte order. Behind it stands the Ethernet frame, or what an external trigger brings: 64 bits
// and 16 bits of event data.
#ifndef FLOWLANE_RAWRECEIVEHEADER_H
#define FLOWLANE_RAWRECEIVEHEADER_H

#include <cstddef>
#include <cstdint>

#include "quayside2_api.h"

namespace flowlane::rawheader {

constexpr std::size_t cSecondsOffset = 0;         // 64 bits, since 1970-01-01 UTC
constexpr std::size_t cNanosecondsOffset = 8;     // 32 bits
constexpr std::size_t cSequenceNumberOffset = 12; // 32 bits, one up for every frame
constexpr std::size_t cSize = 16;

static_assert(cSecondsOffset == QBX_RAW_HEADER_2_SECONDS_OFFSET);
static_assert(cNanosecondsOffset == QBX_RAW_HEADER_2_NANOSECONDS_OFFSET);
static_assert(cSequenceNumberOffset == QBX_RAW_HEADER_2_SEQUENCE_OFFSET);
static_assert(cSize == QBX_RAW_HEADER_2_SIZE);

constexpr std::uint64_t cInvalidSeconds = 0xFFFFFFFFFFFFFFFF; // there is no valid time

constexpr std::size_t cEventData1Size = 8;
constexpr std::size_t cEventData2Size = 2;
constexpr std::size_t cEventDataSize = cEventData1Size + cEventData2Size;

} // namespace flowlane::rawheader

#endif
