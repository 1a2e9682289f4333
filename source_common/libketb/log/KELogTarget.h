// A log target: a named place where log lines go, with its own prefix layout. A target is on the list of all
// targets from its construction to its destruction. Construct, attach and destroy targets while no other
// thread logs. Any thread may call OutputMessage; a target makes its own output safe.
#ifndef KESTRELON_KELOGTARGET_H
#define KESTRELON_KELOGTARGET_H

#include "kestatus.h"
#include "log/KELogConfiguration.h"
#include "log/KELogMessage.h"
#include "log/KELogMsgPrefixLayout.h"

namespace kestrelon {

class KELogger;

class KELogTarget {
public:
    // Puts the target at the head of the list. name is not copied; null counts as "".
    explicit KELogTarget(const char* name) noexcept;
    // Detaches the target from every logger and takes it off the list.
    virtual ~KELogTarget();

    KELogTarget(const KELogTarget&) = delete;
    KELogTarget& operator=(const KELogTarget&) = delete;

    // Prepares the target for output. configuration may be null.
    [[nodiscard]] virtual KESTATUS StartTarget(KELogConfiguration* configuration);
    virtual void StopTarget();
    virtual void OutputMessage(KELogMessage& message, const KELogger& logger,
                               const KELogMsgMetaData& metaData);

    // Attaches to every logger that has a free slot. Tries all loggers, then returns the first
    // KESTATUS_NO_RESOURCES.
    [[nodiscard]] KESTATUS AttachToAllLoggers() noexcept;
    void DetachFromAllLoggers() noexcept;

    const char* Name() const noexcept { return mName; }
    KELogTarget* Next() const noexcept { return mNext; }
    static KELogTarget* First() noexcept { return smFirst; }
    // Empties the list.
    static void UnchainAllObjects() noexcept;

    KELogMsgPrefixLayout mPrefixLayout;

private:
    const char* mName;
    KELogTarget* mNext = nullptr;

    static KELogTarget* smFirst;
};

} // namespace kestrelon

#endif
