// Expansion of a text into words as the shell does it: variables, ~, patterns, quotes, commands.
//
// The expansion reads the environment and may run commands. One thread at a time per object; nobody may
// change the environment meanwhile. Failures are logged.
#ifndef KESTRELON_KELINUXWORDEXP_H
#define KESTRELON_KELINUXWORDEXP_H

#include <wordexp.h>

#include <cstddef>

#include "kestatus.h"

namespace kestrelon {

class KELinuxWordExp {
public:
    KELinuxWordExp() = default;
    ~KELinuxWordExp() { ClearExpansion(); }
    KELinuxWordExp(const KELinuxWordExp&) = delete;
    KELinuxWordExp& operator=(const KELinuxWordExp&) = delete;

    // Expands text; the new words replace the old ones. flags as for wordexp, except WRDE_APPEND, WRDE_DOOFFS
    // and WRDE_REUSE. KESTATUS_FAILED, and no words, when text is not a valid list of words.
    [[nodiscard]] KESTATUS ExpandString(const char* text, int flags) noexcept;
    void ClearExpansion() noexcept;

    std::size_t WordCount() const noexcept { return mExpansion.we_wordc; }
    // The words stay valid until the next expansion; null beyond the last one.
    const char* Word(std::size_t index) const noexcept {
        return index < mExpansion.we_wordc ? mExpansion.we_wordv[index] : nullptr;
    }

private:
    wordexp_t mExpansion{};
    bool mIsAllocated = false;
};

} // namespace kestrelon

#endif
