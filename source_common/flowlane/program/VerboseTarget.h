// The log target of the option -v: what the stages and the toolbox report, of every level, goes to standard
// error with the level's name in front. A flood is tamed: of messages that differ in nothing but their
// numbers ten are written per second. The others are counted, and one line says how many there were when the
// second is over.
//
// The target is for the logger Global. Attached to Cons too, it writes nothing of Cons, but looks with each
// message whether a second is over. The statistics of a command come by there once per second.
//
// Any thread may log. Destroy the target when no other thread logs any more.
#ifndef FLOWLANE_VERBOSETARGET_H
#define FLOWLANE_VERBOSETARGET_H

#include <array>
#include <cstdint>
#include <mutex>

#include "log/KELogMessage.h"
#include "log/KELogTargetConsole.h"

namespace flowlane {

class VerboseTarget final : public kestrelon::KELogTargetConsole {
public:
    static constexpr unsigned cMaxPerSecond = 10; // messages of one kind that are written

    VerboseTarget() noexcept;
    // Writes the counts that are left.
    ~VerboseTarget() override;

    void OutputMessage(kestrelon::KELogMessage& message, const kestrelon::KELogger& logger,
                       const kestrelon::KELogMsgMetaData& metaData) override;

private:
    // Messages of one level that differ in nothing but their numbers, for a second from the first one on.
    struct Kind {
        bool isUsed = false;
        std::int64_t start = 0; // microseconds of the monotonic clock
        kestrelon::KELogLevel level = kestrelon::KEINFO;
        unsigned written = 0;
        std::uint64_t suppressed = 0;
        char text[kestrelon::KELogMessage::TextSize] = {}; // of the last message
    };

    Kind& KindOf(const kestrelon::KELogMessage& message, const kestrelon::KELogMsgMetaData& metaData);
    void EndKindsBefore(std::int64_t time);
    static void End(Kind& kind);

    std::mutex mMutex;             // guards the kinds, and keeps the lines in their order
    std::array<Kind, 16> mKinds{}; // more kinds than that within a second are no flood
};

} // namespace flowlane

#endif
