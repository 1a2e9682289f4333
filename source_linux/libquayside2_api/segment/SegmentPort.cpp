#include "segment/SegmentPort.h"

namespace quayside2::segment {

KESTATUS SegmentPort::Open(const std::string& path, std::uint32_t number, Rings rings) {
    mNumber = number;
    KESTATUS st = mFile.Open(path);
    if (st == KESTATUS_SUCCESS) {
        using PortUse = SegmentFile::PortUse;
        st = mFile.LockPort(number, rings == Rings::None ? PortUse::Properties : PortUse::Traffic);
    }
    if (st == KESTATUS_SUCCESS) {
        st = mMapping.MapControl(mFile.Descriptor());
    }
    if (st == KESTATUS_SUCCESS && rings == Rings::Own) {
        st = mMapping.MapOwnRing(mFile.Descriptor(), number);
    }
    if (st == KESTATUS_SUCCESS && rings == Rings::All) {
        st = mMapping.MapAllRings(mFile.Descriptor());
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    std::atomic<std::uint32_t>& epoch = OwnReceiver().epoch;
    epoch.store((epoch.load(std::memory_order_relaxed) + 2) & ~1u, std::memory_order_release);
    OwnSender().roomWanted.store(0, std::memory_order_relaxed);
    return KESTATUS_SUCCESS;
}

} // namespace quayside2::segment
