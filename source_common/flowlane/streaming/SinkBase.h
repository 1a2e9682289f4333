// A sink for transport stream packets: it gathers them and sends them on in frames or datagrams. Called by
// one thread at a time (the worker of its source between the source's start and stop), so it takes no lock.
#ifndef FLOWLANE_SINKBASE_H
#define FLOWLANE_SINKBASE_H

#include "kestatus.h"
#include "streaming/TSPacket.h"

namespace flowlane {

class SinkBase {
public:
    SinkBase() = default;
    SinkBase(const SinkBase&) = delete;
    SinkBase& operator=(const SinkBase&) = delete;

    virtual KESTATUS StartSink() = 0;
    virtual void StopSink() = 0;

    // Takes what it needs from the packet, which stays the caller's, and sends when its own limit is
    // reached. A sink that does not offer this answers KESTATUS_NOT_SUPPORTED.
    virtual KESTATUS DeliverTSPacket(const TSPacket& packet);
    // The end of a batch: sends what was gathered, even if it fills no whole frame; a success without
    // effect when there is nothing. A sink that does not offer this answers KESTATUS_NOT_SUPPORTED.
    virtual KESTATUS SendDeliveredPackets();

protected:
    ~SinkBase() = default; // nobody owns one through this base
};

} // namespace flowlane

#endif
