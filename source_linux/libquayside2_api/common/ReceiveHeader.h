// Writes the receive header of type 2, see QBX_RAW_HEADER_2_SIZE.
#ifndef QUAYSIDE2_RECEIVEHEADER_H
#define QUAYSIDE2_RECEIVEHEADER_H

#include <cstdint>
#include <cstring>

#include "quayside2_api.h"

namespace quayside2 {

inline void WriteReceiveHeader(std::uint8_t* to, std::uint64_t seconds, std::uint32_t nanoseconds,
                               std::uint32_t sequence) noexcept {
    std::memcpy(to + QBX_RAW_HEADER_2_SECONDS_OFFSET, &seconds, sizeof(seconds));
    std::memcpy(to + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, &nanoseconds, sizeof(nanoseconds));
    std::memcpy(to + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, &sequence, sizeof(sequence));
}

} // namespace quayside2

#endif
