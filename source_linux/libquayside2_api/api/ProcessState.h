// What the library holds for the whole process: the two handle tables. A forked child starts with empty ones.
// Never destroyed; the kernel frees what a process leaves.
#ifndef QUAYSIDE2_PROCESSSTATE_H
#define QUAYSIDE2_PROCESSSTATE_H

#include "api/HandleTable.h"
#include "common/DeviceBackend.h"

namespace quayside2 {

class ProcessState {
public:
    using Enumerations = HandleTable<DeviceInstances, 0x5>;
    using Devices = HandleTable<Device, 0xA>;

    // The only one; made by the first call. Throws std::bad_alloc.
    static ProcessState& Instance();

    Enumerations enumerations;
    Devices devices;

private:
    explicit ProcessState(std::uint32_t seed) : enumerations(seed), devices(seed) {}
};

} // namespace quayside2

#endif
