// One port of a segment, held by this process: the segment's file with the port's lock, and its memory.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTPORT_H
#define QUAYSIDE2_SEGMENT_SEGMENTPORT_H

#include <string>

#include "segment/SegmentFile.h"
#include "segment/SegmentMapping.h"

namespace quayside2::segment {

class SegmentPort {
public:
    enum class Rings { None, Own, All };

    // Takes a port of the segment at path and maps these rings. Disables the reception that a former holder
    // may have left enabled, so that no sender waits for it. Statuses as SegmentFile.
    [[nodiscard]] KESTATUS Open(const std::string& path, std::uint32_t number, Rings rings);

    std::uint32_t Number() const noexcept { return mNumber; }
    const SegmentFile& File() const noexcept { return mFile; }
    ControlPages& Control() const noexcept { return mMapping.Control(); }
    SenderState& OwnSender() const noexcept { return Control().senders[mNumber]; }
    ReceiverState& OwnReceiver() const noexcept { return Control().receivers[mNumber]; }
    Ring& OwnRing() const noexcept { return mMapping.OwnRing(); }
    const Ring& RingOf(std::uint32_t port) const noexcept { return mMapping.RingOf(port); }

private:
    SegmentFile mFile;
    SegmentMapping mMapping;
    std::uint32_t mNumber = 0;
};

} // namespace quayside2::segment

#endif
