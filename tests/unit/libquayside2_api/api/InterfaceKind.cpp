// Runs the conformance tests over network interfaces: the two ends of a link.
#include "api/ConformanceFixture.h"
#include "netif/NetifFixture.h"

namespace testsupport {

namespace {

class InterfacePair : public DevicePair {
    const char* Names() const override { return "flw0,flw1"; }
    const OwnLink mLink;
};

const DeviceKind cInterfaces = {
    "Interfaces", []() -> std::unique_ptr<DevicePair> { return std::make_unique<InterfacePair>(); }};

} // namespace

INSTANTIATE_CONFORMANCE_TESTS(cInterfaces)

} // namespace testsupport
