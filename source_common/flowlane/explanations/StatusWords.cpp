#include "explanations/StatusWords.h"

#include <system_error>

#include "kestatus_util.h"

namespace flowlane {

std::string StatusWords(KESTATUS st) {
    constexpr KESTATUS cErrnoMask = 0xFFFF;
    if ((st & ~cErrnoMask) == KESTATUS_LINUX_BASE) {
        return std::generic_category().message(static_cast<int>(st & cErrnoMask));
    }
    return kestrelon::KEStatusTextA(st);
}

} // namespace flowlane
