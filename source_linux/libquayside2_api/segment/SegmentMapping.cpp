#include "segment/SegmentMapping.h"

#include <sys/mman.h>

#include <cerrno>

namespace quayside2::segment {

SegmentMapping::~SegmentMapping() {
    Unmap(mControl);
    Unmap(mRings);
}

KESTATUS SegmentMapping::MapControl(int descriptor) {
    return Map(mControl, descriptor, PROT_READ | PROT_WRITE, 0, cControlBytes);
}

KESTATUS SegmentMapping::MapOwnRing(int descriptor, std::uint32_t port) {
    return Map(mRings, descriptor, PROT_READ | PROT_WRITE, RingFileOffset(port), cRingBytes);
}

KESTATUS SegmentMapping::MapAllRings(int descriptor) {
    return Map(mRings, descriptor, PROT_READ, RingFileOffset(0), cPortCount * cRingBytes);
}

KESTATUS SegmentMapping::Map(Area& area, int descriptor, int protection, std::uint64_t offset,
                             std::uint64_t size) {
    void* const address = mmap(nullptr, size, protection, MAP_SHARED, descriptor, static_cast<off_t>(offset));
    if (address == MAP_FAILED) {
        return KEStatusFromErrno(errno);
    }
    area.address = address;
    area.size = size;
    // A forked child must not have it: a mapping keeps the file open, and with it the port's lock.
    return madvise(address, size, MADV_DONTFORK) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
}

void SegmentMapping::Unmap(Area& area) noexcept {
    if (area.address) {
        munmap(area.address, area.size);
    }
}

} // namespace quayside2::segment
