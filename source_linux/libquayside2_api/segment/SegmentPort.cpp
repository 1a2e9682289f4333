#include "segment/SegmentPort.h"

namespace quayside2::segment {

KESTATUS SegmentPort::Open(const std::string& path, std::uint32_t number, Rings rings) {
    mNumber = number;
    KESTATUS status = mFile.Open(path);
    if (status == KESTATUS_SUCCESS) {
        using PortUse = SegmentFile::PortUse;
        status = mFile.LockPort(number, rings == Rings::None ? PortUse::Properties : PortUse::Traffic);
    }
    if (status == KESTATUS_SUCCESS) {
        status = mMapping.MapControl(mFile.Descriptor());
    }
    if (status == KESTATUS_SUCCESS && rings == Rings::Own) {
        status = mMapping.MapOwnRing(mFile.Descriptor(), number);
    }
    if (status == KESTATUS_SUCCESS && rings == Rings::All) {
        status = mMapping.MapAllRings(mFile.Descriptor());
    }
    if (status != KESTATUS_SUCCESS) {
        return status;
    }
    std::atomic<std::uint32_t>& epoch = OwnReceiver().epoch;
    epoch.store((epoch.load(std::memory_order_relaxed) + 2) & ~1u, std::memory_order_release);
    OwnSender().roomWanted.store(0, std::memory_order_relaxed);
    return KESTATUS_SUCCESS;
}

} // namespace quayside2::segment
