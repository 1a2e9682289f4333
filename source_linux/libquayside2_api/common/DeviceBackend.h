// What a back end offers to the layer above: a list of instances, each of which can be opened.
//
// Another kind of device is added by writing another DeviceBackend, in a folder of its own, and naming it in
// api/DeviceList.cpp; the handle layer needs no change. Device.h has the contract of an opened device. Derive
// the sender from TransmitDevice, and let the receiver deliver through ReceiveDelivery. The conformance tests
// in tests/unit/libquayside2_api/api run for a new kind as soon as a file like LaneKind.cpp names it.
#ifndef QUAYSIDE2_DEVICEBACKEND_H
#define QUAYSIDE2_DEVICEBACKEND_H

#include <memory>
#include <vector>

#include "common/Device.h"

namespace quayside2 {

// One device instance as it was found. Immutable, so it may be used from several threads.
class DeviceInstance {
public:
    DeviceInstance() = default;
    DeviceInstance(const DeviceInstance&) = delete;
    DeviceInstance& operator=(const DeviceInstance&) = delete;
    virtual ~DeviceInstance() = default;

    virtual const DeviceProperties& Properties() const noexcept = 0;
    // Opens the instance, and takes it where that way of opening has one holder. A hold is known to all
    // processes, and ends with the device or the process, however that dies. Waits only for a holder that has
    // it for a moment, 200 ms at most. On failure device is unchanged and nothing is taken. The device does
    // not need the instance afterwards.
    //   KESTATUS_IN_USE                     somebody holds it
    //   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  this process may not use it
    //   KESTATUS_DEVICE_REMOVED             it is gone since it was listed
    //   others                              it cannot be reached
    [[nodiscard]] virtual KESTATUS Open(const OpenMode& mode, std::unique_ptr<Device>& device) const = 0;
};

using DeviceInstances = std::vector<std::shared_ptr<const DeviceInstance>>;

class DeviceBackend {
public:
    DeviceBackend() = default;
    DeviceBackend(const DeviceBackend&) = delete;
    DeviceBackend& operator=(const DeviceBackend&) = delete;
    virtual ~DeviceBackend() = default;

    // Appends the instances in their fixed order. Opens nothing, takes nothing and needs no privilege.
    // Without devices of this kind, or without a way to find them, it appends none and succeeds: a failure
    // hides the devices of all other kinds too.
    [[nodiscard]] virtual KESTATUS Enumerate(DeviceInstances& instances) const = 0;
};

} // namespace quayside2

#endif
