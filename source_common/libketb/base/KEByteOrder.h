// Loads and stores of multi-byte fields at any address: no alignment is needed. BE is big-endian, whatever
// the machine's own byte order is; Native is the machine's own. They never fail; from any thread.
#ifndef KESTRELON_KEBYTEORDER_H
#define KESTRELON_KEBYTEORDER_H

#include <cstdint>
#include <cstring>
#include <type_traits>

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

// T is any integer type.
template <typename T>
T KELoadNative(const void* p) noexcept {
    static_assert(std::is_integral_v<T>);
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

template <typename T>
void KEStoreNative(void* p, std::type_identity_t<T> value) noexcept {
    static_assert(std::is_integral_v<T>);
    std::memcpy(p, &value, sizeof value);
}

} // namespace kestrelon

#endif
