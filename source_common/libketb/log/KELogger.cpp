#include "log/KELogger.h"

#include "log/KELogMessage.h"
#include "log/KELogTarget.h"

namespace kestrelon {

constinit KELogger logger::Global(KELogger::FirstOfAll{}, "Global", KEINFO);

constinit KELogger* KELogger::smFirst = &logger::Global;

KELogger::KELogger(const char* name, KELogLevel level) noexcept {
    // The members have no values yet, unless the object is on the list. So none is read before that is known.
    if (IsRegistered()) {
        return;
    }
    mName = nullptr;
    DetachAllTargets();
    ConstructImpl(name, level);
}

bool KELogger::IsRegistered() const noexcept {
    const KELogger* logger = smFirst;
    while (logger && logger != this) {
        logger = logger->mNext;
    }
    return logger != nullptr;
}

void KELogger::ConstructImpl(const char* name, KELogLevel level) noexcept {
    if (mName) {
        return;
    }
    mName = name ? name : "";
    SetLevel(level);
    mNext = smFirst;
    smFirst = this;
}

KELogger::~KELogger() {
    for (KELogger** link = &smFirst; *link; link = &(*link)->mNext) {
        if (*link == this) {
            *link = mNext;
            break;
        }
    }
}

KESTATUS KELogger::AttachTarget(KELogTarget& target) noexcept {
    for (unsigned slot = 0; slot < MaxTargetsPerLogger - 1; ++slot) {
        if (mTargets[slot] == &target) {
            return KESTATUS_SUCCESS;
        }
        if (!mTargets[slot]) {
            mTargets[slot] = &target;
            return KESTATUS_SUCCESS;
        }
    }
    return KESTATUS_NO_RESOURCES;
}

KESTATUS KELogger::DetachTarget(KELogTarget& target) noexcept {
    for (unsigned slot = 0; mTargets[slot]; ++slot) {
        if (mTargets[slot] == &target) {
            // Close the gap: the first null ends the walk of the targets.
            for (; mTargets[slot]; ++slot) {
                mTargets[slot] = mTargets[slot + 1];
            }
            return KESTATUS_SUCCESS;
        }
    }
    return KESTATUS_NOT_FOUND;
}

void KELogger::DetachAllTargets() noexcept {
    for (KELogTarget*& target : mTargets) {
        target = nullptr;
    }
}

bool KELogger::IsAttachedToTarget(const KELogTarget& target) const noexcept {
    for (const KELogTarget* attached : mTargets) {
        if (attached == &target) {
            return true;
        }
    }
    return false;
}

void KELogger::OutputMessage(KELogLevel level, KELogMessage& message) const {
    if (!IsHeard(level)) {
        return;
    }
    KELogMsgMetaData metaData;
    KEInitLogMsgMetaData(metaData, level);
    for (KELogTarget* const* slot = mTargets; *slot; ++slot) {
        (*slot)->OutputMessage(message, *this, metaData);
    }
}

void KELogger::UnchainAllObjects() noexcept {
    while (smFirst) {
        KELogger* logger = smFirst;
        smFirst = logger->mNext;
        logger->mNext = nullptr;
    }
}

} // namespace kestrelon
