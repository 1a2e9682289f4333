#include "common/Device.h"

namespace quayside2 {

KESTATUS Device::GetHolder(OpenMode::Kind, std::string&) const {
    return KESTATUS_NOT_FOUND;
}

KESTATUS Device::GetFile(std::string&) const {
    return KESTATUS_NOT_FOUND;
}

KESTATUS Device::GetLostFrames(std::uint64_t&) {
    return KESTATUS_NOT_FOUND;
}

KESTATUS Device::EnableRawRx() {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::DisableRawRx() {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::WaitForRawFrame(std::int32_t) {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::GetReceivedRawFrame(QBXRawFrameType&, std::uint8_t*, std::uint32_t, std::uint32_t&) {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::CheckSubmitRawFrame(std::uint32_t) {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::WaitForTxResources(std::uint32_t, std::int32_t) {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::SubmitRawFrame(const std::uint8_t*, std::uint32_t) {
    return KESTATUS_WRONG_DIRECTION;
}

KESTATUS Device::SendRawFrames() {
    return KESTATUS_WRONG_DIRECTION;
}

} // namespace quayside2
