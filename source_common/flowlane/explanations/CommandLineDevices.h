// The connected devices as an explanation needs them.
#ifndef FLOWLANE_COMMANDLINEDEVICES_H
#define FLOWLANE_COMMANDLINEDEVICES_H

#include <string>
#include <vector>

namespace flowlane {

// The friendly names of the connected devices in the order of their indexes. A device whose name cannot be
// read has an empty one; without a list of devices there are none. Takes no device. Call it while the main
// thread is the only one, because it changes the environment for a moment. Throws std::bad_alloc.
std::vector<std::string> ConnectedDeviceNames();

} // namespace flowlane

#endif
