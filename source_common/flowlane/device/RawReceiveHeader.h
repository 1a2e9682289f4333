// The receive header of type 2 that the device library puts before each received frame. Its layout is
// described in quayside2_api.h. Behind it is the Ethernet frame, or the data of an external trigger's event:
// 64 bits and 16 bits.
#ifndef FLOWLANE_RAWRECEIVEHEADER_H
#define FLOWLANE_RAWRECEIVEHEADER_H

#include <cstddef>
#include <cstdint>

#include "quayside2_api.h"

namespace flowlane::rawheader {

constexpr std::size_t cSecondsOffset = QBX_RAW_HEADER_2_SECONDS_OFFSET;         // 64 bits
constexpr std::size_t cNanosecondsOffset = QBX_RAW_HEADER_2_NANOSECONDS_OFFSET; // 32 bits
constexpr std::size_t cSequenceNumberOffset = QBX_RAW_HEADER_2_SEQUENCE_OFFSET; // 32 bits
constexpr std::size_t cSize = QBX_RAW_HEADER_2_SIZE;

constexpr std::uint64_t cInvalidSeconds = 0xFFFFFFFFFFFFFFFF; // there is no valid time

constexpr std::size_t cEventData1Size = 8;
constexpr std::size_t cEventData2Size = 2;
constexpr std::size_t cEventDataSize = cEventData1Size + cEventData2Size;

} // namespace flowlane::rawheader

#endif
