#include "streaming/SinkBase.h"

namespace flowlane {

KESTATUS SinkBase::DeliverTSPacket(const TSPacket&) {
    return KESTATUS_NOT_SUPPORTED;
}

KESTATUS SinkBase::SendDeliveredPackets() {
    return KESTATUS_NOT_SUPPORTED;
}

} // namespace flowlane
