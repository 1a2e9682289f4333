// A log target: a named place where log lines go, with its own prefix layout. Targets live as long as
// the process, or unregister when destroyed; construct and attach them before other threads log. A
// target makes its own output safe against several threads.
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
    // Registers the target at the head of the list of all targets. name is not copied; null counts as "".
    explicit KELogTarget(const char* name) noexcept;
    // Detaches the target from every logger and takes it off the list.
    virtual ~KELogTarget();

    KELogTarget(const KELogTarget&) = delete;
    KELogTarget& operator=(const KELogTarget&) = delete;

    // Prepares the target for output; configuration may be null.
    [[nodiscard]] virtual KESTATUS StartTarget(KELogConfiguration* configuration);
    virtual void StopTarget();
    virtual void OutputMessage(KELogMessage& message, const KELogger& logger,
                               const KELogMsgMetaData& metaData);

    // Attaches to every logger that has a free slot. The first KESTATUS_NO_RESOURCES is returned after all
    // loggers have been tried.
    [[nodiscard]] KESTATUS AttachToAllLoggers() noexcept;
    void DetachFromAllLoggers() noexcept;

    const char* Name() const noexcept { return mName; }
    KELogTarget* Next() const noexcept { return mNext; }
    static KELogTarget* First() noexcept { return smFirst; }
    // Empties the list of all targets.
    static void UnchainAllObjects() noexcept;

    KELogMsgPrefixLayout mPrefixLayout;

private:
    const char* mName;
    KELogTarget* mNext = nullptr;

    static KELogTarget* smFirst;
};

} // namespace kestrelon

#endif
