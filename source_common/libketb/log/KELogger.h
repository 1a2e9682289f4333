// A logger: a named source of log messages with a level, attached to at most three targets. A logger is on
// the list of all loggers from its construction to its destruction. Construct, attach and destroy loggers
// while no other thread logs. Any thread may emit messages and set the level; no lock is taken.
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

    // For the logger that is on the list first. It is constant-initialised, so that it is there before any
    // constructor has run.
    enum class FirstOfAll {};
    constexpr KELogger(FirstOfAll, const char* name, KELogLevel level) noexcept
        : mLogLevel(level), mName(name), mTargets{}, mNext(nullptr) {}
    // A static object may be registered by ConstructImpl before its own constructor runs; it then keeps its
    // name, level and targets.
    KELogger(const char* name, KELogLevel level) noexcept;
    // Takes the logger off the list.
    ~KELogger();

    KELogger(const KELogger&) = delete;
    KELogger& operator=(const KELogger&) = delete;

    // Names the logger, sets its level and puts it at the head of the list. Does nothing when it has a name
    // already. name is not copied; null counts as "".
    void ConstructImpl(const char* name, KELogLevel level) noexcept;

    // Success when the target is attached already; KESTATUS_NO_RESOURCES when all slots are taken.
    [[nodiscard]] KESTATUS AttachTarget(KELogTarget& target) noexcept;
    // KESTATUS_NOT_FOUND, which may be ignored, when the target is not attached.
    KESTATUS DetachTarget(KELogTarget& target) noexcept;
    void DetachAllTargets() noexcept;
    bool IsAttachedToTarget(const KELogTarget& target) const noexcept;

    bool IsEnabled(KELogLevel level) const noexcept { return level <= Level(); }
    // Whether anybody gets a message of this level: the logger's level admits it and a target is attached.
    bool IsHeard(KELogLevel level) const noexcept { return IsEnabled(level) && mTargets[0]; }
    // Hands the message to every attached target when the logger's level admits it.
    void OutputMessage(KELogLevel level, KELogMessage& message) const;

    KELogLevel Level() const noexcept { return std::atomic_ref(mLogLevel).load(std::memory_order_relaxed); }
    void SetLevel(KELogLevel level) noexcept {
        std::atomic_ref(mLogLevel).store(level, std::memory_order_relaxed);
    }
    const char* Name() const noexcept { return mName ? mName : ""; }
    KELogger* Next() const noexcept { return mNext; }
    static KELogger* First() noexcept { return smFirst; }
    // Empties the list.
    static void UnchainAllObjects() noexcept;

private:
    bool IsRegistered() const noexcept;

    // Without initialisers, so that what an early registration has stored here stays. Any thread reads and
    // sets the level, only through atomic_ref.
    mutable KELogLevel mLogLevel;
    const char* mName;
    KELogTarget* mTargets[MaxTargetsPerLogger];
    KELogger* mNext;

    static KELogger* smFirst;
};

namespace logger {

// The toolbox's own logger, and the default for all that is not meant for the user's console.
extern KELogger Global;

} // namespace logger

} // namespace kestrelon

#endif
