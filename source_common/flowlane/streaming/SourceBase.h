// A source of transport stream packets. Its worker thread hands them to the sink that it was created with,
// and is the only caller of that sink while the source runs.
#ifndef FLOWLANE_SOURCEBASE_H
#define FLOWLANE_SOURCEBASE_H

#include "kestatus.h"

namespace flowlane {

// The thread that owns the source starts and stops it. The sink is started before the source.
class SourceBase {
public:
    SourceBase() = default;
    SourceBase(const SourceBase&) = delete;
    SourceBase& operator=(const SourceBase&) = delete;

    [[nodiscard]] virtual KESTATUS StartSource() = 0;
    // From its return on the source does not call the sink.
    virtual void StopSource() = 0;

protected:
    ~SourceBase() = default; // nobody owns one through this base
};

} // namespace flowlane

#endif
