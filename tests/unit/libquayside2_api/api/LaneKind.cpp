// Runs the conformance tests over lanes of a virtual segment.
#include "api/ConformanceFixture.h"

namespace testsupport {

namespace {

// The segment is the fixture's own.
class LanePair : public DevicePair {
    const char* Names() const override { return "lane-1,lane-2"; }
};

const DeviceKind cLanes = {"Lanes",
                           []() -> std::unique_ptr<DevicePair> { return std::make_unique<LanePair>(); }};

} // namespace

INSTANTIATE_CONFORMANCE_TESTS(cLanes)

} // namespace testsupport
