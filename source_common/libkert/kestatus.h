// KESTATUS: the result of every operation that can fail. Usable from C and C++.
//
// 0 is success; every failure has its top three bits set. A Linux errno value e is carried as
// 0xE0010000 | (e & 0xFFFF). Names and texts of the codes: kestatus_util.h.
#ifndef KESTRELON_KESTATUS_H
#define KESTRELON_KESTATUS_H

#include <stdint.h>

#include "kestatus_codes.h"

typedef uint32_t KESTATUS;

#ifdef __cplusplus
#define KESTATUS_DEFINE(name, value, text) inline constexpr KESTATUS name = value;
#else
#define KESTATUS_DEFINE(name, value, text) static const KESTATUS name = value;
#endif
KESTATUS_CODES(KESTATUS_DEFINE)
#undef KESTATUS_DEFINE

// The base of the Linux family. No operation returns it.
#define KESTATUS_LINUX_BASE ((KESTATUS)0xE0010000u)

#ifdef __cplusplus
// The status of an errno value, or of an error number that a pthread function returned. err must not be 0:
// that would give a failure code without a name.
[[nodiscard]] constexpr KESTATUS KEStatusFromErrno(int err) noexcept {
    return KESTATUS_LINUX_BASE | (static_cast<KESTATUS>(err) & 0xFFFFu);
}
#endif

#endif
