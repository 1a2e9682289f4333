#include "log/KELogTarget.h"

#include "log/KELogger.h"

namespace kestrelon {

constinit KELogTarget* KELogTarget::smFirst = nullptr;

KELogTarget::KELogTarget(const char* name) noexcept : mName(name ? name : ""), mNext(smFirst) {
    smFirst = this;
}

KELogTarget::~KELogTarget() {
    DetachFromAllLoggers();
    for (KELogTarget** link = &smFirst; *link; link = &(*link)->mNext) {
        if (*link == this) {
            *link = mNext;
            break;
        }
    }
}

KESTATUS KELogTarget::StartTarget(KELogConfiguration*) {
    return KESTATUS_SUCCESS;
}

void KELogTarget::StopTarget() {}

void KELogTarget::OutputMessage(KELogMessage&, const KELogger&, const KELogMsgMetaData&) {}

KESTATUS KELogTarget::AttachToAllLoggers() noexcept {
    KESTATUS result = KESTATUS_SUCCESS;
    for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        const KESTATUS st = logger->AttachTarget(*this);
        if (result == KESTATUS_SUCCESS) {
            result = st;
        }
    }
    return result;
}

void KELogTarget::DetachFromAllLoggers() noexcept {
    for (KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        logger->DetachTarget(*this);
    }
}

void KELogTarget::UnchainAllObjects() noexcept {
    while (smFirst) {
        KELogTarget* target = smFirst;
        smFirst = target->mNext;
        target->mNext = nullptr;
    }
}

} // namespace kestrelon
