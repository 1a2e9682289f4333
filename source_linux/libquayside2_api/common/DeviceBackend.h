// What a back end offers to the layer above: a list of instances, each of which can be opened.
//
// Another kind of device is added by writing another DeviceBackend and naming it in DeviceList.cpp; the
// handle layer needs no change.
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
    // Opens the instance, and takes it where that way of opening has one holder: KESTATUS_IN_USE when
    // somebody holds it. On failure device is unchanged. The device does not need the instance afterwards.
    virtual KESTATUS Open(const OpenMode& mode, std::unique_ptr<Device>& device) const = 0;
};

using DeviceInstances = std::vector<std::shared_ptr<const DeviceInstance>>;

class DeviceBackend {
public:
    DeviceBackend() = default;
    DeviceBackend(const DeviceBackend&) = delete;
    DeviceBackend& operator=(const DeviceBackend&) = delete;
    virtual ~DeviceBackend() = default;

    // Appends the instances in their fixed order. Opens nothing.
    virtual KESTATUS Enumerate(DeviceInstances& instances) const = 0;
};

} // namespace quayside2

#endif
