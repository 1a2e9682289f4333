// A logger: a named source of log messages with a level, attached to at most three targets. Loggers
// live as long as the process, or unregister when destroyed; construct and attach them before other
// threads log. Emitting takes no lock.
#ifndef KESTRELON_KELOGGER_H
#define KESTRELON_KELOGGER_H

#include <atomic>

#include "kestatus.h"
#include "log/KELogLevel.h"

namespace kestrelon {

class KELogMessage;
class KELogTarget;

class KELogger {
public:
    // The last slot always stays null and ends the walk of the targets.
    static constexpr unsigned MaxTargetsPerLogger = 4;

    // For the one logger that the list of all loggers begins with: constant-initialised, so that it is on the
    // list before any constructor has run.
    enum class FirstOfAll {};
    constexpr KELogger(FirstOfAll, const char* name, KELogLevel level) noexcept
        : mLogLevel(level), mName(name), mTargets{}, mNext(nullptr) {}
    // A static object that ConstructImpl has registered before its own constructor runs keeps its name, level
    // and targets.
    KELogger(const char* name, KELogLevel level) noexcept;
    // Takes the logger off the list.
    ~KELogger();

    KELogger(const KELogger&) = delete;
    KELogger& operator=(const KELogger&) = delete;

    // Names the logger, sets its level and registers it at the head of the list of all loggers. Does
    // nothing when it has a name already. name is not copied; null counts as "".
    void ConstructImpl(const char* name, KELogLevel level) noexcept;

    // Success when the target is attached already; KESTATUS_NO_RESOURCES when all slots are taken.
    [[nodiscard]] KESTATUS AttachTarget(KELogTarget& target) noexcept;
    // KESTATUS_NOT_FOUND, which may be ignored, when the target is not attached.
    KESTATUS DetachTarget(KELogTarget& target) noexcept;
    void DetachAllTargets() noexcept;
    bool IsAttachedToTarget(const KELogTarget& target) const noexcept;

    bool IsEnabled(KELogLevel level) const noexcept { return level <= Level(); }
    // Whether a message of this level has a reader: the logger's level admits it and a target is attached.
    bool IsHeard(KELogLevel level) const noexcept { return IsEnabled(level) && mTargets[0]; }
    // Stamps the message and hands it to every attached target when the logger's level admits it.
    void OutputMessage(KELogLevel level, KELogMessage& message) const;

    KELogLevel Level() const noexcept { return std::atomic_ref(mLogLevel).load(std::memory_order_relaxed); }
    void SetLevel(KELogLevel level) noexcept {
        std::atomic_ref(mLogLevel).store(level, std::memory_order_relaxed);
    }
    const char* Name() const noexcept { return mName ? mName : ""; }
    KELogger* Next() const noexcept { return mNext; }
    static KELogger* First() noexcept { return smFirst; }
    // Empties the list of all loggers.
    static void UnchainAllObjects() noexcept;

private:
    bool IsRegistered() const noexcept;

    // Without initialisers, for what an early registration has stored here must stay. The level is read and
    // set by any thread, through atomic_ref alone.
    mutable KELogLevel mLogLevel;
    const char* mName;
    KELogTarget* mTargets[MaxTargetsPerLogger];
    KELogger* mNext;

    static KELogger* smFirst;
};

namespace logger {

// The toolbox's own logger and the default for everything that is not meant for the user's console.
extern KELogger Global;

} // namespace logger

} // namespace kestrelon

#endif
