#include "streaming/TSPacketQueue.h"

namespace flowlane {

void TSPacketQueue::ReleaseToPoolUntil(std::uint32_t count) {
    while (mPacketCount > count) {
        RemoveHead()->ReleaseToPool();
    }
}

} // namespace flowlane
