// A source of transport stream packets. It hands them to the sink it was created with, from its own worker
// thread, and is the only caller of that sink while it runs.
#ifndef FLOWLANE_SOURCEBASE_H
#define FLOWLANE_SOURCEBASE_H

#include "kestatus.h"

namespace flowlane {

// Starting and stopping are for the thread that owns the source. The sink is started before the source.
class SourceBase {
public:
    SourceBase() = default;
    SourceBase(const SourceBase&) = delete;
    SourceBase& operator=(const SourceBase&) = delete;

    virtual KESTATUS StartSource() = 0;
    // Returns when no call reaches the sink any more.
    virtual void StopSource() = 0;

protected:
    ~SourceBase() = default; // nobody owns one through this base
};

} // namespace flowlane

#endif
