// Loads and stores of multi-byte fields at any address, by shifts: no alignment is needed and the
// machine's own byte order does not matter.
#ifndef KESTRELON_KEBYTEORDER_H
#define KESTRELON_KEBYTEORDER_H

#include <cstdint>

namespace kestrelon {

inline std::uint16_t KELoadBE16(const std::uint8_t* p) noexcept {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

inline std::uint32_t KELoadBE32(const std::uint8_t* p) noexcept {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

inline void KEStoreBE16(std::uint8_t* p, std::uint16_t value) noexcept {
    p[0] = static_cast<std::uint8_t>(value >> 8);
    p[1] = static_cast<std::uint8_t>(value);
}

inline void KEStoreBE32(std::uint8_t* p, std::uint32_t value) noexcept {
    p[0] = static_cast<std::uint8_t>(value >> 24);
    p[1] = static_cast<std::uint8_t>(value >> 16);
    p[2] = static_cast<std::uint8_t>(value >> 8);
    p[3] = static_cast<std::uint8_t>(value);
}

} // namespace kestrelon

#endif
