#include "explanations/StatusWords.h"

#include <system_error>

#include "kestatus_util.h"

namespace flowlane {

std::string StatusWords(KESTATUS st) {
    constexpr KESTATUS cErrnoMask = 0xFFFF;
    if ((st & ~cErrnoMask) == KESTATUS_LINUX_BASE) {
        return std::generic_category().message(static_cast<int>(st & cErrnoMask));
    }
    std::string words = kestrelon::KEStatusTextA(st);
    words.erase(words.find_last_not_of('.') + 1);
    return words;
}

} // namespace flowlane
