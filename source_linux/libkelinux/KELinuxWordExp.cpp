#include "KELinuxWordExp.h"

#include "log/KELogging.h"

namespace kestrelon {

KESTATUS KELinuxWordExp::ExpandString(const char* text, int flags) noexcept {
    ClearExpansion();
    if (!text) {
        return KESTATUS_INVALID_PARAMETER;
    }
    const int ret = wordexp(text, &mExpansion, flags);
    // Memory that ran short in the middle leaves a partial result to be freed; after other failures there
    // is nothing to free.
    mIsAllocated = ret == 0 || ret == WRDE_NOSPACE;
    if (ret != 0) {
        ClearExpansion();
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "wordexp failed, ret={}", ret);
        return KESTATUS_FAILED;
    }
    return KESTATUS_SUCCESS;
}

void KELinuxWordExp::ClearExpansion() noexcept {
    if (mIsAllocated) {
        wordfree(&mExpansion);
        mIsAllocated = false;
    }
    mExpansion = {};
}

} // namespace kestrelon
