// A sink for transport stream packets: it gathers them and sends them on in frames or datagrams. It takes no
// lock: one thread at a time calls it, and between the start and the stop of its source that is the worker
// of the source.
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

    [[nodiscard]] virtual KESTATUS StartSink() = 0;
    virtual void StopSink() = 0;

    // Copies what it needs from the packet, which stays the caller's, and sends when its own limit is
    // reached.
    //   KESTATUS_NOT_SUPPORTED  the sink does not implement it
    [[nodiscard]] virtual KESTATUS DeliverTSPacket(const TSPacket& packet);
    // The end of a batch: sends what was gathered, even if it does not fill a frame. Succeeds without effect
    // when nothing was gathered.
    //   KESTATUS_NOT_SUPPORTED  the sink does not implement it
    [[nodiscard]] virtual KESTATUS SendDeliveredPackets();

protected:
    ~SinkBase() = default; // nobody owns one through this base
};

} // namespace flowlane

#endif
