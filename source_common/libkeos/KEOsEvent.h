// The event types of the OS layer. KEPosixEvent.h describes them.
#ifndef KESTRELON_KEOSEVENT_H
#define KESTRELON_KEOSEVENT_H

#include "KEPosixEvent.h"

namespace kestrelon {

class KEOsManualResetEvent : public KEPosixEvent {
public:
    [[nodiscard]] KESTATUS CreateEvent() noexcept { return KEPosixEvent::CreateEvent(true); }
};

class KEOsAutoResetEvent : public KEPosixEvent {
public:
    [[nodiscard]] KESTATUS CreateEvent() noexcept { return KEPosixEvent::CreateEvent(false); }
};

} // namespace kestrelon

#endif
