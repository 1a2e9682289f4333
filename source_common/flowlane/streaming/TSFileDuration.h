// How long a transport stream file plays. Safe from any thread.
#ifndef FLOWLANE_TSFILEDURATION_H
#define FLOWLANE_TSFILEDURATION_H

#include <optional>
#include <string>

#include "streaming/TSPacket.h"

namespace flowlane {

// The time from the first PCR of the file to the last one with the same PID. Only the head and the tail of
// the file are looked at, so it says nothing of steps of the clock in between. Nothing when the file is no
// regular one, cannot be read, has no such references, or when the last one is not later. Throws
// std::bad_alloc.
std::optional<TSPacketDuration> FindTSFileDuration(const std::string& path);

} // namespace flowlane

#endif
