// Makes messages take time: while it lives, each message of the Global logger moves a virtual clock forward.
// So a test sees that time passes while the code under test works.
#ifndef FLOWLANE_TESTS_TIMEDMESSAGES_H
#define FLOWLANE_TESTS_TIMEDMESSAGES_H

#include "VirtualClock.h"
#include "log/KELogging.h"

namespace testsupport {

class TimedMessages final : public kestrelon::KELogTarget {
public:
    TimedMessages(VirtualClock& clock, VirtualClock::Duration duration)
        : KELogTarget("TimedMessages"), mClock(clock), mDuration(duration) {
        static_cast<void>(kestrelon::logger::Global.AttachTarget(*this)); // without it the time stands still
    }
    ~TimedMessages() override { kestrelon::logger::Global.DetachTarget(*this); }

    void OutputMessage(kestrelon::KELogMessage&, const kestrelon::KELogger&,
                       const kestrelon::KELogMsgMetaData&) override {
        mClock.Advance(mDuration);
    }

private:
    VirtualClock& mClock;
    const VirtualClock::Duration mDuration;
};

} // namespace testsupport

#endif
