// The virtual Ethernet segment: four ports, lane-1 to lane-4, that live in shared memory of one user.
//
// Each frame that one port sends is received by every other open port, in this and other processes. That
// needs no privilege and no server process.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTBACKEND_H
#define QUAYSIDE2_SEGMENT_SEGMENTBACKEND_H

#include <string>

#include "common/DeviceBackend.h"
#include "segment/SegmentFile.h"

namespace quayside2::segment {

class SegmentBackend : public DeviceBackend {
public:
    explicit SegmentBackend(std::string directory = cSegmentDirectory) : mDirectory(std::move(directory)) {}

    // The four ports of the segment that the environment variable QUAYSIDE2_SEGMENT names, "default" when
    // it is not set or empty. KESTATUS_INVALID_PARAMETER when the name is not valid.
    [[nodiscard]] KESTATUS Enumerate(DeviceInstances& instances) const override;

private:
    std::string mDirectory;
};

} // namespace quayside2::segment

#endif
