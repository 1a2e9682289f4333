// The shared memory of a segment as one port uses it.
//
// The control pages are writable; a sender can write its own ring, a receiver no ring at all. The memory
// may be used from any thread until the object is destroyed. A forked child does not have it.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTMAPPING_H
#define QUAYSIDE2_SEGMENT_SEGMENTMAPPING_H

#include "kestatus.h"
#include "segment/SegmentLayout.h"

namespace quayside2::segment {

class SegmentMapping {
public:
    SegmentMapping() = default;
    SegmentMapping(const SegmentMapping&) = delete;
    SegmentMapping& operator=(const SegmentMapping&) = delete;
    ~SegmentMapping();

    // Each maps from a complete segment file; each at most once.
    [[nodiscard]] KESTATUS MapControl(int descriptor);
    [[nodiscard]] KESTATUS MapOwnRing(int descriptor, std::uint32_t port);
    [[nodiscard]] KESTATUS MapAllRings(int descriptor);

    ControlPages& Control() const noexcept { return *static_cast<ControlPages*>(mControl.address); }
    Ring& OwnRing() const noexcept { return *static_cast<Ring*>(mRings.address); }
    const Ring& RingOf(std::uint32_t port) const noexcept {
        return static_cast<const Ring*>(mRings.address)[port];
    }

private:
    struct Area {
        void* address = nullptr;
        std::size_t size = 0;
    };
    [[nodiscard]] static KESTATUS Map(Area& area, int descriptor, int protection, std::uint64_t offset,
                                      std::uint64_t size);
    static void Unmap(Area& area) noexcept;

    Area mControl;
    Area mRings;
};

} // namespace quayside2::segment

#endif
